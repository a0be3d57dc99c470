// The workers that visit ports: each takes one port after the other, reads it and files it in a list.
#ifndef INBAND_PORTDISCOVERY_H_
#define INBAND_PORTDISCOVERY_H_

#include <memory>

#include "model/Answers.h"
#include "model/HbaList.h"
#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"
#include "thread/zyl_thread_pool.h"

// What one cycle's workers work on. Immutable; the lists lock themselves.
struct PortDiscoveryBlock {
  std::shared_ptr<CHbaList> ports;        // to visit, from its current position on
  std::shared_ptr<CHbaList> destination;  // takes what could be read
  std::shared_ptr<CHbaList> slow;         // takes what could not; null: dropped
  std::shared_ptr<Answers> answers;       // takes what was asked; null: dropped
  bool details = false;                   // ports of this host are also asked for what their record lacks
};

// Where the workers of a pool find their cycle's block. Workers live longer than cycles, and a killed cycle may
// leave one inside a slow call: a worker takes the block anew on every wake-up and keeps it alive for that job.
//
// Thread safety: internally locked; the lock is a leaf.
// Ownership: shared by the owner of the pool and its workers; it and they share the lists.
class PortDiscoveryParams {
 public:
  // Called while every worker of the pool is idle. Workers of a killed cycle keep the block that they took.
  void Set(std::shared_ptr<CHbaList> ports, std::shared_ptr<CHbaList> destination,
           std::shared_ptr<CHbaList> slow, std::shared_ptr<Answers> answers = nullptr, bool details = false)
      EXCLUDES(m_Lock);

  // Lets go of the lists; workers that still use them keep them.
  void Clear() EXCLUDES(m_Lock);

  // Null when there is nothing to work on.
  std::shared_ptr<const PortDiscoveryBlock> Get() const EXCLUDES(m_Lock);

 private:
  void Replace(std::shared_ptr<const PortDiscoveryBlock> block) EXCLUDES(m_Lock);

  mutable CZylThreadLock m_Lock;
  std::shared_ptr<const PortDiscoveryBlock> m_Block GUARDED_BY(m_Lock);
};

// Visits ports until there is none left or the worker is no longer enabled.
void VisitPorts(CZylTpThread& thread, const PortDiscoveryBlock& block);

// A worker's procedure; `params` is a PortDiscoveryParams. Null ends the worker at once.
void PortDiscoveryThreadProc(CZylTpThread* thread, void* params);

#endif  // INBAND_PORTDISCOVERY_H_

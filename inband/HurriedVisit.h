// The visits of a cycle that somebody waits for: on one thread that begins at once, where the workers of a pool
// look for their signal in slices. Reads of this host take turns anyway.
//
// Thread safety: for the thread that made it. Ownership: the thread shares the block and what else it needs,
// and may outlive the object, inside a provider call.
#ifndef INBAND_HURRIEDVISIT_H_
#define INBAND_HURRIEDVISIT_H_

#include <memory>

#include "inband/PortDiscovery.h"
#include "inband/StopQuery.h"

class HurriedVisit {
 public:
  // Begins; without a thread to be had it has ended at once.
  explicit HurriedVisit(std::shared_ptr<const PortDiscoveryBlock> block);
  // Waits until all ports have been visited, or `stopped` says so: then the thread is left to itself.
  void Await(const StopQuery& stopped);

 private:
  struct Visitor {
    CZylTpThread thread;
    std::shared_ptr<const PortDiscoveryBlock> block;
  };
  static void* Run(void* start);

  const std::shared_ptr<Visitor> m_Visitor;
};

#endif  // INBAND_HURRIEDVISIT_H_

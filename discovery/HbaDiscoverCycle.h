// One in-band cycle, from the look at the local boards to the callback.
//
// Thread safety: Run is the main in-band thread's; the rest may be called from any thread.
// Ownership: the parts outlive the object. Lists and the workers' parameters are shared with the workers, which
// may outlive a cycle.
#ifndef DISCOVERY_HBADISCOVERCYCLE_H_
#define DISCOVERY_HBADISCOVERCYCLE_H_

#include <memory>

#include "discovery/Parts.h"
#include "inband/PortDiscovery.h"
#include "thread/zyl_thread_pool.h"

class HbaDiscoverCycle {
 public:
  explicit HbaDiscoverCycle(Parts& parts)
      : m_Parts(parts), m_WorkerParams(std::make_shared<PortDiscoveryParams>()) {}

  // Runs a cycle, a full one when `full` is not 0; nothing when one runs already or discovery stops.
  void DoDiscoveryCycle(int full);
  // Lets the workers go, to end by themselves.
  void StopWorkers() { m_PortPool.TerminateThreadsImmediate(); }
  // Drops the lists that the workers share.
  void ForgetLists() { m_WorkerParams->Clear(); }

 private:
  // What one cycle works on.
  struct Cycle;
  enum class CycleEnd;

  bool EnterCycle();
  CycleEnd RunCycle(Cycle& cycle);
  CycleEnd TryCycle(Cycle& cycle);
  void BeginKind(Cycle& cycle);
  // -1: the cycle is to be skipped.
  int CollectPorts(Cycle& cycle);
  void VisitPorts(Cycle& cycle);
  void VisitPortsAtOnce(const Cycle& cycle);
  void AwaitWorkers(const Cycle& cycle);
  void IntermediateUpdate(const Cycle& cycle);
  CycleEnd FinishLiteCycle(Cycle& cycle);
  void SkipCycle();
  void StopCycle(const Cycle& cycle);
  int AwaitOob(int changed);
  void ReportCycle(int changed, bool forced);
  void EndCycle(const Cycle& cycle);

  Parts& m_Parts;
  CZylThreadPool m_PortPool;                                  // internally locked
  const std::shared_ptr<PortDiscoveryParams> m_WorkerParams;  // internally locked
  // Lite cycles since the last full one; also the cycle's discovery mark. Main thread only.
  unsigned int m_LiteCycleCount = 0;
};

#endif  // DISCOVERY_HBADISCOVERCYCLE_H_

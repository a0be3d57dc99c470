// Directed discovery: one known port is read again on request, on a thread of its own. No cycle begins
// meanwhile, and a running one ends first, so that neither overtakes the other.
//
// Thread safety: every call may be made from any thread, StartThread and Stop by one at a time.
// Ownership: the parts outlive the threads, but for one whose provider call does not return: it is left to
// itself, shares its request, and finds on its return that its refresh is over.
#ifndef DISCOVERY_DIRECTEDDISCOVERY_H_
#define DISCOVERY_DIRECTEDDISCOVERY_H_

#include <memory>
#include <vector>

#include "discovery/Parts.h"
#include "rmapi/rmapi.h"
#include "thread/SharedSlot.h"
#include "thread/zyl_thread.h"
#include "thread/zyl_thread_pool.h"

class DirectedDiscovery {
 public:
  explicit DirectedDiscovery(Parts& parts) : m_Parts(parts) {}

  // Has another thread take the requests from now on; the older ones stay idle. Without a thread requests are
  // refused.
  void StartThread() EXCLUDES(m_Lock);
  // Requests are refused from now on. Does not wait.
  void AskToStop() EXCLUDES(m_Lock);
  // Joins the threads, and waits 5 seconds at most for a refresh that is inside a provider call.
  void Stop() EXCLUDES(m_Lock);
  // As Stop, without a limit.
  void Join() EXCLUDES(m_Lock);

  // `what` is a sum of 1 attributes, 2 targets, 4 virtual ports; 0 is all. 1 when the thread took the request,
  // 0 when it is busy or the port is not known.
  int Update(const HBA_NAME& wwpn, unsigned int what);

 private:
  // A thread and the request that it works on.
  struct Refresher {
    CZylTpThread thread;
    CZylThreadLock lock;  // held for the look into the current list
    bool pending GUARDED_BY(lock) = false;
    HBA_NAME wwpn GUARDED_BY(lock){};
    unsigned int what GUARDED_BY(lock) = 0xFFFFFFFFU;
  };
  // What a thread starts with.
  struct Start {
    DirectedDiscovery* discovery;
    std::shared_ptr<Refresher> refresher;
  };

  std::vector<std::shared_ptr<Refresher>> TakeThreads() EXCLUDES(m_Lock);
  static void* DirectedDiscoveryThreadStartup(void* start);
  void DirectedDiscoveryThreadProc(Refresher& refresher);
  bool EnterRefresh(const Refresher& refresher);
  void RefreshPort(CZylTpThread& thread, const HBA_NAME& wwpn, unsigned int what, int* changed);

  Parts& m_Parts;
  SharedSlot<Refresher> m_Taker;  // takes the requests; null: none
  CZylThreadLock m_Lock;          // held for a moment; a thread is only asked to stop under it
  std::vector<std::shared_ptr<Refresher>> m_Threads GUARDED_BY(m_Lock);  // the taker and its predecessors
};

#endif  // DISCOVERY_DIRECTEDDISCOVERY_H_

// The discovery controller: the exported calls' face over its parts, and the main in-band thread, which decides
// when a cycle runs.
//
// One per process. The object is itself the main in-band discovery thread.
//
// Thread safety: internally locked; every public call may be made from any thread, also from the application's
// callback. Inside a callback no call waits for a thread of ours: requests are left behind and carried out
// later. Outside, none waits for a provider call but one that the in-band or out-of-band main thread itself is
// in. Lock order: lifecycle lock, then as the parts say.
// Ownership: lists are shared-owned; whoever copied a pointer keeps its list alive, also past Terminate.
#ifndef DISCOVERY_HBADISCOVER_H_
#define DISCOVERY_HBADISCOVER_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include "discovery/CycleRequests.h"
#include "discovery/DirectedDiscovery.h"
#include "discovery/HbaDiscoverCycle.h"
#include "discovery/Parts.h"
#include "thread/zyl_thread.h"

class CHbaDiscover : public CZylThread {
 public:
  // Reads the settings and opens the log.
  CHbaDiscover();
  ~CHbaDiscover() override;
  CHbaDiscover(const CHbaDiscover&) = delete;
  CHbaDiscover& operator=(const CHbaDiscover&) = delete;

  // Intervals in seconds; see HBADisc_StartupEx.
  void Startup(unsigned int interval, unsigned int oobInterval, int localOnly) EXCLUDES(m_LifecycleLock) {
    Startup(interval, oobInterval, localOnly, false);
  }
  // See HBADisc_StartupForOneLook.
  void StartupForOneLook(int localOnly) EXCLUDES(m_LifecycleLock);
  // Does nothing unless started and enabled, and nothing inside a callback, whose thread it would have to join.
  void Terminate() EXCLUDES(m_LifecycleLock);
  void PauseDiscovery();
  void ChangeDiscoveryInterval(unsigned int seconds);
  void ChangeOOBDiscoveryInterval(unsigned int seconds);

  int StartDiscoveryCycle() { return m_Requests.StartDiscoveryCycle(); }
  void KillDiscoveryCycle(int giveUp) { m_Requests.KillDiscoveryCycle(giveUp); }
  int InDiscoveryCycle() const { return m_Parts.state.InCycle() ? 1 : 0; }
  int DirectedDiscoveryUpdate(const HBA_NAME& wwpn, unsigned int what) { return m_Directed.Update(wwpn, what); }
  void RegisterCallBack(DiscoCallBack callback, unsigned int eventMask, void* context) {
    m_Parts.callback.Register(callback, eventMask, context);
  }
  // True on a thread that runs the application's callback while `thread` may be waiting for that callback to
  // end: in a control call, or in a stop.
  bool MayBeAwaitedBy(std::thread::id thread) const;

  bool WaitForFirstPicture(std::chrono::milliseconds limit);

  const CurrentPicture& Picture() const { return m_Parts.picture; }
  KeptPicture& Kept() { return m_Parts.kept; }
  const Answers& Asked() const { return *m_Parts.answers; }
  RemoteSide& RemoteHosts() { return m_Parts.remote; }

 private:
  void Startup(unsigned int interval, unsigned int oobInterval, int localOnly, bool hurried)
      EXCLUDES(m_LifecycleLock);
  bool StartLocked(unsigned int interval, unsigned int oobInterval, int localOnly) REQUIRES(m_LifecycleLock);
  bool TryStart(unsigned int interval, unsigned int oobInterval, int localOnly) REQUIRES(m_LifecycleLock);
  void StopLocked() REQUIRES(m_LifecycleLock);
  static void* DiscoveryThread(void* self);
  int DiscoveryProc();

  CZylThreadLock m_LifecycleLock;  // held for the whole of a start or stop
  Parts m_Parts;
  CycleRequests m_Requests{m_Parts};
  HbaDiscoverCycle m_Cycle{m_Parts};
  DirectedDiscovery m_Directed{m_Parts};
  // Seconds until Startup, milliseconds afterwards; 0: only forced cycles. Atomic: read by the main thread.
  std::atomic<std::uint32_t> m_Interval{90};
};

#endif  // DISCOVERY_HBADISCOVER_H_

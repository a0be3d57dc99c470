// The discovery controller: decides when a cycle runs, of which kind, and tells the application.
//
// One per process. The object is itself the main in-band discovery thread.
//
// Thread safety: internally locked; every public call may be made from any thread, also from the application's
// callback. Inside a callback no call waits for a thread of ours: requests are left behind and carried out
// later. Outside, none waits for a provider call but one that the in-band or out-of-band main thread itself is
// in. Ownership: lists are shared-owned; whoever copied a pointer keeps its list alive, also past Terminate.
// Lock order: lifecycle lock, force lock, callback lock, current list, other lists. The cycle lock and the
// locks of the slots, of the registration, of the control calls and of the kill count are held for a moment;
// the kill lock is taken inside the cycle lock, nothing else inside any of these.
#ifndef DISCOVERY_HBADISCOVER_H_
#define DISCOVERY_HBADISCOVER_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "inband/PortDiscovery.h"
#include "inband/SlowHbaDiscover.h"
#include "model/DiscoveryOwner.h"
#include "model/HbaList.h"
#include "model/Systems.h"
#include "oob/OobHbaDiscover.h"
#include "thread/SharedSlot.h"
#include "thread/zyl_thread.h"
#include "thread/zyl_thread_pool.h"

class CPortInfo;

// Bits of the state word.
enum DiscoState : std::uint32_t {
  kStateEnabled = 0x01,        // periodic cycles run
  kStateStarted = 0x02,        // between Startup and Terminate
  kStateInCycle = 0x04,        // set by the cycle, under the cycle lock
  kStateKillRequested = 0x08,  // the running cycle is to stop
  kStateForced = 0x10,         // a full cycle was asked for, or is running
};

// Bits of the event mask and of the reason word.
enum DiscoReason : unsigned int {
  kReasonEveryCycle = 0x01,
  kReasonForced = 0x02,
  kReasonChanged = 0x04,
  kReasonDirected = 0x08,
  kReasonIntermediate = 0x10,
};

using DiscoCallBack = void (*)(unsigned int reason, void* context);

class CHbaDiscover : public CZylThread, private DiscoveryOwner {
 public:
  // Reads the settings and opens the log.
  CHbaDiscover();
  ~CHbaDiscover() override;
  CHbaDiscover(const CHbaDiscover&) = delete;
  CHbaDiscover& operator=(const CHbaDiscover&) = delete;

  // Intervals in seconds; see HBADisc_StartupEx.
  void Startup(unsigned int interval, unsigned int oobInterval, int localOnly) EXCLUDES(m_LifecycleLock);
  // Does nothing unless started and enabled, and nothing inside a callback, whose thread it would have to join.
  void Terminate() EXCLUDES(m_LifecycleLock);
  void PauseDiscovery();
  int StartDiscoveryCycle() EXCLUDES(m_ForceLock);
  // Waits until the running cycle has stopped, at most about 10 seconds when `giveUp` is not 0.
  void KillDiscoveryCycle(int giveUp);
  bool IsStarted() const { return (m_State.load() & kStateStarted) != 0; }
  int InDiscoveryCycle() const { return (m_State.load() & kStateInCycle) != 0 ? 1 : 0; }
  void ChangeDiscoveryInterval(unsigned int seconds);
  void ChangeOOBDiscoveryInterval(unsigned int seconds);
  void RegisterCallBack(DiscoCallBack callback, unsigned int eventMask, void* context)
      EXCLUDES(m_RegistrationLock);
  unsigned int GetIntermediateCBInterval() const override { return kIntermediateInterval; }

  // Calls the application back as its event mask asks for it; never two threads at once.
  void DoCallBack(int changed, int forced, int intermediate) override EXCLUDES(m_CallbackLock);
  // True on a thread of ours while it runs the application's callback.
  static bool InCallBack();
  // True while that thread is inside a control call, which may be waiting for a callback to end.
  bool IsInControlCall(std::thread::id thread) const EXCLUDES(m_ControlLock);

  // Has one known port read again: `what` is a sum of 1 attributes, 2 targets, 4 virtual ports; 0 is all. 1
  // when the directed thread took the request, 0 when it is busy or the port is not known.
  int DirectedDiscoveryUpdate(const HBA_NAME& wwpn, unsigned int what);

  // Remote hosts, as the calls of the same names in COOBHbaDiscover answer. Without one: adding is 1, removing
  // 0.
  int AddOOBHost(const char* host);
  int RemoveOOBHost(const char* host);
  int AddCimHost(const CIMCredentials* credentials);
  int RemoveCimHost(const CIMCredentials* credentials);

  // Snapshots; null when there is no current list.
  std::shared_ptr<CHbaList> GetCurrentHbaList() const;
  std::shared_ptr<CSystemList> GetCurrentSystemList() const;
  // Takes over the names of an iSCSI port from the current list; 0 when the port is unknown or another kind.
  int GetiSCSINames(const HBA_NAME& wwpn, CDiscISCSINames* names) const;

  // Empties a slot once nobody is inside its list any more; the list lives on while somebody holds it.
  static void FreeHbaList(SharedSlot<CHbaList>& slot);
  static void FreeSystemList(SharedSlot<CSystemList>& slot);

 protected:
  // The cycle's list of ports to visit. Overridable, so that a test can refuse a cycle.
  virtual int BuildPortsList(CPortInfo& ports, const std::shared_ptr<CHbaList>& current,
                             const std::shared_ptr<CHbaList>& fresh, int lite, unsigned int mark);

 private:
  struct Registration {
    DiscoCallBack callback = nullptr;
    unsigned int eventMask = 0;
    void* context = nullptr;
  };
  // Notes that this thread is inside a control call that may wait. Inside a callback none does.
  class ControlCall {
   public:
    explicit ControlCall(CHbaDiscover& controller);
    ~ControlCall();
    ControlCall(const ControlCall&) = delete;
    ControlCall& operator=(const ControlCall&) = delete;

   private:
    CHbaDiscover* const m_Controller;
    const std::thread::id m_Thread;
    ControlCall* m_Next = nullptr;  // guarded by the controller's m_ControlLock

    friend class CHbaDiscover;
  };
  // What one cycle works on.
  struct Cycle;
  enum class CycleEnd;
  // A directed thread with its request.
  struct Directed;
  struct DirectedStart;

  // What the discoverers below ask.
  std::shared_ptr<CHbaList> GetCurrentList() const override { return m_CurrentList.Get(); }
  unsigned int GetMaxSlowThreads() const override { return kMaxSlowThreads; }
  bool IsFullDiscoveryOnly() const override { return m_FullDiscoveryOnly; }
  bool IsInCallBack() const override { return InCallBack(); }
  bool IsFirstCyclePending() const override { return m_FirstCyclePending.load(); }

  void OpenLogFile();
  bool StartLocked(unsigned int interval, unsigned int oobInterval, int localOnly) REQUIRES(m_LifecycleLock);
  bool TryStart(unsigned int interval, unsigned int oobInterval, int localOnly) REQUIRES(m_LifecycleLock);
  void StartOob(unsigned int oobInterval) REQUIRES(m_LifecycleLock);
  void StopOob() REQUIRES(m_LifecycleLock);
  void StopLocked() REQUIRES(m_LifecycleLock);
  bool LeaveStartedState();
  static void* DiscoveryThread(void* self);
  int DiscoveryProc();

  void DoDiscoveryCycle(int full) EXCLUDES(m_CycleLock);
  CycleEnd RunCycle(Cycle& cycle);
  CycleEnd TryCycle(Cycle& cycle);
  bool EnterCycle() EXCLUDES(m_CycleLock);
  bool BeginCycle() REQUIRES(m_CycleLock) EXCLUDES(m_KillLock);
  std::uint32_t LeaveCycle(std::uint32_t bits) EXCLUDES(m_KillLock);
  void BeginKind(Cycle& cycle);
  // Results of BuildPortsList: -1 skip the cycle, else go on.
  int CollectPorts(Cycle& cycle);
  void SkipCycle();
  void VisitPorts(Cycle& cycle);
  void AwaitWorkers(const Cycle& cycle);
  void IntermediateUpdate(const Cycle& cycle);
  int AwaitOob(int changed);
  void StopCycle(const Cycle& cycle);
  CycleEnd FinishLiteCycle(Cycle& cycle);
  int UpdateDiscoveryLists();
  void ReportCycle(int changed, bool forced);
  void EndCycle(const Cycle& cycle);
  static int RemoveUnMarkedEntries(CHbaList& list, unsigned int mark) REQUIRES(list);

  // A kill, or a shut-down that has given up waiting for one.
  bool StopRequested();
  bool InForcedCycle() const;
  void AwaitCycleEnd(int giveUp, unsigned int cycle);
  bool RequestKill(unsigned int* cycle) EXCLUDES(m_KillLock);
  void DropKillWaiter(unsigned int cycle) EXCLUDES(m_KillLock);
  void DropUnawaitedKill() EXCLUDES(m_KillLock);
  int ForceCycleLocked() REQUIRES(m_ForceLock);
  void HoldCycles(bool hold) REQUIRES(m_ForceLock) EXCLUDES(m_CycleLock);
  bool AlreadyForced(const COOBHbaDiscover* oob) const;
  void KillForForcedCycle(COOBHbaDiscover* oob);
  int RequestForcedCycle();
  void AllowCallBacks(bool allow) EXCLUDES(m_CallbackLock);
  Registration GetRegistration() const EXCLUDES(m_RegistrationLock);
  void CallBack(const Registration& registration, unsigned int reason) REQUIRES(m_CallbackLock);

  std::shared_ptr<CHbaList> GetSlowList() const;
  void PauseSlow(int pause);
  void ResetSlow();

  void StartDirectedThread() REQUIRES(m_LifecycleLock);
  void AskDirectedThreadsToStop() REQUIRES(m_LifecycleLock);
  void StopDirectedThreads() REQUIRES(m_LifecycleLock);
  void JoinDirectedThreads() REQUIRES(m_LifecycleLock);
  static void* DirectedDiscoveryThreadStartup(void* block);
  void DirectedDiscoveryThreadProc(Directed& directed);
  bool EnterRefresh(Directed& directed) EXCLUDES(m_CycleLock);
  bool ClaimRefresh(Directed& directed) EXCLUDES(m_CycleLock);
  bool IsRefreshing(const Directed& directed) const EXCLUDES(m_CycleLock);
  void LeaveRefresh(const Directed& directed) EXCLUDES(m_CycleLock);
  void RefreshPort(CZylTpThread& thread, const HBA_NAME& wwpn, unsigned int what, int* changed);
  void DoDirectedCallBack(const Directed& directed, const HBA_NAME& wwpn, int changed) EXCLUDES(m_CallbackLock);

  static constexpr unsigned int kIntermediateInterval = 8;  // seconds
  static constexpr unsigned int kMaxSlowThreads = 15;

  CZylThreadLock m_LifecycleLock ACQUIRED_BEFORE(m_ForceLock);
  CZylThreadLock m_ForceLock ACQUIRED_BEFORE(m_CallbackLock);  // one StartDiscoveryCycle at a time
  CZylThreadLock m_CallbackLock ACQUIRED_BEFORE(m_CycleLock);
  mutable CZylThreadLock m_CycleLock ACQUIRED_BEFORE(m_KillLock);  // over the decision to begin
  // The refresh that runs, or waits for the running cycle to end: no cycle begins meanwhile. Null: none.
  const Directed* m_Refresh GUARDED_BY(m_CycleLock) = nullptr;
  bool m_Forcing GUARDED_BY(m_CycleLock) = false;  // a forced cycle is being asked for: none begins meanwhile
  bool m_CallBacksAllowed GUARDED_BY(m_CallbackLock) = false;

  mutable CZylThreadLock m_RegistrationLock;
  Registration m_Registration GUARDED_BY(m_RegistrationLock);

  mutable CZylThreadLock m_ControlLock;
  ControlCall* m_ControlCalls GUARDED_BY(m_ControlLock) = nullptr;  // a chain; the calls are on their stacks

  CZylThreadLock m_KillLock;
  unsigned int m_KillWaiters GUARDED_BY(m_KillLock) = 0;
  std::atomic<unsigned int> m_CycleNumber{0};  // of the running cycle, or of the last one

  SharedSlot<CHbaList> m_CurrentList;  // merged result of all cycles
  SharedSlot<CHbaList> m_NewList;      // what a full cycle builds

  SharedSlot<CSlowHbaDiscover> m_SlowDiscoverer;  // made by the first Startup; dropped by Terminate
  SharedSlot<COOBHbaDiscover> m_OobDiscoverer;    // from Startup, unless local-only or not wanted, to Terminate
  SharedSlot<Directed> m_Directed;                // the thread that takes requests
  std::vector<std::shared_ptr<Directed>> m_DirectedThreads
      GUARDED_BY(m_LifecycleLock);  // it and its predecessors

  CZylThreadPool m_PortPool;  // internally locked
  // Shared with the workers, which may outlive a cycle. Constant after construction, internally locked.
  const std::shared_ptr<PortDiscoveryParams> m_WorkerParams;

  // Atomic: read and written by the application's threads and by the discovery threads, each on its own.
  std::atomic<std::uint32_t> m_State{0};
  std::atomic<std::uint32_t> m_Interval{
      90};  // seconds until Startup, milliseconds afterwards; 0: only forced cycles
  std::atomic<bool> m_FirstCyclePending{true};  // until a cycle has ended, completed or stopped

  // Main thread only.
  unsigned int m_LiteCycleCount = 0;  // lite cycles since the last full one; also the cycle's discovery mark

  // Constant after construction.
  unsigned int m_MaxPortThreads = 15;
  bool m_FullDiscoveryOnly = false;
};

#endif  // DISCOVERY_HBADISCOVER_H_

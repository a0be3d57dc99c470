// Out-of-band discovery: asks the remote hosts of the hosts file for their ports, periodically or on demand,
// and merges what they answer into the current list. Also keeps the hosts file.
//
// Thread safety: internally locked; every public call may be made from any thread. A call on the out-of-band
// thread or inside the application's callback never waits for a cycle: it leaves its request, and the cycle
// ends after the callback. Lock order: a host file is locked with no list locked; the current list comes before
// the cycle's.
//
// Ownership: held by shared_ptr; whoever is inside a call keeps it alive. The owner outlives it. Its destructor
// stops and joins the thread, so the thread itself never holds the last reference. Workers that a killed cycle
// leaves inside a call share all they need.
#ifndef OOB_OOBHBADISCOVER_H_
#define OOB_OOBHBADISCOVER_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "config/DiscConfig.h"
#include "model/DiscoveryOwner.h"
#include "model/HbaEntry.h"
#include "oob/HostFile.h"
#include "oob/OobCycle.h"
#include "thread/zyl_thread.h"
#include "thread/zyl_thread_pool.h"

class COOBHbaDiscover final : public CZylThread {
 public:
  static constexpr std::chrono::seconds kCallLimit{10};

  // A null owner is enough for a controller that is never started. `callLimit` is how long a remote call may
  // take.
  explicit COOBHbaDiscover(DiscoveryOwner* owner, const char* settingsPath = kDiscConfigPath,
                           std::chrono::milliseconds callLimit = kCallLimit);
  ~COOBHbaDiscover() override;

  // ---- Life cycle; intervals in seconds ----

  // Starts the thread, whose first cycle is a forced one. 0: only forced cycles; 1 to 4 count as 90. Nothing
  // when it runs already, with 0xFFFFFFFF, and with a management port below 1024.
  void Startup(unsigned int interval);
  // Ends a running cycle, without limit, and joins the thread.
  void Terminate();
  // Ends a running cycle; only StartDiscoveryCycle brings periodic ones back.
  void PauseDiscovery();
  // 0 pauses and keeps the interval; 1 to 4 keep it too.
  void ChangeDiscoveryInterval(unsigned int seconds);
  // 1: a forced cycle starts. 0: not running, or a running cycle has become the forced one.
  int StartDiscoveryCycle();
  // Waits until the running cycle has stopped, at most about 5 seconds when `giveUp` is not 0.
  void KillDiscoveryCycle(int giveUp) EXCLUDES(m_KillLock);

  // ---- State ----

  // Both the state word (OobState); 0 when the thread does not run.
  std::uint32_t getOOBThreadState() const { return m_Shared->state.load(); }
  std::uint32_t GetDiscoveryState() const { return m_Shared->state.load(); }
  // 1 when the last cycle, or the running one so far, has changed the current list.
  int DiscoveryListChanged() const { return m_ListChanged.load(); }
  // What it was, in one step.
  int ClearListChanged() { return m_ListChanged.exchange(0); }
  unsigned short GetIpPortNumber() const { return m_OobPort.load(); }

  // ---- Hosts ----

  // What the calls return.
  static constexpr int kAdded = 0;
  static constexpr int kRefused = -1;  // bad text or port, not running, not resolvable, no memory
  static constexpr int kCannotWrite = -2;
  static constexpr int kDuplicate = -3;
  static constexpr int kLocalHost = -4;
  static constexpr int kNoAnswer = 2;  // not queried, no port, or no host name

  // Queries a host and writes it into the hosts file. Long work is done on the caller's thread, without a lock.
  int AddOOBHost(const char* host);
  // 1: a line was removed.
  int RemoveOOBHost(const char* host);
  int RemoveCimHost(const CIMCredentials* credentials);
  // CIM hosts are written by the management application.
  static int AddCimHost(const CIMCredentials* /*credentials*/) { return kRefused; }

  // 1 when the file names that host. A last line without newline gets one.
  int CheckDuplicateOOBHostEntry(const char* host) {
    return host != nullptr && m_HostFile.HasHost(host) ? 1 : 0;
  }
  int CheckDuplicateCIMHostEntry(const char* address) {
    return address != nullptr && m_CimFile.HasHost(address) ? 1 : 0;
  }

  // Fill the running cycle's addresses from a file; the second also brings the provider's table of CIM hosts up
  // to date.
  void ProcessHostsFile();
  void ProcessAllHostsFile() { ProcessHostsFile(); }
  void ProcessCimHostsFile();

  // The link status of a remote port, low byte physical, next byte function; 0 when it cannot be read. A null
  // `thread` is never cut short.
  static unsigned int GetPortLinkStatus(CHbaEntry* entry, CZylTpThread* thread);

 private:
  bool CreateThread();
  static void* DiscoveryThread(void* self);
  void DiscoveryProc();
  void RunCycle();
  static void KeepCache();
  void AwaitNextCycle();
  bool IsOwnThread() const { return m_ThreadId.load() == std::this_thread::get_id(); }
  // Whether the end of a cycle may depend on the calling thread.
  bool MayNotWait() const { return IsOwnThread() || (m_Owner != nullptr && m_Owner->IsInCallBack()); }

  void DoOOBDiscovery();
  bool EnterCycle();
  void EndCycle() EXCLUDES(m_KillLock);
  void VisitHosts(const std::shared_ptr<OobCycle>& cycle, unsigned int hosts);
  bool AskSilentHosts(const std::shared_ptr<OobCycle>& cycle);
  void AwaitWorkers(OobCycle& cycle, bool silentAsked);
  void StopWorkers();
  void IntermediateUpdate(OobCycle& cycle);
  bool StopForced();
  void MergeFound(OobCycle& cycle);
  void ReportCycle(OobCycle& cycle);
  int RemoveUnDiscOOBEntries(OobCycle& cycle);

  bool StopRequested() const { return (m_Shared->state.load() & kOobStopRequested) != 0 || Terminated() != 0; }
  bool HasState(std::uint32_t bits) const { return (m_Shared->state.load() & bits) != 0; }
  // Sets and clears bits of a running controller, in one step; false, and nothing, when it does not run.
  bool ChangeState(std::uint32_t clear, std::uint32_t set) { return ChangeStateIf(kOobRunning, clear, set); }
  bool ChangeStateIf(std::uint32_t present, std::uint32_t clear, std::uint32_t set);
  bool RequestKill(unsigned int* ended) EXCLUDES(m_KillLock);
  void AwaitCycleEnd(int giveUp, unsigned int ended) const;
  void DropKillWaiter(unsigned int ended) EXCLUDES(m_KillLock);

  void GetOobSocketNumber();
  void AddToCycle(const _RM_IP_INFO& address, const char* host);
  void TellUnusableHosts(std::set<std::string> hosts) EXCLUDES(m_ToldLock);
  void ForgetHost(const _RM_IP_INFO& address);

  DiscoveryOwner* const m_Owner;
  const std::string m_SettingsPath;
  const std::shared_ptr<OobShared> m_Shared;    // shared with the workers
  const std::shared_ptr<OobCycleSlot> m_Cycle;  // shared with the workers, internally locked
  CZylThreadPool m_ThreadPool;                  // internally locked
  CZylThreadPool m_SilentPool;                  // asks silent hosts; internally locked
  std::vector<_RM_IP_INFO> m_SilentRound;       // whom it asks, or asked last; main thread only
  HostFile m_HostFile;                          // internally locked
  HostFile m_CimFile;                           // internally locked

  // Atomic: read by the main thread while callers change them.
  std::atomic<std::uint32_t> m_Interval{90};  // seconds
  std::atomic<unsigned short> m_OobPort{23333};
  std::atomic<int> m_ListChanged{0};
  std::atomic<std::thread::id> m_ThreadId;

  CZylThreadLock m_KillLock;
  unsigned int m_KillWaiters GUARDED_BY(m_KillLock) = 0;
  std::atomic<unsigned int> m_CyclesEnded{0};
  CZylThreadLock m_ToldLock;
  std::set<std::string> m_ToldHosts GUARDED_BY(m_ToldLock);  // hosts of the file that the log calls unusable
  std::atomic<bool> m_ForceNext{false};  // a forced cycle was asked for while the running one was being stopped
};

#endif  // OOB_OOBHBADISCOVER_H_

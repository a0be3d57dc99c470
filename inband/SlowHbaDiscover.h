// Slow discovery: ports that did not answer in a cycle are tried again on a thread of their own, at a longer
// interval, so that they delay nobody.
//
// Thread safety: internally locked; every public call may be made from any thread.
// Ownership: shared by the controller and by its own running thread, so that a controller may forget it while a
// cycle of it still ends. The owner given to Startup outlives the thread.
#ifndef INBAND_SLOWHBADISCOVER_H_
#define INBAND_SLOWHBADISCOVER_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "inband/PortDiscovery.h"
#include "model/DiscoveryOwner.h"
#include "model/HbaList.h"
#include "thread/SharedSlot.h"
#include "thread/zyl_thread.h"
#include "thread/zyl_thread_pool.h"

class CSlowHbaDiscover : public CZylThread, public std::enable_shared_from_this<CSlowHbaDiscover> {
 public:
  static constexpr char kSettingsPath[] = "/etc/varnix_disc.conf";

  // Reads the interval from a settings file, if there is one.
  explicit CSlowHbaDiscover(const char* settingsPath = kSettingsPath);
  ~CSlowHbaDiscover() override = default;

  // Starts the thread with an empty slow list; nothing when it runs already.
  void Startup(DiscoveryOwner* owner);
  // 1: stopped. 0: a slow cycle was cut short and ends by itself; it holds this object until then.
  int Terminate();
  // Not 0: stops a running cycle and rests until Pause(0). Ignored while the thread does not run.
  void Pause(int pause);
  // Forgets the slow list; waits until the thread has done so, unless it ends or is the caller.
  void Reset();
  // The interval of in-band cycles in seconds; slow cycles run at 2.5 times that. 0 pauses.
  void ChangeDiscoveryInterval(unsigned int mainInterval);

  // Null unless the thread was started, and after a reset that found no memory. A reset replaces the list;
  // whoever holds the old one keeps it alive.
  std::shared_ptr<CHbaList> GetHbaList() const { return m_SlowList.Get(); }

  unsigned int GetInterval() const { return m_Interval.load(); }

 private:
  enum State : std::uint32_t {
    kRunning = 0x1,
    kResetRequested = 0x2,
    kPaused = 0x4,
    kInCycle = 0x8,
  };

  void ReadSettings(const char* path);
  static void* DiscoveryThread(void* start);
  void DiscoveryProc();
  std::uint64_t RunCycle();
  std::uint64_t ResetList();
  std::uint64_t RestPaused();
  std::uint64_t WaitAfter(std::uint64_t elapsed) const;

  void ProcessHbaList();
  bool EnterCycle();
  bool InCycle() const { return (m_State.load() & kInCycle) != 0 && Terminated() == 0; }
  std::shared_ptr<CHbaList> CopySlowList() const;
  void VisitPorts(const std::shared_ptr<CHbaList>& ports, const std::shared_ptr<CHbaList>& found);
  void MergeFound(CHbaList& found);
  bool ResetPending() const { return (m_State.load() & kResetRequested) != 0; }

  SharedSlot<CHbaList> m_SlowList;
  std::atomic<DiscoveryOwner*> m_Owner{nullptr};  // set before the thread is created
  std::atomic<bool> m_ThreadCreated{false};
  // Atomic: bits are set and cleared by the thread and by its controller.
  std::atomic<std::uint32_t> m_State{0};
  std::atomic<std::uint32_t> m_MinInterval{0xFFFFFFFF};  // seconds; this value: none configured
  std::atomic<std::uint32_t> m_Interval{240};            // seconds
  std::atomic<std::thread::id> m_ThreadId;
  const std::shared_ptr<PortDiscoveryParams> m_ThreadParams;  // shared with the workers, internally locked
  CZylThreadPool m_ThreadPool;                                // internally locked
};

#endif  // INBAND_SLOWHBADISCOVER_H_

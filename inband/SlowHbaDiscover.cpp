#include "inband/SlowHbaDiscover.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>

#include "config/FileDescriptor.h"
#include "log/DiscoveryLog.h"

namespace {

constexpr char kIntervalKey[] = "DISCO_SLOW_INTERVAL";
constexpr std::uint32_t kNoMinimum = 0xFFFFFFFF;
constexpr std::uint32_t kDefaultMinimum = 60;     // seconds
constexpr std::uint32_t kPausedInterval = 5;      // seconds
constexpr std::uint32_t kLeastBetweenCycles = 5;  // seconds from the end of a cycle to the next
constexpr unsigned int kForEver = 0xFFFFFFFF;
constexpr unsigned int kResetPoll = 150000;    // microseconds
constexpr unsigned int kResetSettle = 100000;  // microseconds
constexpr unsigned int kPoolSettle = 100000;   // microseconds

std::uint64_t MonotonicSeconds() {
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch())
          .count());
}

// A wait for WaitForSignal, which reads milliseconds as a signed number. Never none: an interval of 0 in the
// settings would keep a processor busy, and fill the log, until the first cycle has ended.
unsigned int WaitMilliseconds(std::uint64_t seconds) {
  constexpr std::uint64_t kMost = 0x7FFFFFFF / 1000;
  return seconds > kMost ? kForEver : static_cast<unsigned int>(std::max<std::uint64_t>(seconds, 1) * 1000);
}

// The number behind the colon of the line that answers for the key. Only what stands before the colon is
// compared, so a line whose key is the beginning of the wanted one answers too.
bool ParseInterval(const char* line, std::uint32_t* seconds) {
  const char* colon = std::strchr(line, ':');
  if (colon == nullptr) return false;
  const auto length = static_cast<std::size_t>(colon - line);
  if (std::strncmp(line, kIntervalKey, length) != 0) return false;
  *seconds = static_cast<std::uint32_t>(std::strtol(colon + 1, nullptr, 10));
  return true;
}

const char* SystemName(const CHbaEntry& port) {
  return port.GetHbaInfo()->hostName;
}

}  // namespace

CSlowHbaDiscover::CSlowHbaDiscover(const char* settingsPath)
    : m_ThreadParams(std::make_shared<PortDiscoveryParams>()) {
  ReadSettings(settingsPath);
}

void CSlowHbaDiscover::ReadSettings(const char* path) {
  const FileStream file = OpenForReading(path);
  if (file == nullptr) return;
  char line[256];
  std::uint32_t seconds = 0;
  while (std::fgets(line, sizeof line, file.get()) != nullptr) {
    if (!ParseInterval(line, &seconds)) continue;
    m_Interval = seconds;
    m_MinInterval = seconds;
    return;
  }
}

void CSlowHbaDiscover::Startup(DiscoveryOwner* owner) {
  if (m_State.load() != 0 || m_ThreadCreated.load()) return;
  disco_printf(kLogSlow, nullptr, "Slow discovery startup (interval = %d)",
               static_cast<int>(m_Interval.load()));
  m_Owner = owner;
  try {
    m_SlowList.Set(std::make_shared<CHbaList>(ListRank::kGathered));
    // The thread's own share of this object.
    auto share = std::make_unique<std::shared_ptr<CSlowHbaDiscover>>(shared_from_this());
    m_ThreadCreated = true;
    if (Create(DiscoveryThread, share.get(), 0, 0) != 0) {
      static_cast<void>(share.release());
      return;
    }
  } catch (const std::bad_alloc&) {
    // As when there is no thread to be had.
  }
  // Ports on a list that nobody tries again would be lost.
  m_ThreadCreated = false;
  m_SlowList.Set(nullptr);
}

int CSlowHbaDiscover::Terminate() {
  // A thread that was created counts as running: it may not have said so yet.
  if (!m_ThreadCreated.exchange(false)) return 1;
  // Paused first: no cycle begins once it is known whether one is running.
  m_State.fetch_or(kPaused);
  const std::uint32_t before = m_State.fetch_and(~static_cast<std::uint32_t>(kRunning | kInCycle));
  if ((before & kInCycle) != 0) {
    disco_printf(kLogSlow, nullptr, "Termination slow discovery while in cycle!");
    m_ThreadPool.TerminateThreadsImmediate();
    // Not joined: the thread ends by itself, with its own share of this object.
    CleanUp();
    return 0;
  }
  disco_printf(kLogSlow, nullptr, "Terminating slow discovery");
  m_ThreadPool.TerminateThreadsImmediate();
  CZylThread::Terminate();
  return 1;
}

void CSlowHbaDiscover::Pause(int pause) {
  if ((m_State.load() & kRunning) == 0) return;
  if (pause == 0) {
    m_State.fetch_and(~static_cast<std::uint32_t>(kPaused));
    return;
  }
  m_State.fetch_or(kPaused);
  m_State.fetch_and(~static_cast<std::uint32_t>(kInCycle));
}

void CSlowHbaDiscover::Reset() {
  if ((m_State.load() & kRunning) == 0) return;
  disco_printf(kLogSlow, nullptr, "Slow Discovery: reset");
  m_State.fetch_or(kResetRequested);
  m_State.fetch_and(~static_cast<std::uint32_t>(kInCycle));
  Signal();
  while (ResetPending()) {
    const bool served = (m_State.load() & kRunning) != 0 && Terminated() == 0;
    if (!served || m_ThreadId.load() == std::this_thread::get_id()) return;
    ZylSleep(kResetPoll);
  }
  disco_printf(kLogSlow, nullptr, "Slow Discovery: reset done");
}

void CSlowHbaDiscover::ChangeDiscoveryInterval(unsigned int mainInterval) {
  if (mainInterval == 0) {
    disco_printf(kLogSlow, nullptr, "Discovery interval = 0 - pausing slow discovery");
    m_Interval = kPausedInterval;
    Pause(1);
    return;
  }
  Pause(0);
  const std::uint32_t minimum = m_MinInterval.load() == kNoMinimum ? kDefaultMinimum : m_MinInterval.load();
  const std::uint32_t interval = std::max(2 * mainInterval + mainInterval / 2, minimum);
  m_Interval = interval;
  disco_printf(kLogSlow, nullptr, "New slow discovery interval = %d seconds", static_cast<int>(interval));
}

void* CSlowHbaDiscover::DiscoveryThread(void* start) {
  const std::unique_ptr<std::shared_ptr<CSlowHbaDiscover>> share(
      static_cast<std::shared_ptr<CSlowHbaDiscover>*>(start));
  (*share)->DiscoveryProc();
  return nullptr;
}

void CSlowHbaDiscover::DiscoveryProc() {
  m_ThreadId = std::this_thread::get_id();
  m_State.fetch_or(kRunning);
  disco_printf(kLogSlow, nullptr, "Slow discovery thread running");
  const DiscoveryOwner& owner = *m_Owner.load();
  std::uint64_t wait = m_Interval.load();
  while (Terminated() == 0) {
    // A request that came during a cycle's own pauses has used up its signal.
    if (!ResetPending()) WaitForSignal(owner.IsFullDiscoveryOnly() ? kForEver : WaitMilliseconds(wait));
    if (Terminated() != 0) break;
    if (ResetPending()) {
      wait = ResetList();
    } else if (owner.IsFirstCyclePending()) {
      disco_printf(kLogSlow, nullptr, "Slow Discovery thread: skipping - first cycle not complete");
    } else if (!owner.IsFullDiscoveryOnly()) {
      wait = RunCycle();
    }
  }
  m_SlowList.Set(nullptr);
  disco_printf(kLogSlow, nullptr, "Slow discovery thread terminated");
  m_State = 0;
}

// Runs a cycle unless paused; the seconds until the next.
std::uint64_t CSlowHbaDiscover::RunCycle() {
  if ((m_State.load() & kPaused) != 0) return RestPaused();
  const std::uint64_t begin = MonotonicSeconds();
  try {
    ProcessHbaList();
  } catch (const std::exception& failure) {
    disco_printf(kLogSlow, nullptr, "Slow discovery: cycle given up (%s)", failure.what());
    m_ThreadPool.TerminateThreadsImmediate();
    m_State.fetch_and(~static_cast<std::uint32_t>(kInCycle));
  }
  if (ResetPending()) return ResetList();
  if ((m_State.load() & kPaused) != 0) return RestPaused();
  return WaitAfter(MonotonicSeconds() - begin);
}

std::uint64_t CSlowHbaDiscover::ResetList() {
  disco_printf(kLogSlow, nullptr, "Slow Discovery thread: resetting list");
  m_SlowList.Set(nullptr);
  ZylSleep(kResetSettle);
  try {
    m_SlowList.Set(std::make_shared<CHbaList>(ListRank::kGathered));
  } catch (const std::bad_alloc&) {
    // The next cycle makes it; who asked for the reset does not wait for memory.
  }
  m_State.fetch_and(~static_cast<std::uint32_t>(kResetRequested));
  return m_Interval.load();
}

std::uint64_t CSlowHbaDiscover::RestPaused() {
  disco_printf(kLogSlow, nullptr, "Slow Discovery thread paused");
  return m_Interval.load();
}

// Cycles start an interval apart, with some seconds between the end of one and the start of the next.
std::uint64_t CSlowHbaDiscover::WaitAfter(std::uint64_t elapsed) const {
  const std::uint32_t interval = m_Interval.load();
  const bool early = elapsed <= interval - kLeastBetweenCycles;  // wraps for very short intervals: then always
  if (!early || elapsed > interval) return kLeastBetweenCycles;
  return std::max<std::uint64_t>(interval - elapsed, 1);
}

void CSlowHbaDiscover::ProcessHbaList() {
  if (!EnterCycle()) return;
  if (m_SlowList.Get() == nullptr) m_SlowList.Set(std::make_shared<CHbaList>(ListRank::kGathered));
  const std::shared_ptr<CHbaList> slow = m_SlowList.Get();
  disco_printf(kLogSlow, nullptr, "SLOW DISCOVERY CYCLE - PROCESSING SLOW LIST (%d)",
               static_cast<int>(slow->GetCount()));
  const unsigned int most = m_Owner.load()->GetMaxSlowThreads();
  disco_printf(kLogSlow, nullptr, "Slow Discovery: Adjusting thread count, m_MaxSlowDiscoThreads is %d",
               static_cast<int>(most));
  // Without the list's lock: shrinking joins workers, and in-band discovery needs the list meanwhile.
  m_ThreadPool.AdjustThreadCount(std::min(slow->GetCount(), most), PortDiscoveryThreadProc, m_ThreadParams, 0);
  ZylSleep(kPoolSettle);

  const std::shared_ptr<CHbaList> ports = CopySlowList();
  if (ports->GetCount() != 0) {
    const auto found = std::make_shared<CHbaList>(ListRank::kGathered);
    VisitPorts(ports, found);
    if (!InCycle()) {
      disco_printf(kLogSlow, nullptr, "Slow discovery cycle stopping pre-maturely!");
      m_ThreadPool.TerminateThreadsImmediate();
    } else if (found->GetCount() != 0) {
      MergeFound(*found);
    }
  }
  m_State.fetch_and(~static_cast<std::uint32_t>(kInCycle));
  disco_printf(kLogSlow, nullptr, "SLOW DISCOVERY PROCESS CYCLE DONE (%d)\n\n",
               static_cast<int>(slow->GetCount()));
}

// False when a pause or a reset came first: either would have to clear the bit again.
bool CSlowHbaDiscover::EnterCycle() {
  std::uint32_t state = m_State.load();
  do {
    if ((state & (kPaused | kResetRequested)) != 0) return false;
  } while (!m_State.compare_exchange_weak(state, state | kInCycle));
  return true;
}

std::shared_ptr<CHbaList> CSlowHbaDiscover::CopySlowList() const {
  const std::shared_ptr<CHbaList> slow = m_SlowList.Get();
  auto ports = std::make_shared<CHbaList>();
  HbaListGuard guard(*slow);
  HbaListGuard portsGuard(*ports);
  for (const CHbaEntry* port = slow->GetFirstEntry(); port != nullptr; port = slow->GetNextEntry()) {
    ports->AddEntry(port);
  }
  ports->SelectFirstEntry();
  return ports;
}

void CSlowHbaDiscover::VisitPorts(const std::shared_ptr<CHbaList>& ports,
                                  const std::shared_ptr<CHbaList>& found) {
  // Without a slow list a port that fails again is dropped by its worker; it is still on the list it came from.
  m_ThreadParams->Set(ports, found, nullptr, m_Owner.load()->GetAnswers());
  m_ThreadPool.EnableThreads();
  while (m_ThreadPool.AllThreadsIdle() == 0 && InCycle()) WaitForSignal(500);
  m_ThreadParams->Clear();
}

void CSlowHbaDiscover::MergeFound(CHbaList& found) {
  DiscoveryOwner& owner = *m_Owner.load();
  if (const std::shared_ptr<CHbaList> current = owner.GetCurrentList(); current != nullptr) {
    current->MergeLists(&found, 1, 0);
  }
  {
    const std::shared_ptr<CHbaList> slow = m_SlowList.Get();
    HbaListGuard guard(*slow);
    HbaListGuard foundGuard(found);
    for (CHbaEntry* port = found.GetFirstEntry(); port != nullptr && InCycle(); port = found.GetNextEntry()) {
      slow->RemoveEntry(port);
      disco_printf(kLogSlow, port->GetHbaInfo()->portWwn,
                   "Slow discovery: Merged with main discovery list (system: '%.32s')", SystemName(*port));
    }
  }
  if (!InCycle()) return;
  disco_printf(kLogSlow, nullptr, "Slow discovery: callback\n");
  owner.DoCallBack(1, 0, 0);
}

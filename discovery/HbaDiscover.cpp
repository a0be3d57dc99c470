#include "discovery/HbaDiscover.h"

#include <exception>

#include "config/DiscConfig.h"
#include "log/DiscoveryLog.h"
#include "rmapi/rmapi.h"

namespace {

constexpr unsigned int kDefaultInterval = 90;  // seconds
constexpr unsigned int kNoOobDiscovery = 0xFFFFFFFF;
constexpr unsigned int kForEver = 0xFFFFFFFFU;

// Intervals of 1 to 4 seconds are too short to be meant.
bool TooShort(unsigned int seconds) {
  return seconds >= 1 && seconds <= 4;
}

int SettingOf(const char* key) {
  int value = 0;
  getDiscConfigIntValue(&value, key);
  return value;
}

// Opens the log, too: what is read after the log's mode is logged.
DiscoverySettings ReadSettings() {
  const int logMode = SettingOf("DISCO_LOG_MODE");
  SetDiscoveryLogMode(static_cast<unsigned int>(logMode));

  DiscoverySettings settings;
  settings.fullDiscoveryOnly = SettingOf("DISCO_FULL_DISCOVERY") != 0;
  const int threads = SettingOf("DISCO_MAX_THREADS");
  if (threads >= 1 && threads <= 15) settings.maxPortThreads = static_cast<unsigned int>(threads);

  if (logMode != 0) {
    // There is deliberately no default file: without a path there is no log.
    char path[256] = {};
    getDiscConfigStrValue(path, sizeof path, "DISCO_LOG_PATH");
    OpenDiscoveryLog(path);
  }
  return settings;
}

}  // namespace

CHbaDiscover::CHbaDiscover() : m_Parts(*this, ReadSettings()) {}

CHbaDiscover::~CHbaDiscover() {
  // Threads work on this object, so they must have ended before any member goes.
  m_Parts.remote.Drop();
  m_Parts.slow.Stop();
  CZylThread::Terminate();
  m_Directed.Join();
}

// ---- Start and stop

void CHbaDiscover::StartupForOneLook(int localOnly) {
  Startup(0, localOnly == 0 ? 0 : kNoOobDiscovery, localOnly, true);
}

void CHbaDiscover::Startup(unsigned int interval, unsigned int oobInterval, int localOnly, bool hurried) {
  if (Callback::IsInside()) {
    // Whoever holds the lock may be waiting for this very thread.
    if (!m_LifecycleLock.TryLock()) return;
  } else {
    m_LifecycleLock.GetLock();
  }
  try {
    // Also when discovery runs already: the new thread takes the requests from now on, the old one stays idle.
    if (!m_Parts.state.IsStarted()) m_Parts.hurried = hurried;
    if (m_Parts.state.IsStarted() || StartLocked(interval, oobInterval, localOnly)) m_Directed.StartThread();
  } catch (...) {
    // Starting reports nothing; what could not be allocated is not started.
  }
  m_LifecycleLock.ReleaseLock();
}

// A start that fails, for want of memory or of the main thread, is taken back.
bool CHbaDiscover::StartLocked(unsigned int interval, unsigned int oobInterval, int localOnly) {
  bool started = false;
  try {
    started = TryStart(interval, oobInterval, localOnly);
  } catch (const std::exception& failure) {
    disco_printf(kLogStartStop, nullptr, "Discovery cannot start (%s)", failure.what());
  }
  if (started) return true;
  m_Parts.state.LeaveStarted();
  StopLocked();
  return false;
}

bool CHbaDiscover::TryStart(unsigned int interval, unsigned int oobInterval, int localOnly) {
  m_Parts.answers->Clear();
  RM_InitLib();
  m_Parts.picture.Open();

  const unsigned int seconds = TooShort(interval) ? kDefaultInterval : interval;
  disco_printf(kLogStartStop, nullptr, "Discovery startup");
  disco_printf(kLogInBand, nullptr, "In-band interval = %d seconds", static_cast<int>(seconds));
  m_Interval = seconds * 1000U;

  m_Parts.slow.Start(localOnly == 0 ? &m_Parts : nullptr);
  // One whose port was not allowed, and which so never ran.
  m_Parts.remote.Drop();
  if (localOnly == 0 && oobInterval != kNoOobDiscovery) m_Parts.remote.Start(m_Parts, oobInterval);

  m_Parts.callback.Allow(true);
  m_Parts.first.Begin();
  m_Parts.state.Start();
  return Create(DiscoveryThread, this, 0, 0) != 0;
}

void CHbaDiscover::Terminate() {
  if (Callback::IsInside()) return;
  LockGuard guard(m_LifecycleLock);
  if (m_Parts.state.LeaveStarted()) StopLocked();
}

void CHbaDiscover::StopLocked() {
  disco_printf(kLogStartStop, nullptr, "Terminating discovery");
  m_Parts.first.Stop();
  KillDiscoveryCycle(1);
  m_Parts.slow.Stop();
  m_Parts.remote.Stop();
  // Asked now, so that their last slices pass while the main thread's does.
  m_Directed.AskToStop();
  CZylThread::Terminate();
  m_Cycle.StopWorkers();
  m_Directed.Stop();
  m_Parts.callback.Allow(false);
  RM_ExitLib();
  m_Cycle.ForgetLists();
  m_Parts.picture.Close();
  m_Parts.answers->Clear();
  m_Parts.kept.Close();
  m_Parts.state.Stopped();
  disco_printf(kLogStartStop, nullptr, "Discovery terminated");
}

// ---- Control

void CHbaDiscover::PauseDiscovery() {
  const ControlCalls::Scope call(m_Parts.controlCalls);
  disco_printf(kLogInBand | kLogOob, nullptr, "Discovery paused");
  m_Parts.state.Pause();
  KillDiscoveryCycle(0);
  if (const std::shared_ptr<COOBHbaDiscover> oob = m_Parts.remote.Get(); oob != nullptr) oob->PauseDiscovery();
  m_Parts.slow.Pause(1);
}

void CHbaDiscover::ChangeDiscoveryInterval(unsigned int seconds) {
  if (TooShort(seconds)) return;
  disco_printf(kLogInBand, nullptr, "Change discovery interval to %d seconds", static_cast<int>(seconds));
  const std::uint32_t milliseconds = seconds * 1000U;
  m_Interval = milliseconds;
  if (milliseconds != 0 && InDiscoveryCycle() == 0) Signal();
  m_Parts.slow.ChangeDiscoveryInterval(seconds);
}

void CHbaDiscover::ChangeOOBDiscoveryInterval(unsigned int seconds) {
  const std::shared_ptr<COOBHbaDiscover> oob = m_Parts.remote.Get();
  if (oob == nullptr) return;
  const ControlCalls::Scope call(m_Parts.controlCalls);
  oob->ChangeDiscoveryInterval(seconds);
  disco_printf(kLogOob, nullptr, "OOB - Change discovery interval to %d seconds", static_cast<int>(seconds));
}

// Inside a callback the cycle to wait for may be the one that waits for this thread.
bool CHbaDiscover::WaitForFirstPicture(std::chrono::milliseconds limit) {
  return m_Parts.first.Wait(Callback::IsInside() ? std::chrono::milliseconds(0) : limit);
}

bool CHbaDiscover::MayBeAwaitedBy(std::thread::id thread) const {
  return Callback::IsInside() && (!m_Parts.state.IsStarted() || m_Parts.controlCalls.Has(thread));
}

// ---- The main in-band thread

void* CHbaDiscover::DiscoveryThread(void* self) {
  static_cast<CHbaDiscover*>(self)->DiscoveryProc();
  return nullptr;
}

int CHbaDiscover::DiscoveryProc() {
  disco_printf(kLogInBand, nullptr, "Main in-band discovery thread running");
  const std::shared_ptr<CHbaList> kept = m_Parts.picture.GetCurrentList();
  if (kept != nullptr && kept->GetCount() != 0) {
    disco_printf(kLogInBand, nullptr, "Got persistent discovery data - doing callback now");
    m_Parts.Report({.changed = true});
  }
  int first = 1;
  while (!Terminated()) {
    const std::uint32_t interval = m_Interval.load();
    const std::uint32_t state = m_Parts.state.Get();
    if ((state & kStateForced) != 0 || ((state & kStateEnabled) != 0 && interval != 0)) {
      m_Cycle.DoDiscoveryCycle(first);
      first = 0;
    }
    // The pauses inside a cycle may have used up the signal that came with a request.
    constexpr std::uint32_t kRequested = kStateStarted | kStateForced;
    if (Terminated() || m_Parts.state.HasAll(kRequested)) continue;
    WaitForSignal(m_Interval.load() == 0 ? kForEver : m_Interval.load());
  }
  disco_printf(kLogInBand, nullptr, "Main in-band discovery thread terminating");
  return 0;
}

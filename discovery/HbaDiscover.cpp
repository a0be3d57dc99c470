#include "discovery/HbaDiscover.h"

#include <chrono>
#include <exception>
#include <utility>

#include "config/DiscConfig.h"
#include "log/DiscoveryLog.h"
#include "rmapi/rmapi.h"

namespace {

constexpr unsigned int kDefaultInterval = 90;  // seconds
constexpr unsigned int kNoOobDiscovery = 0xFFFFFFFF;
constexpr unsigned int kOobSettle = 100000;      // microseconds
constexpr unsigned int kKillPoll = 250000;       // microseconds
constexpr std::chrono::seconds kKillGiveUp{10};  // waits strictly longer than this

// Intervals of 1 to 4 seconds are too short to be meant.
bool TooShort(unsigned int seconds) {
  return seconds >= 1 && seconds <= 4;
}

std::chrono::seconds WholeSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch());
}

}  // namespace

CHbaDiscover::CHbaDiscover() : m_WorkerParams(std::make_shared<PortDiscoveryParams>()) {
  int logMode = 0;
  getDiscConfigIntValue(&logMode, "DISCO_LOG_MODE");
  SetDiscoveryLogMode(static_cast<unsigned int>(logMode));

  int fullOnly = 0;
  getDiscConfigIntValue(&fullOnly, "DISCO_FULL_DISCOVERY");
  m_FullDiscoveryOnly = fullOnly != 0;

  int threads = 0;
  getDiscConfigIntValue(&threads, "DISCO_MAX_THREADS");
  if (threads >= 1 && threads <= 15) m_MaxPortThreads = static_cast<unsigned int>(threads);

  if (logMode != 0) OpenLogFile();
}

CHbaDiscover::~CHbaDiscover() {
  // Threads work on this object, so they must have ended before any member goes.
  m_OobDiscoverer.Set(nullptr);
  if (const std::shared_ptr<CSlowHbaDiscover> slow = m_SlowDiscoverer.Get(); slow != nullptr) slow->Terminate();
  CZylThread::Terminate();
  LockGuard guard(m_LifecycleLock);
  JoinDirectedThreads();
}

void CHbaDiscover::OpenLogFile() {
  // There is deliberately no default file: without a path there is no log.
  char path[256] = {};
  getDiscConfigStrValue(path, sizeof path, "DISCO_LOG_PATH");
  OpenDiscoveryLog(path);
}

void CHbaDiscover::Startup(unsigned int interval, unsigned int oobInterval, int localOnly) {
  if (InCallBack()) {
    // Whoever holds the lock may be waiting for this very thread.
    if (!m_LifecycleLock.TryLock()) return;
  } else {
    m_LifecycleLock.GetLock();
  }
  try {
    // Also when discovery runs already: the new thread takes the requests from now on, the old one stays idle.
    if (IsStarted() || StartLocked(interval, oobInterval, localOnly)) StartDirectedThread();
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
  LeaveStartedState();
  StopLocked();
  return false;
}

bool CHbaDiscover::TryStart(unsigned int interval, unsigned int oobInterval, int localOnly) {
  RM_InitLib();
  m_CurrentList.Set(std::make_shared<CHbaList>(ListRank::kCurrent));

  const unsigned int seconds = TooShort(interval) ? kDefaultInterval : interval;
  disco_printf(kLogStartStop, nullptr, "Discovery startup");
  disco_printf(kLogInBand, nullptr, "In-band interval = %d seconds", static_cast<int>(seconds));
  m_Interval = seconds * 1000U;

  std::shared_ptr<CSlowHbaDiscover> slow = m_SlowDiscoverer.Get();
  if (slow == nullptr) {
    slow = std::make_shared<CSlowHbaDiscover>();
    m_SlowDiscoverer.Set(slow);
  }
  if (localOnly == 0) slow->Startup(this);
  // One whose port was not allowed, and which so never ran.
  m_OobDiscoverer.Set(nullptr);
  if (localOnly == 0 && oobInterval != kNoOobDiscovery) StartOob(oobInterval);

  AllowCallBacks(true);
  m_State.fetch_or(kStateEnabled | kStateStarted | kStateForced);
  return Create(DiscoveryThread, this, 0, 0) != 0;
}

void CHbaDiscover::StartOob(unsigned int oobInterval) {
  const auto oob = std::make_shared<COOBHbaDiscover>(static_cast<DiscoveryOwner*>(this));
  m_OobDiscoverer.Set(oob);
  oob->Startup(oobInterval);
  ZylSleep(kOobSettle);
}

void CHbaDiscover::Terminate() {
  if (InCallBack()) return;
  LockGuard guard(m_LifecycleLock);
  if (LeaveStartedState()) StopLocked();
}

// Clears started and enabled in one step; false when either was clear already.
bool CHbaDiscover::LeaveStartedState() {
  std::uint32_t state = m_State.load();
  constexpr std::uint32_t kBoth = kStateStarted | kStateEnabled;
  do {
    if ((state & kBoth) != kBoth) return false;
  } while (!m_State.compare_exchange_weak(state, state & ~kBoth));
  return true;
}

void CHbaDiscover::StopLocked() {
  disco_printf(kLogStartStop, nullptr, "Terminating discovery");
  KillDiscoveryCycle(1);
  // One that is in a cycle ends by itself and keeps itself alive until then.
  if (const std::shared_ptr<CSlowHbaDiscover> slow = m_SlowDiscoverer.Get(); slow != nullptr) slow->Terminate();
  m_SlowDiscoverer.Set(nullptr);
  StopOob();
  // Asked now, so that their last slices pass while the main thread's does.
  AskDirectedThreadsToStop();
  CZylThread::Terminate();
  m_PortPool.TerminateThreadsImmediate();
  StopDirectedThreads();
  AllowCallBacks(false);
  RM_ExitLib();
  m_WorkerParams->Clear();
  FreeHbaList(m_CurrentList);
  FreeHbaList(m_NewList);
  m_State.fetch_and(~static_cast<std::uint32_t>(kStateStarted | kStateForced));
  disco_printf(kLogStartStop, nullptr, "Discovery terminated");
}

// One that never ran stays: its hosts are refused as those of a controller that does not run.
void CHbaDiscover::StopOob() {
  const std::shared_ptr<COOBHbaDiscover> oob = m_OobDiscoverer.Get();
  if (oob == nullptr) return;
  const std::uint32_t before = oob->getOOBThreadState();
  oob->Terminate();
  if (before != 0 && oob->getOOBThreadState() == 0) m_OobDiscoverer.Set(nullptr);
}

void CHbaDiscover::PauseDiscovery() {
  const ControlCall call(*this);
  disco_printf(kLogInBand | kLogOob, nullptr, "Discovery paused");
  m_State.fetch_and(~static_cast<std::uint32_t>(kStateEnabled));
  KillDiscoveryCycle(0);
  if (const std::shared_ptr<COOBHbaDiscover> oob = m_OobDiscoverer.Get(); oob != nullptr) oob->PauseDiscovery();
  PauseSlow(1);
}

std::shared_ptr<CHbaList> CHbaDiscover::GetSlowList() const {
  const std::shared_ptr<CSlowHbaDiscover> slow = m_SlowDiscoverer.Get();
  return slow == nullptr ? nullptr : slow->GetHbaList();
}

void CHbaDiscover::PauseSlow(int pause) {
  if (const std::shared_ptr<CSlowHbaDiscover> slow = m_SlowDiscoverer.Get(); slow != nullptr)
    slow->Pause(pause);
}

void CHbaDiscover::ResetSlow() {
  if (const std::shared_ptr<CSlowHbaDiscover> slow = m_SlowDiscoverer.Get(); slow != nullptr) slow->Reset();
}

int CHbaDiscover::StartDiscoveryCycle() {
  const ControlCall call(*this);
  disco_printf(kLogCycleBounds | kLogInBand | kLogOob, nullptr, "*** FORCED DISCOVERY CYCLE REQUESTED ***");
  if (InCallBack()) {
    // Another thread's call may be waiting for the cycle that this callback belongs to.
    if (!m_ForceLock.TryLock()) return InForcedCycle() ? 0 : RequestForcedCycle();
  } else {
    m_ForceLock.GetLock();
  }
  // A periodic cycle that began now would have to be killed as well, or the forced one would wait for its end.
  HoldCycles(true);
  const int started = ForceCycleLocked();
  HoldCycles(false);
  m_ForceLock.ReleaseLock();
  return started;
}

void CHbaDiscover::HoldCycles(bool hold) {
  LockGuard guard(m_CycleLock);
  m_Forcing = hold;
}

int CHbaDiscover::ForceCycleLocked() {
  const std::shared_ptr<COOBHbaDiscover> oob = m_OobDiscoverer.Get();
  if (AlreadyForced(oob.get())) {
    disco_printf(kLogCycleBounds | kLogInBand | kLogOob, nullptr,
                 "Already doing forced discovery cycle - not restarting");
    return 0;
  }
  const bool oobInCycle = oob != nullptr && (oob->GetDiscoveryState() & kOobInCycle) != 0;
  if ((InDiscoveryCycle() != 0 || oobInCycle) && !InCallBack()) KillForForcedCycle(oob.get());
  return RequestForcedCycle();
}

bool CHbaDiscover::AlreadyForced(const COOBHbaDiscover* oob) const {
  const std::uint32_t state = m_State.load();
  // The in-cycle bit comes up to a second after the request; an enabled controller is on its way to the cycle.
  if ((state & kStateForced) != 0 && (state & (kStateInCycle | kStateEnabled)) != 0) {
    disco_printf(kLogCycleBounds | kLogInBand, nullptr, "In-band already doing forced discovery cycle");
    return true;
  }
  const std::uint32_t oobState = oob == nullptr ? 0 : oob->GetDiscoveryState();
  const bool running = (state & kStateInCycle) != 0 || (oobState & kOobInCycle) != 0;
  if (!running || (oobState & kOobForced) == 0) return false;
  disco_printf(kLogCycleBounds | kLogOob, nullptr, "OOB Already doing forced discovery cycle");
  return true;
}

void CHbaDiscover::KillForForcedCycle(COOBHbaDiscover* oob) {
  disco_printf(kLogInBand, nullptr, "Killing current in-band cycle");
  KillDiscoveryCycle(0);
  if (oob != nullptr) {
    disco_printf(kLogCycleBounds | kLogOob, nullptr, "Killing current OOB cycle");
    oob->KillDiscoveryCycle(0);
  }
  if (m_SlowDiscoverer.Get() != nullptr) {
    disco_printf(kLogCycleBounds | kLogInBand | kLogOob, nullptr, "Resetting slow discovery");
    PauseSlow(0);
    ResetSlow();
  }
}

int CHbaDiscover::RequestForcedCycle() {
  if (const std::shared_ptr<COOBHbaDiscover> oob = m_OobDiscoverer.Get(); oob != nullptr) {
    disco_printf(kLogCycleBounds | kLogOob, nullptr, "Starting OOB cycle");
    oob->StartDiscoveryCycle();
  }
  disco_printf(kLogCycleBounds | kLogInBand, nullptr, "Starting in-band cycle");
  m_State.fetch_or(kStateEnabled | kStateForced);
  Signal();
  return 1;
}

CHbaDiscover::ControlCall::ControlCall(CHbaDiscover& controller)
    : m_Controller(InCallBack() ? nullptr : &controller), m_Thread(std::this_thread::get_id()) {
  if (m_Controller == nullptr) return;
  LockGuard guard(m_Controller->m_ControlLock);
  m_Next = std::exchange(m_Controller->m_ControlCalls, this);
}

CHbaDiscover::ControlCall::~ControlCall() {
  if (m_Controller == nullptr) return;
  LockGuard guard(m_Controller->m_ControlLock);
  ControlCall** link = &m_Controller->m_ControlCalls;
  while (*link != this) link = &(*link)->m_Next;
  *link = m_Next;
}

bool CHbaDiscover::IsInControlCall(std::thread::id thread) const {
  LockGuard guard(m_ControlLock);
  const ControlCall* call = m_ControlCalls;
  while (call != nullptr && call->m_Thread != thread) call = call->m_Next;
  return call != nullptr;
}

bool CHbaDiscover::InForcedCycle() const {
  constexpr std::uint32_t kBoth = kStateForced | kStateInCycle;
  return (m_State.load() & kBoth) == kBoth;
}

void CHbaDiscover::KillDiscoveryCycle(int giveUp) {
  const ControlCall call(*this);
  if (const std::shared_ptr<COOBHbaDiscover> oob = m_OobDiscoverer.Get(); oob != nullptr) {
    oob->KillDiscoveryCycle(giveUp);
  }
  if (InDiscoveryCycle() == 0) return;
  if (InCallBack()) {
    // The cycle may be waiting for this thread: leave the request. The end of the cycle clears it.
    LockGuard guard(m_KillLock);
    if (InDiscoveryCycle() == 0) return;
    m_State.fetch_or(kStateKillRequested);
    Signal();
    return;
  }
  unsigned int cycle = 0;
  if (!RequestKill(&cycle)) return;
  AwaitCycleEnd(giveUp, cycle);
  DropKillWaiter(cycle);
}

// False when the cycle has ended meanwhile; else the number of the cycle that is to stop.
bool CHbaDiscover::RequestKill(unsigned int* cycle) {
  LockGuard guard(m_KillLock);
  if (InDiscoveryCycle() == 0) return false;
  ++m_KillWaiters;
  *cycle = m_CycleNumber.load();
  m_State.fetch_or(kStateKillRequested);
  Signal();
  return true;
}

void CHbaDiscover::AwaitCycleEnd(int giveUp, unsigned int cycle) {
  const std::chrono::seconds begin = WholeSeconds();
  while (InDiscoveryCycle() != 0 && m_CycleNumber.load() == cycle) {
    ZylSleep(kKillPoll);
    if (giveUp != 0 && WholeSeconds() - begin > kKillGiveUp) {
      disco_printf(kLogCycleBounds | kLogOob, nullptr,
                   "Discovery terminating - giving up wait for current discovery cycle to end");
      return;
    }
  }
}

// The last of several killers clears the request, so that none takes it away from another. A later cycle has
// cleared it, and what stands there now is its own.
void CHbaDiscover::DropKillWaiter(unsigned int cycle) {
  LockGuard guard(m_KillLock);
  if (--m_KillWaiters == 0 && m_CycleNumber.load() == cycle) {
    m_State.fetch_and(~static_cast<std::uint32_t>(kStateKillRequested));
  }
}

void CHbaDiscover::DropUnawaitedKill() {
  LockGuard guard(m_KillLock);
  if (m_KillWaiters == 0) m_State.fetch_and(~static_cast<std::uint32_t>(kStateKillRequested));
}

void CHbaDiscover::ChangeDiscoveryInterval(unsigned int seconds) {
  if (TooShort(seconds)) return;
  disco_printf(kLogInBand, nullptr, "Change discovery interval to %d seconds", static_cast<int>(seconds));
  const std::uint32_t milliseconds = seconds * 1000U;
  m_Interval = milliseconds;
  if (milliseconds != 0 && InDiscoveryCycle() == 0) Signal();
  if (const std::shared_ptr<CSlowHbaDiscover> slow = m_SlowDiscoverer.Get(); slow != nullptr) {
    slow->ChangeDiscoveryInterval(seconds);
  }
}

void CHbaDiscover::ChangeOOBDiscoveryInterval(unsigned int seconds) {
  const std::shared_ptr<COOBHbaDiscover> oob = m_OobDiscoverer.Get();
  if (oob == nullptr) return;
  const ControlCall call(*this);
  oob->ChangeDiscoveryInterval(seconds);
  disco_printf(kLogOob, nullptr, "OOB - Change discovery interval to %d seconds", static_cast<int>(seconds));
}

void CHbaDiscover::FreeHbaList(SharedSlot<CHbaList>& slot) {
  const std::shared_ptr<CHbaList> list = slot.Get();
  if (list == nullptr) return;
  HbaListGuard guard(*list);
  slot.Set(nullptr);
}

void CHbaDiscover::FreeSystemList(SharedSlot<CSystemList>& slot) {
  const std::shared_ptr<CSystemList> list = slot.Get();
  if (list == nullptr) return;
  SystemListGuard guard(*list);
  slot.Set(nullptr);
}

#include "oob/OobHbaDiscover.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "config/FileDescriptor.h"
#include "log/DiscoveryLog.h"
#include "oob/HostEntry.h"

namespace {

constexpr unsigned short kDefaultPort = 23333;
constexpr unsigned short kLowestPort = 1024;
constexpr long kPortEnd = 65536;
constexpr char kPortKey[] = "TcpSocketPortNumber";
constexpr unsigned int kDefaultInterval = 90;
constexpr unsigned int kLongestTooShort = 4;
constexpr unsigned int kNoDiscovery = 0xFFFFFFFF;
constexpr unsigned int kSettlePause = 100000;  // microseconds, for the thread to notice a request
constexpr unsigned int kKillPoll = 250000;     // microseconds
constexpr std::chrono::seconds kKillGiveUp{5};
constexpr int kCacheOn = 1;

constexpr unsigned int kLogForced = kLogCycleBounds | kLogOob;

bool TooShort(unsigned int seconds) {
  return seconds >= 1 && seconds <= kLongestTooShort;
}

}  // namespace

COOBHbaDiscover::COOBHbaDiscover(DiscoveryOwner* owner, const char* settingsPath,
                                 std::chrono::milliseconds callLimit)
    : m_Owner(owner),
      m_SettingsPath(settingsPath),
      m_Shared(std::make_shared<OobShared>(callLimit, owner == nullptr ? nullptr : owner->GetAnswers())),
      m_Cycle(std::make_shared<OobCycleSlot>()),
      m_HostFile(kOobHostsFile),
      m_CimFile(kCimHostsFile) {}

COOBHbaDiscover::~COOBHbaDiscover() {
  Terminate();
}

bool COOBHbaDiscover::ChangeStateIf(std::uint32_t present, std::uint32_t clear, std::uint32_t set) {
  std::uint32_t state = m_Shared->state.load();
  do {
    if ((state & present) == 0) return false;
  } while (!m_Shared->state.compare_exchange_weak(state, (state & ~clear) | set));
  return true;
}

void COOBHbaDiscover::Startup(unsigned int interval) {
  GetOobSocketNumber();
  const auto limit = std::chrono::ceil<std::chrono::seconds>(m_Shared->callLimit);
  RM_SetOOBTimeout(static_cast<unsigned int>(limit.count()));
  const unsigned short port = m_OobPort.load();
  if (port < kLowestPort) {
    disco_printf(kLogStartStop, nullptr, "OOB discovery not started (illegal port number %d", port);
    return;
  }
  if (interval == kNoDiscovery) return;
  // Before the thread runs: a stop or a request that comes at once finds it running.
  std::uint32_t stopped = 0;
  if (!m_Shared->state.compare_exchange_strong(stopped, kOobRunning | kOobEnabled | kOobForced)) return;
  const unsigned int seconds = TooShort(interval) ? kDefaultInterval : interval;
  m_Interval = seconds;
  disco_printf(kLogStartStop, nullptr, "OOB discovery startup (interval = %d seconds)",
               static_cast<int>(seconds));
  if (!CreateThread()) {
    m_Shared->state = 0;
    return;
  }
  ZylSleep(kSettlePause);
}

bool COOBHbaDiscover::CreateThread() {
  WaitForTermination(0);  // of an earlier thread, which has ended
  try {
    return Create(DiscoveryThread, this, 0, 0) != 0;
  } catch (...) {
    return false;
  }
}

// The number of the last line that names one. Lines are looked at in pieces of the length that has always been
// read.
void COOBHbaDiscover::GetOobSocketNumber() {
  unsigned short port = kDefaultPort;
  const FileStream file = OpenForReading(m_SettingsPath.c_str());
  char line[256];
  while (file != nullptr && std::fgets(line, sizeof line, file.get()) != nullptr) {
    if (std::strstr(line, kPortKey) == nullptr) continue;
    Pieces pieces(line, ":");
    pieces.Next();
    const std::string_view number = pieces.Next();
    if (number.empty()) continue;
    // Ends where the number does, at the next ":" at the latest.
    const long value = std::strtol(number.data(), nullptr, 0);
    port = value < kPortEnd ? static_cast<unsigned short>(value) : static_cast<unsigned short>(0);
  }
  m_OobPort = port;
}

void COOBHbaDiscover::Terminate() {
  ChangeState(kOobEnabled, kOobStopRequested);
  TerminateImmediate();
  if (IsOwnThread()) return;
  StopWorkers();
  CZylThread::Terminate();
}

// Leaves them to themselves; what they are inside of is dropped.
void COOBHbaDiscover::StopWorkers() {
  m_ThreadPool.TerminateThreadsImmediate();
  m_SilentPool.TerminateThreadsImmediate();
}

void COOBHbaDiscover::PauseDiscovery() {
  if (!ChangeState(kOobEnabled, 0)) return;
  // Before the cycle ends, after which one that is forced may ask anew.
  m_SilentPool.TerminateThreadsImmediate();
  KillDiscoveryCycle(0);
}

int COOBHbaDiscover::StartDiscoveryCycle() {
  RM_OOBHandleCacheControl(kCacheOn);
  std::uint32_t state = m_Shared->state.load();
  std::uint32_t wanted = 0;
  do {
    if ((state & kOobRunning) == 0) return 0;
    wanted = state | kOobForced | ((state & kOobInCycle) != 0 ? 0U : kOobEnabled);
  } while (!m_Shared->state.compare_exchange_weak(state, wanted));
  if ((state & kOobInCycle) != 0) {
    // One that is being stopped does not become the forced one: that follows it.
    if ((state & kOobStopRequested) != 0) m_ForceNext = true;
    return 0;
  }
  Signal();
  ZylSleep(kSettlePause);
  return 1;
}

void COOBHbaDiscover::KillDiscoveryCycle(int giveUp) {
  if (!HasState(kOobInCycle)) return;
  if (MayNotWait()) {
    // The end of the cycle takes it back.
    ChangeStateIf(kOobInCycle, 0, kOobStopRequested);
    return;
  }
  unsigned int ended = 0;
  if (!RequestKill(&ended)) return;
  AwaitCycleEnd(giveUp, ended);
  DropKillWaiter(ended);
}

// False when the cycle has ended meanwhile; else how many cycles have ended before it.
bool COOBHbaDiscover::RequestKill(unsigned int* ended) {
  const LockGuard guard(m_KillLock);
  if (!HasState(kOobInCycle)) return false;
  ++m_KillWaiters;
  *ended = m_CyclesEnded.load();
  ChangeState(0, kOobStopRequested);
  // With the lock held: the end of the cycle takes back the signal that came with the request.
  Signal();
  return true;
}

void COOBHbaDiscover::AwaitCycleEnd(int giveUp, unsigned int ended) const {
  const auto begin = std::chrono::steady_clock::now();
  while (HasState(kOobInCycle) && m_CyclesEnded.load() == ended) {
    ZylSleep(kKillPoll);
    if (giveUp != 0 && std::chrono::steady_clock::now() - begin > kKillGiveUp) {
      disco_printf(kLogForced, nullptr,
                   "OOB Discovery terminating - giving up wait for current discovery cycle to end");
      return;
    }
  }
}

// The last of several killers that give up takes the request back, so that none takes it away from another.
void COOBHbaDiscover::DropKillWaiter(unsigned int ended) {
  const LockGuard guard(m_KillLock);
  if (--m_KillWaiters == 0 && m_CyclesEnded.load() == ended) ChangeState(kOobStopRequested, 0);
}

void COOBHbaDiscover::ChangeDiscoveryInterval(unsigned int seconds) {
  if (!HasState(kOobRunning)) return;
  if (seconds == 0) {
    disco_printf(kLogOob, nullptr, "Discovery interval = 0 - pausing OOB discovery");
    PauseDiscovery();
    return;
  }
  if (!TooShort(seconds)) m_Interval = seconds;
  disco_printf(kLogOob, nullptr, "New OOB discovery interval = %d seconds",
               static_cast<int>(m_Interval.load()));
  if ((m_Shared->state.load() & (kOobEnabled | kOobInCycle)) == kOobEnabled) Signal();
}

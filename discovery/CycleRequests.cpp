#include "discovery/CycleRequests.h"

#include <chrono>

#include "log/DiscoveryLog.h"

namespace {

constexpr unsigned int kKillPoll = 250000;       // microseconds
constexpr std::chrono::seconds kKillGiveUp{10};  // waits strictly longer than this

std::chrono::seconds WholeSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch());
}

}  // namespace

int CycleRequests::StartDiscoveryCycle() {
  const ControlCalls::Scope call(m_Parts.controlCalls);
  disco_printf(kLogCycleBounds | kLogInBand | kLogOob, nullptr, "*** FORCED DISCOVERY CYCLE REQUESTED ***");
  if (Callback::IsInside()) {
    // Another thread's call may be waiting for the cycle that this callback belongs to.
    if (!m_ForceLock.TryLock()) {
      return m_Parts.state.HasAll(kStateForced | kStateInCycle) ? 0 : RequestForcedCycle();
    }
  } else {
    m_ForceLock.GetLock();
  }
  m_Parts.gate.HoldForRequest(true);
  const int started = ForceCycle();
  m_Parts.gate.HoldForRequest(false);
  m_ForceLock.ReleaseLock();
  return started;
}

int CycleRequests::ForceCycle() {
  const std::shared_ptr<COOBHbaDiscover> oob = m_Parts.remote.Get();
  if (AlreadyForced(oob.get())) {
    disco_printf(kLogCycleBounds | kLogInBand | kLogOob, nullptr,
                 "Already doing forced discovery cycle - not restarting");
    return 0;
  }
  const bool oobInCycle = oob != nullptr && (oob->GetDiscoveryState() & kOobInCycle) != 0;
  if ((m_Parts.state.InCycle() || oobInCycle) && !Callback::IsInside()) KillForForcedCycle(oob.get());
  return RequestForcedCycle();
}

bool CycleRequests::AlreadyForced(const COOBHbaDiscover* oob) const {
  const std::uint32_t state = m_Parts.state.Get();
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

void CycleRequests::KillForForcedCycle(COOBHbaDiscover* oob) {
  disco_printf(kLogInBand, nullptr, "Killing current in-band cycle");
  KillDiscoveryCycle(0);
  if (oob != nullptr) {
    disco_printf(kLogCycleBounds | kLogOob, nullptr, "Killing current OOB cycle");
    oob->KillDiscoveryCycle(0);
  }
  if (m_Parts.slow.Exists()) {
    disco_printf(kLogCycleBounds | kLogInBand | kLogOob, nullptr, "Resetting slow discovery");
    m_Parts.slow.Pause(0);
    m_Parts.slow.Reset();
  }
}

int CycleRequests::RequestForcedCycle() {
  if (const std::shared_ptr<COOBHbaDiscover> oob = m_Parts.remote.Get(); oob != nullptr) {
    disco_printf(kLogCycleBounds | kLogOob, nullptr, "Starting OOB cycle");
    oob->StartDiscoveryCycle();
  }
  disco_printf(kLogCycleBounds | kLogInBand, nullptr, "Starting in-band cycle");
  m_Parts.state.Force();
  return 1;
}

void CycleRequests::KillDiscoveryCycle(int giveUp) {
  const ControlCalls::Scope call(m_Parts.controlCalls);
  if (const std::shared_ptr<COOBHbaDiscover> oob = m_Parts.remote.Get(); oob != nullptr) {
    oob->KillDiscoveryCycle(giveUp);
  }
  if (Callback::IsInside()) return m_Parts.state.RequestKillUnwaited();
  unsigned int cycle = 0;
  if (!m_Parts.state.RequestKill(&cycle)) return;
  AwaitCycleEnd(giveUp, cycle);
  m_Parts.state.DropKillWaiter(cycle);
}

void CycleRequests::AwaitCycleEnd(int giveUp, unsigned int cycle) const {
  const std::chrono::seconds begin = WholeSeconds();
  while (m_Parts.state.IsRunning(cycle)) {
    ZylSleep(kKillPoll);
    if (giveUp != 0 && WholeSeconds() - begin > kKillGiveUp) {
      disco_printf(kLogCycleBounds | kLogOob, nullptr,
                   "Discovery terminating - giving up wait for current discovery cycle to end");
      return;
    }
  }
}

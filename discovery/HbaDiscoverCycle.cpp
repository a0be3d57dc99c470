#include "discovery/HbaDiscoverCycle.h"

#include <algorithm>
#include <exception>

#include "inband/HurriedVisit.h"
#include "inband/LocalHbaInfo.h"
#include "inband/ProviderLook.h"
#include "log/DiscoveryLog.h"

namespace {

constexpr unsigned int kSettlePause = 1000;  // milliseconds between sizing the pool and enabling it
constexpr unsigned int kIdlePoll = 250;      // milliseconds
constexpr unsigned int kLockPoll = 20000;    // microseconds
constexpr int kSkipCycle = -1;
constexpr int kPortStateChanged = 2;
constexpr int kVFCountChanged = 3;
// Below this an application would be called more often than workers report.
constexpr unsigned int kShortestIntermediateInterval = 2;

// A forced cycle that was asked for counts: its thread may notice the request a second late.
bool OobBusy(const COOBHbaDiscover& oob) {
  const std::uint32_t state = oob.GetDiscoveryState();
  if ((state & kOobInCycle) != 0) return true;
  return (state & (kOobRunning | kOobForced | kOobStopRequested)) == (kOobRunning | kOobForced);
}

const char* EscalationText(int result) {
  switch (result) {
    case kPortStateChanged:
      return "Local HBA port state change - DOING FULL DISCOVERY CYCLE!";
    case kVFCountChanged:
      return "Local HBA port VFCount change - DOING FULL DISCOVERY CYCLE!";
    default:
      return "Target info change - DOING FULL DISCOVERY CYCLE!";
  }
}

// Removes what cycle `mark` has not seen. Local ports stay, and one that a proxy knows too is left to it. 1: a
// port was removed.
int RemoveUnMarkedEntries(CHbaList& list, unsigned int mark) REQUIRES(list) {
  int removed = 0;
  for (CHbaEntry* entry = list.GetFirstEntry(); entry != nullptr; entry = list.GetNextEntry()) {
    HBA_info_v4* info = entry->GetHbaInfo();
    if (entry->IsLocalPort() != 0) {
      if (entry->GetLinkStatus() == kLinkOverTemperature) {
        disco_printf(kLogInBand, info->portWwn,
                     "In-Band Discovery: Keeping local adapter with above operating temperature");
      }
      continue;
    }
    if (entry->GetDiscoveryMark() == mark || entry->ProxyOnly() != 0) continue;
    if (entry->GetProxyAddress()[0] != 0) {
      entry->SetProxyOnlyAccess(1);
      continue;
    }
    info->hostName[sizeof info->hostName - 1] = '\0';
    if (info->hostName[0] != '\0') {
      disco_printf(kLogInBand, info->portWwn,
                   "In-Band Discovery: No longer discovered on system %s, removed from list", info->hostName);
    } else {
      disco_printf(kLogInBand, info->portWwn, "In-Band Discovery: No longer discovered, removed from list");
    }
    list.RemoveCurrentEntry();
    removed = 1;
  }
  return removed;
}

}  // namespace

enum class HbaDiscoverCycle::CycleEnd {
  kDone,
  kFailed,           // no memory
  kSkipped,          // the local ports could not be enumerated
  kStopped,          // killed, or discovery is terminated
  kForcedMeanwhile,  // lite: a forced cycle was asked for and starts at once
};

struct HbaDiscoverCycle::Cycle {
  std::shared_ptr<CHbaList> current;
  std::shared_ptr<CHbaList> fresh;  // null in a lite cycle
  CPortInfo ports;
  bool lite = false;
  bool forced = false;     // when it began
  bool collected = false;  // the current list's modified flag is this cycle's
  int changed = 0;
};

void HbaDiscoverCycle::DoDiscoveryCycle(int full) {
  if (!EnterCycle()) return;
  Cycle cycle;
  cycle.current = m_Parts.picture.GetCurrentList();
  cycle.ports.SetStopQuery([this] { return m_Parts.state.StopRequested(); });
  cycle.ports.SetAnswers(m_Parts.answers);
  // Looked at once, for both: a cycle that is not lite because of a request is the requested one.
  cycle.forced = m_Parts.state.IsForced();
  cycle.lite = !m_Parts.settings.fullDiscoveryOnly && full == 0 && !cycle.forced;
  const CycleEnd end = RunCycle(cycle);
  if (end == CycleEnd::kSkipped) return SkipCycle();
  if (end == CycleEnd::kForcedMeanwhile) {
    m_Parts.state.EndCycle(false);
    return DoDiscoveryCycle(1);
  }
  if (end == CycleEnd::kStopped) {
    StopCycle(cycle);
  } else {
    // A full cycle that was not asked for serves a request that has come meanwhile.
    const bool served = end == CycleEnd::kDone && !cycle.lite && m_Parts.state.IsForced();
    const bool forced = cycle.forced || served;
    const int changed = forced ? AwaitOob(cycle.changed) : cycle.changed;
    if (end == CycleEnd::kDone && m_Parts.first.IsAwaited() && !m_Parts.state.StopRequested()) {
      m_Parts.first.Done();
      m_Parts.kept.Note();
      m_Parts.first.Announce();
    }
    ReportCycle(changed, forced);
  }
  EndCycle(cycle);
}

// Sets the in-cycle bit; false when a cycle is running already or the controller stops. A directed refresh
// lasts as long as its provider call, and a forced request as long as the cycle that it kills; a stop must not
// wait for that.
bool HbaDiscoverCycle::EnterCycle() {
  for (;;) {
    const CycleGate::Entry entry = m_Parts.gate.BeginCycle();
    if (entry != CycleGate::Entry::kHeld) return entry == CycleGate::Entry::kBegun;
    if (m_Parts.mainThread.Terminated() != 0 || !m_Parts.state.IsStarted()) return false;
    ZylSleep(kLockPoll);
  }
}

// A cycle that runs out of memory leaves what was listed and ends like any other: who waits for a forced one is
// called back.
HbaDiscoverCycle::CycleEnd HbaDiscoverCycle::RunCycle(Cycle& cycle) {
  const ProviderLook look;
  try {
    return TryCycle(cycle);
  } catch (const std::exception& failure) {
    disco_printf(kLogInBand, nullptr, "In-Band Discovery: cycle given up (%s)", failure.what());
  }
  m_PortPool.TerminateThreadsImmediate();
  m_WorkerParams->Clear();
  if (cycle.collected && cycle.current != nullptr) cycle.changed = cycle.current->IsModified();
  cycle.fresh = nullptr;
  m_Parts.picture.DropGathered();
  return m_Parts.state.StopRequested() ? CycleEnd::kStopped : CycleEnd::kFailed;
}

HbaDiscoverCycle::CycleEnd HbaDiscoverCycle::TryCycle(Cycle& cycle) {
  BeginKind(cycle);
  if (CollectPorts(cycle) == kSkipCycle) return CycleEnd::kSkipped;
  VisitPorts(cycle);
  if (m_Parts.state.StopRequested()) return CycleEnd::kStopped;
  if (cycle.lite) return FinishLiteCycle(cycle);
  disco_printf(kLogInBand, nullptr, "In-Band Discovery: Full discovery - updating discovery lists");
  m_Parts.kept.Update(KeptPicture::Side::kBoards,
                      [&] { cycle.changed = m_Parts.picture.UpdateDiscoveryLists(); });
  return CycleEnd::kDone;
}

void HbaDiscoverCycle::BeginKind(Cycle& cycle) {
  if (cycle.lite) {
    disco_printf(kLogCycleBounds | kLogInBand, nullptr, "In-Band Discovery: Doing Lite discovery cycle");
    ++m_LiteCycleCount;
  } else {
    disco_printf(kLogCycleBounds | kLogInBand, nullptr, "In-Band Discovery: Doing full discovery cycle");
    m_LiteCycleCount = 0;
  }
  cycle.fresh = m_Parts.picture.Gather(!cycle.lite);
}

int HbaDiscoverCycle::CollectPorts(Cycle& cycle) {
  if (m_Parts.kept.IsFollowed()) cycle.ports.SetSeen(m_Parts.picture.GetSeen());
  const int result = cycle.ports.BuildDiscoPortsList(cycle.current, cycle.fresh, m_Parts.slow.GetHbaList(),
                                                     cycle.lite ? 1 : 0, m_LiteCycleCount);
  cycle.collected = true;
  disco_printf(kLogInBand, nullptr, "In-Band Discovery: Back from BuildDiscoPortsList - result = %d", result);
  if (result < 1) return result;

  disco_printf(kLogCycleBounds | kLogInBand, nullptr, "%s", EscalationText(result));
  cycle.lite = false;
  m_LiteCycleCount = 0;
  cycle.fresh = m_Parts.picture.Gather(true);
  cycle.ports.BuildDiscoPortsList(cycle.current, cycle.fresh, m_Parts.slow.GetHbaList(), 0, 0);
  return 0;
}

void HbaDiscoverCycle::VisitPorts(Cycle& cycle) {
  const unsigned int count = cycle.ports.GetNumberOfDiscoPorts();
  disco_printf(kLogInBand, nullptr, "In-Band Discovery: Number of disco ports: %d", static_cast<int>(count));
  if (m_Parts.hurried.load()) return VisitPortsAtOnce(cycle);
  m_PortPool.AdjustThreadCount(std::min(count, m_Parts.settings.maxPortThreads), PortDiscoveryThreadProc,
                               m_WorkerParams, 0);
  m_Parts.mainThread.WaitForSignal(kSettlePause);
  if (count == 0 || m_Parts.state.StopRequested()) return;

  const std::shared_ptr<CHbaList> visit = cycle.ports.GetDiscoPortsList();
  {
    HbaListGuard guard(*visit);
    visit->SelectFirstEntry();
  }
  m_WorkerParams->Set(visit, cycle.lite ? cycle.current : cycle.fresh, m_Parts.slow.GetHbaList(),
                      m_Parts.answers, m_Parts.kept.IsFollowed());
  disco_printf(kLogInBand, nullptr, "In-Band Discovery: Enabling port discovery threads");
  m_PortPool.EnableThreads();
  AwaitWorkers(cycle);
  disco_printf(kLogInBand, nullptr, "In-Band Discovery: All port discovery threads idle");
  // The lists of this cycle go with it, unless a late worker is still inside a call.
  m_WorkerParams->Clear();
}

void HbaDiscoverCycle::VisitPortsAtOnce(const Cycle& cycle) {
  if (cycle.ports.GetNumberOfDiscoPorts() == 0 || m_Parts.state.StopRequested()) return;
  const std::shared_ptr<CHbaList> visit = cycle.ports.GetDiscoPortsList();
  {
    HbaListGuard guard(*visit);
    visit->SelectFirstEntry();
  }
  HurriedVisit visits(std::make_shared<const PortDiscoveryBlock>(
      PortDiscoveryBlock{visit, cycle.lite ? cycle.current : cycle.fresh, m_Parts.slow.GetHbaList(),
                         m_Parts.answers, m_Parts.kept.IsFollowed()}));
  visits.Await([this] { return m_Parts.state.StopRequested(); });
}

void HbaDiscoverCycle::AwaitWorkers(const Cycle& cycle) {
  const unsigned int interval = m_Parts.GetIntermediateCBInterval();
  unsigned int ticks = 0;
  while (m_PortPool.AllThreadsIdle() == 0 && !m_Parts.state.StopRequested()) {
    m_Parts.mainThread.WaitForSignal(kIdlePoll);
    if (!m_Parts.state.IsForced() || interval <= kShortestIntermediateInterval || cycle.fresh == nullptr) {
      continue;
    }
    if (++ticks * kIdlePoll < interval * 1000) continue;
    IntermediateUpdate(cycle);
    ticks = 0;
  }
}

void HbaDiscoverCycle::IntermediateUpdate(const Cycle& cycle) {
  disco_printf(kLogInBand | kLogOob, nullptr,
               "Main Discovery wating for IB & OOB: checking to do int. callback\n");
  const int changed = cycle.current->MergeLists(cycle.fresh.get(), 1, 0);
  const std::shared_ptr<COOBHbaDiscover> oob = m_Parts.remote.Get();
  if (changed != 0 || (oob != nullptr && oob->DiscoveryListChanged() != 0)) {
    m_Parts.Report({.intermediate = true});
  }
}

HbaDiscoverCycle::CycleEnd HbaDiscoverCycle::FinishLiteCycle(Cycle& cycle) {
  CHbaList& current = *cycle.current;
  m_Parts.kept.Update(KeptPicture::Side::kBoards, [] {});  // the list was brought up to date port by port
  {
    HbaListGuard guard(current);
    cycle.changed = current.IsModified();
    disco_printf(kLogInBand, nullptr,
                 "In-Band Discovery: Checking for undiscovered HBAs on main discovery list");
    if (RemoveUnMarkedEntries(current, m_LiteCycleCount) != 0) cycle.changed = 1;
    if (m_Parts.state.StopRequested()) return CycleEnd::kDone;
    disco_printf(kLogInBand, nullptr,
                 "In-Band Discovery: Checking for undiscovered HBAs on slow discovery list");
    if (const std::shared_ptr<CHbaList> slowList = m_Parts.slow.GetHbaList(); slowList != nullptr) {
      CHbaList& slow = *slowList;
      HbaListGuard slowGuard(slow);
      RemoveUnMarkedEntries(slow, m_LiteCycleCount);
    }
    if (m_Parts.state.StopRequested() || !m_Parts.state.IsForced()) return CycleEnd::kDone;
    disco_printf(kLogInBand, nullptr, "In-Band Discovery: Forced discovery requested during lite cycle.");
  }
  m_Parts.slow.Pause(0);
  m_Parts.slow.Reset();
  disco_printf(kLogInBand, nullptr,
               "In-Band Discovery: Starting forced discovery request after lite cycle completion.");
  // Stopped while slow discovery was reset: the forced cycle is not begun either.
  return m_Parts.state.StopRequested() ? CycleEnd::kStopped : CycleEnd::kForcedMeanwhile;
}

void HbaDiscoverCycle::SkipCycle() {
  m_Parts.picture.DropGathered();
  const bool forced = (m_Parts.state.EndCycle(true) & kStateForced) != 0;
  if (forced) {
    disco_printf(kLogInBand, nullptr, "In-Band Discovery: callback\n");
    m_Parts.Report({.forced = true});
  }
  disco_printf(kLogCycleBounds | kLogInBand, nullptr, "** DISCOVERY CYCLE DONE (cycle skipped) **\n\n");
  m_Parts.state.DropUnwaitedKill();
}

// A request that came after the cycle had begun otherwise stays, for the next one.
void HbaDiscoverCycle::StopCycle(const Cycle& cycle) {
  disco_printf(kLogCycleBounds | kLogInBand, nullptr, "Forced stop of discovery cycle");
  m_PortPool.TerminateThreadsImmediate();
  m_Parts.state.EndCycle(cycle.forced);
}

// A forced cycle reports for both sides: waits for the remote hosts, and answers whether anything has changed.
int HbaDiscoverCycle::AwaitOob(int changed) {
  // Held until the wait is over: a stop drops it meanwhile.
  const std::shared_ptr<COOBHbaDiscover> oob = m_Parts.remote.Get();
  if (oob == nullptr || (oob->GetDiscoveryState() & kOobRunning) == 0) return changed;
  disco_printf(kLogInBand, nullptr, "Main Discovery: Waiting for OOB discovery to complete");
  const unsigned int interval = m_Parts.GetIntermediateCBInterval();
  unsigned int ticks = 0;
  int untold = changed;
  while (OobBusy(*oob) && !m_Parts.state.StopRequested()) {
    m_Parts.mainThread.WaitForSignal(kIdlePoll);
    if (interval <= kShortestIntermediateInterval || ++ticks * kIdlePoll < interval * 1000) continue;
    disco_printf(kLogInBand, nullptr, "Main Discovery waiting for OOB: checking to do int. callback\n");
    const int oobChanged = oob->ClearListChanged();
    if (untold != 0 || oobChanged != 0) m_Parts.Report({.intermediate = true});
    ticks = 0;
    untold = 0;
  }
  if (m_Parts.state.StopRequested()) return changed;
  disco_printf(kLogInBand, nullptr, "Main Discovery: OOB discovery completed");
  if (changed == 1) return changed;
  disco_printf(kLogInBand, nullptr, "Main Discovery: Checking OOB discovery for changes.");
  const int oobChanged = oob->DiscoveryListChanged();
  if (oobChanged != 0) disco_printf(kLogInBand, nullptr, "Main Discovery: OOB discovery list changed");
  return oobChanged;
}

void HbaDiscoverCycle::ReportCycle(int changed, bool forced) {
  // A request that a callback left in the last moments of a periodic cycle stays, for the next one.
  m_Parts.state.EndCycle(forced);
  constexpr std::uint32_t kRunning = kStateStarted | kStateEnabled;
  if ((m_Parts.state.Get() & (kRunning | kStateKillRequested)) != kRunning) return;
  disco_printf(kLogInBand, nullptr, "Main Discovery: doing callback\n");
  m_Parts.Report({.changed = changed != 0, .forced = forced});
}

void HbaDiscoverCycle::EndCycle(const Cycle& cycle) {
  m_Parts.firstCyclePending = false;
  if (!m_Parts.state.IsKilled() && cycle.current != nullptr) {
    disco_printf(kLogCycleBounds | kLogInBand, nullptr, "** DISCOVERY CYCLE DONE Adapter Ports=%d **\n\n",
                 static_cast<int>(cycle.current->GetCount()));
  } else {
    disco_printf(kLogCycleBounds | kLogInBand, nullptr, "** DISCOVERY CYCLE DONE **\n\n");
  }
  m_Parts.state.DropUnwaitedKill();
}

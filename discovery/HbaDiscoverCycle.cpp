// One in-band cycle, from the main thread's loop to the callback.

#include <algorithm>
#include <exception>

#include "discovery/HbaDiscover.h"
#include "inband/LocalHbaInfo.h"
#include "log/DiscoveryLog.h"

namespace {

constexpr unsigned int kForEver = 0xFFFFFFFFU;
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

}  // namespace

enum class CHbaDiscover::CycleEnd {
  kDone,
  kFailed,           // no memory
  kSkipped,          // the local ports could not be enumerated
  kStopped,          // killed, or discovery is terminated
  kForcedMeanwhile,  // lite: a forced cycle was asked for and starts at once
};

struct CHbaDiscover::Cycle {
  std::shared_ptr<CHbaList> current;
  std::shared_ptr<CHbaList> fresh;  // null in a lite cycle
  CPortInfo ports;
  bool lite = false;
  bool forced = false;     // when it began
  bool collected = false;  // the current list's modified flag is this cycle's
  int changed = 0;
};

void* CHbaDiscover::DiscoveryThread(void* self) {
  static_cast<CHbaDiscover*>(self)->DiscoveryProc();
  return nullptr;
}

int CHbaDiscover::DiscoveryProc() {
  disco_printf(kLogInBand, nullptr, "Main in-band discovery thread running");
  const std::shared_ptr<CHbaList> kept = m_CurrentList.Get();
  if (kept != nullptr && kept->GetCount() != 0) {
    disco_printf(kLogInBand, nullptr, "Got persistent discovery data - doing callback now");
    DoCallBack(1, 0, 0);
  }
  int first = 1;
  while (!Terminated()) {
    const std::uint32_t interval = m_Interval.load();
    const std::uint32_t state = m_State.load();
    if ((state & kStateForced) != 0 || ((state & kStateEnabled) != 0 && interval != 0)) {
      DoDiscoveryCycle(first);
      first = 0;
    }
    // The pauses inside a cycle may have used up the signal that came with a request.
    constexpr std::uint32_t kRequested = kStateStarted | kStateForced;
    if (Terminated() || (m_State.load() & kRequested) == kRequested) continue;
    WaitForSignal(m_Interval.load() == 0 ? kForEver : m_Interval.load());
  }
  disco_printf(kLogInBand, nullptr, "Main in-band discovery thread terminating");
  return 0;
}

bool CHbaDiscover::StopRequested() {
  const std::uint32_t state = m_State.load();
  return (state & kStateKillRequested) != 0 || (state & kStateStarted) == 0 || Terminated();
}

void CHbaDiscover::DoDiscoveryCycle(int full) {
  if (!EnterCycle()) return;
  Cycle cycle;
  cycle.current = m_CurrentList.Get();
  cycle.ports.SetStopQuery([this] { return StopRequested(); });
  // Looked at once, for both: a cycle that is not lite because of a request is the requested one.
  cycle.forced = (m_State.load() & kStateForced) != 0;
  cycle.lite = !m_FullDiscoveryOnly && full == 0 && !cycle.forced;
  const CycleEnd end = RunCycle(cycle);
  if (end == CycleEnd::kSkipped) return SkipCycle();
  if (end == CycleEnd::kForcedMeanwhile) {
    LeaveCycle(0);
    return DoDiscoveryCycle(1);
  }
  if (end == CycleEnd::kStopped) {
    StopCycle(cycle);
  } else {
    // A full cycle that was not asked for serves a request that has come meanwhile.
    const bool served = end == CycleEnd::kDone && !cycle.lite && (m_State.load() & kStateForced) != 0;
    const bool forced = cycle.forced || served;
    ReportCycle(forced ? AwaitOob(cycle.changed) : cycle.changed, forced);
  }
  EndCycle(cycle);
}

// A cycle that runs out of memory leaves what was listed and ends like any other: who waits for a forced one is
// called back.
CHbaDiscover::CycleEnd CHbaDiscover::RunCycle(Cycle& cycle) {
  try {
    return TryCycle(cycle);
  } catch (const std::exception& failure) {
    disco_printf(kLogInBand, nullptr, "In-Band Discovery: cycle given up (%s)", failure.what());
  }
  m_PortPool.TerminateThreadsImmediate();
  m_WorkerParams->Clear();
  if (cycle.collected && cycle.current != nullptr) cycle.changed = cycle.current->IsModified();
  cycle.fresh = nullptr;
  FreeHbaList(m_NewList);
  return StopRequested() ? CycleEnd::kStopped : CycleEnd::kFailed;
}

CHbaDiscover::CycleEnd CHbaDiscover::TryCycle(Cycle& cycle) {
  BeginKind(cycle);
  if (CollectPorts(cycle) == kSkipCycle) return CycleEnd::kSkipped;
  VisitPorts(cycle);
  if (StopRequested()) return CycleEnd::kStopped;
  if (cycle.lite) return FinishLiteCycle(cycle);
  disco_printf(kLogInBand, nullptr, "In-Band Discovery: Full discovery - updating discovery lists");
  cycle.changed = UpdateDiscoveryLists();
  return CycleEnd::kDone;
}

// Sets the in-cycle bit; false when a cycle is running already or the controller stops.
bool CHbaDiscover::EnterCycle() {
  // A directed refresh lasts as long as its provider call, and a forced request as long as the cycle that it
  // kills; a stop must not wait for that.
  for (;;) {
    {
      LockGuard guard(m_CycleLock);
      if (m_Refresh == nullptr && !m_Forcing) return BeginCycle();
    }
    if (Terminated() || (m_State.load() & kStateStarted) == 0) return false;
    ZylSleep(kLockPoll);
  }
}

// What was to stop an earlier cycle has no meaning for this one.
bool CHbaDiscover::BeginCycle() {
  LockGuard guard(m_KillLock);
  if ((m_State.load() & (kStateInCycle | kStateStarted)) != kStateStarted) return false;
  ++m_CycleNumber;
  m_State.fetch_and(~static_cast<std::uint32_t>(kStateKillRequested));
  m_State.fetch_or(kStateInCycle);
  return true;
}

// Clears the in-cycle bit and `bits`, and answers what the state was. The signal of a kill that nobody waited
// for would start the next cycle at once; it goes first, since from then on a signal asks for a cycle.
std::uint32_t CHbaDiscover::LeaveCycle(std::uint32_t bits) {
  LockGuard guard(m_KillLock);
  if ((m_State.load() & kStateKillRequested) != 0) UnSignal();
  return m_State.fetch_and(~(bits | kStateInCycle));
}

void CHbaDiscover::BeginKind(Cycle& cycle) {
  if (cycle.lite) {
    disco_printf(kLogCycleBounds | kLogInBand, nullptr, "In-Band Discovery: Doing Lite discovery cycle");
    ++m_LiteCycleCount;
    cycle.fresh = nullptr;
  } else {
    disco_printf(kLogCycleBounds | kLogInBand, nullptr, "In-Band Discovery: Doing full discovery cycle");
    m_LiteCycleCount = 0;
    cycle.fresh = std::make_shared<CHbaList>(ListRank::kGathered);
  }
  FreeHbaList(m_NewList);
  m_NewList.Set(cycle.fresh);
}

int CHbaDiscover::BuildPortsList(CPortInfo& ports, const std::shared_ptr<CHbaList>& current,
                                 const std::shared_ptr<CHbaList>& fresh, int lite, unsigned int mark) {
  return ports.BuildDiscoPortsList(current, fresh, GetSlowList(), lite, mark);
}

int CHbaDiscover::CollectPorts(Cycle& cycle) {
  const int result =
      BuildPortsList(cycle.ports, cycle.current, cycle.fresh, cycle.lite ? 1 : 0, m_LiteCycleCount);
  cycle.collected = true;
  disco_printf(kLogInBand, nullptr, "In-Band Discovery: Back from BuildDiscoPortsList - result = %d", result);
  if (result < 1) return result;

  disco_printf(kLogCycleBounds | kLogInBand, nullptr, "%s", EscalationText(result));
  cycle.lite = false;
  m_LiteCycleCount = 0;
  cycle.fresh = std::make_shared<CHbaList>(ListRank::kGathered);
  FreeHbaList(m_NewList);
  m_NewList.Set(cycle.fresh);
  BuildPortsList(cycle.ports, cycle.current, cycle.fresh, 0, 0);
  return 0;
}

void CHbaDiscover::SkipCycle() {
  FreeHbaList(m_NewList);
  const bool forced = (LeaveCycle(kStateForced) & kStateForced) != 0;
  if (forced) {
    disco_printf(kLogInBand, nullptr, "In-Band Discovery: callback\n");
    DoCallBack(0, 1, 0);
  }
  disco_printf(kLogCycleBounds | kLogInBand, nullptr, "** DISCOVERY CYCLE DONE (cycle skipped) **\n\n");
  DropUnawaitedKill();
}

void CHbaDiscover::VisitPorts(Cycle& cycle) {
  const unsigned int count = cycle.ports.GetNumberOfDiscoPorts();
  disco_printf(kLogInBand, nullptr, "In-Band Discovery: Number of disco ports: %d", static_cast<int>(count));
  m_PortPool.AdjustThreadCount(std::min(count, m_MaxPortThreads), PortDiscoveryThreadProc, m_WorkerParams, 0);
  WaitForSignal(kSettlePause);
  if (count == 0 || StopRequested()) return;

  const std::shared_ptr<CHbaList> visit = cycle.ports.GetDiscoPortsList();
  {
    HbaListGuard guard(*visit);
    visit->SelectFirstEntry();
  }
  m_WorkerParams->Set(visit, cycle.lite ? cycle.current : cycle.fresh, GetSlowList());
  disco_printf(kLogInBand, nullptr, "In-Band Discovery: Enabling port discovery threads");
  m_PortPool.EnableThreads();
  AwaitWorkers(cycle);
  disco_printf(kLogInBand, nullptr, "In-Band Discovery: All port discovery threads idle");
  // The lists of this cycle go with it, unless a late worker is still inside a call.
  m_WorkerParams->Clear();
}

void CHbaDiscover::AwaitWorkers(const Cycle& cycle) {
  const unsigned int interval = GetIntermediateCBInterval();
  unsigned int ticks = 0;
  while (m_PortPool.AllThreadsIdle() == 0 && !StopRequested()) {
    WaitForSignal(kIdlePoll);
    if ((m_State.load() & kStateForced) == 0 || interval <= kShortestIntermediateInterval ||
        cycle.fresh == nullptr) {
      continue;
    }
    if (++ticks * kIdlePoll < interval * 1000) continue;
    IntermediateUpdate(cycle);
    ticks = 0;
  }
}

void CHbaDiscover::IntermediateUpdate(const Cycle& cycle) {
  disco_printf(kLogInBand | kLogOob, nullptr,
               "Main Discovery wating for IB & OOB: checking to do int. callback\n");
  const int changed = cycle.current->MergeLists(cycle.fresh.get(), 1, 0);
  const std::shared_ptr<COOBHbaDiscover> oob = m_OobDiscoverer.Get();
  if (changed != 0 || (oob != nullptr && oob->DiscoveryListChanged() != 0)) DoCallBack(0, 0, 1);
}

// A forced cycle reports for both sides: waits for the remote hosts, and answers whether anything has changed.
int CHbaDiscover::AwaitOob(int changed) {
  // Held until the wait is over: a stop drops it meanwhile.
  const std::shared_ptr<COOBHbaDiscover> oob = m_OobDiscoverer.Get();
  if (oob == nullptr || (oob->GetDiscoveryState() & kOobRunning) == 0) return changed;
  disco_printf(kLogInBand, nullptr, "Main Discovery: Waiting for OOB discovery to complete");
  const unsigned int interval = GetIntermediateCBInterval();
  unsigned int ticks = 0;
  int untold = changed;
  while (OobBusy(*oob) && !StopRequested()) {
    WaitForSignal(kIdlePoll);
    if (interval <= kShortestIntermediateInterval || ++ticks * kIdlePoll < interval * 1000) continue;
    disco_printf(kLogInBand, nullptr, "Main Discovery waiting for OOB: checking to do int. callback\n");
    const int oobChanged = oob->ClearListChanged();
    if (untold != 0 || oobChanged != 0) DoCallBack(0, 0, 1);
    ticks = 0;
    untold = 0;
  }
  if (StopRequested()) return changed;
  disco_printf(kLogInBand, nullptr, "Main Discovery: OOB discovery completed");
  if (changed == 1) return changed;
  disco_printf(kLogInBand, nullptr, "Main Discovery: Checking OOB discovery for changes.");
  const int oobChanged = oob->DiscoveryListChanged();
  if (oobChanged != 0) disco_printf(kLogInBand, nullptr, "Main Discovery: OOB discovery list changed");
  return oobChanged;
}

// A request that came after the cycle had begun otherwise stays, for the next one.
void CHbaDiscover::StopCycle(const Cycle& cycle) {
  disco_printf(kLogCycleBounds | kLogInBand, nullptr, "Forced stop of discovery cycle");
  m_PortPool.TerminateThreadsImmediate();
  LeaveCycle(cycle.forced ? kStateForced : 0U);
}

CHbaDiscover::CycleEnd CHbaDiscover::FinishLiteCycle(Cycle& cycle) {
  CHbaList& current = *cycle.current;
  {
    HbaListGuard guard(current);
    cycle.changed = current.IsModified();
    disco_printf(kLogInBand, nullptr,
                 "In-Band Discovery: Checking for undiscovered HBAs on main discovery list");
    if (RemoveUnMarkedEntries(current, m_LiteCycleCount) != 0) cycle.changed = 1;
    if (StopRequested()) return CycleEnd::kDone;
    disco_printf(kLogInBand, nullptr,
                 "In-Band Discovery: Checking for undiscovered HBAs on slow discovery list");
    if (const std::shared_ptr<CHbaList> slowList = GetSlowList(); slowList != nullptr) {
      CHbaList& slow = *slowList;
      HbaListGuard slowGuard(slow);
      RemoveUnMarkedEntries(slow, m_LiteCycleCount);
    }
    if (StopRequested() || (m_State.load() & kStateForced) == 0) return CycleEnd::kDone;
    disco_printf(kLogInBand, nullptr, "In-Band Discovery: Forced discovery requested during lite cycle.");
  }
  PauseSlow(0);
  ResetSlow();
  disco_printf(kLogInBand, nullptr,
               "In-Band Discovery: Starting forced discovery request after lite cycle completion.");
  // Stopped while slow discovery was reset: the forced cycle is not begun either.
  return StopRequested() ? CycleEnd::kStopped : CycleEnd::kForcedMeanwhile;
}

int CHbaDiscover::RemoveUnMarkedEntries(CHbaList& list, unsigned int mark) {
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

int CHbaDiscover::UpdateDiscoveryLists() {
  const std::shared_ptr<CHbaList> current = m_CurrentList.Get();
  const std::shared_ptr<CHbaList> fresh = m_NewList.Get();
  const int changed = current == nullptr ? 0 : current->MergeLists(fresh.get(), 1, 1);
  FreeHbaList(m_NewList);
  return changed;
}

void CHbaDiscover::ReportCycle(int changed, bool forced) {
  // A request that a callback left in the last moments of a periodic cycle stays, for the next one.
  LeaveCycle(forced ? kStateForced : 0U);
  constexpr std::uint32_t kRunning = kStateStarted | kStateEnabled;
  if ((m_State.load() & (kRunning | kStateKillRequested)) != kRunning) return;
  disco_printf(kLogInBand, nullptr, "Main Discovery: doing callback\n");
  DoCallBack(changed, forced ? 1 : 0, 0);
}

void CHbaDiscover::EndCycle(const Cycle& cycle) {
  m_FirstCyclePending = false;
  if ((m_State.load() & kStateKillRequested) == 0 && cycle.current != nullptr) {
    disco_printf(kLogCycleBounds | kLogInBand, nullptr, "** DISCOVERY CYCLE DONE Adapter Ports=%d **\n\n",
                 static_cast<int>(cycle.current->GetCount()));
  } else {
    disco_printf(kLogCycleBounds | kLogInBand, nullptr, "** DISCOVERY CYCLE DONE **\n\n");
  }
  DropUnawaitedKill();
}

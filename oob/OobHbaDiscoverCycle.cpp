// The main thread of out-of-band discovery and its cycle.

#include <algorithm>
#include <chrono>
#include <exception>
#include <vector>

#include "log/DiscoveryLog.h"
#include "oob/OobHbaDiscover.h"

namespace {

constexpr unsigned int kForEver = 0xFFFFFFFF;
constexpr unsigned int kFirstPause = 500;  // milliseconds
constexpr unsigned int kIdlePoll = 250;    // milliseconds
constexpr unsigned int kMaxThreads = 14;
// Of the limit of a call: as long a cycle waits for what silent hosts answer, which is soon or not at all.
constexpr int kSilentShare = 5;
// An application hears of a remote change with the in-band thread's next intermediate callback: merge a little
// earlier.
constexpr std::uint64_t kIntermediateLead = 2000;      // milliseconds
constexpr std::uint64_t kShortestIntermediate = 2001;  // milliseconds
constexpr int kAskCache = -1;
constexpr unsigned int kKeepCache = 2;

constexpr unsigned int kLogBounds = kLogCycleBounds | kLogOobCycle | kLogOob;
constexpr unsigned int kLogCycle = kLogOobCycle | kLogOob;

std::uint64_t IntermediatePeriod(unsigned int seconds) {
  const std::uint64_t period = std::uint64_t{seconds} * 1000;
  return period > kIntermediateLead ? period - kIntermediateLead : period;
}

std::vector<_RM_IP_INFO> HostsOf(COobIpAddressList& list) {
  std::vector<_RM_IP_INFO> hosts;
  const OobIpAddressListGuard guard(list);
  for (const auto* host = list.FirstEntry(); host != nullptr; host = list.NextEntry()) {
    hosts.push_back(*host->GetIpAddress());
  }
  return hosts;
}

// Takes hosts out of a list, and returns those that were there as they stood there.
std::vector<_RM_IP_INFO> Take(const std::vector<_RM_IP_INFO>& hosts, COobIpAddressList& list) {
  std::vector<_RM_IP_INFO> taken;
  const OobIpAddressListGuard guard(list);
  for (const _RM_IP_INFO& host : hosts) {
    const COobIpAddressEntry* entry = list.FindEntry(&host);
    if (entry == nullptr) continue;
    taken.push_back(*entry->GetIpAddress());
    list.RemoveEntry(&host);
  }
  return taken;
}

// A wait for WaitForSignal, which reads milliseconds as a signed number.
unsigned int WaitMilliseconds(std::uint64_t seconds) {
  const std::uint64_t wait = seconds * 1000;
  return wait > 0x7FFFFFFF ? kForEver : static_cast<unsigned int>(wait);
}

}  // namespace

void* COOBHbaDiscover::DiscoveryThread(void* self) {
  static_cast<COOBHbaDiscover*>(self)->DiscoveryProc();
  return nullptr;
}

void COOBHbaDiscover::DiscoveryProc() {
  m_ThreadId = std::this_thread::get_id();
  disco_printf(kLogStartStop, nullptr, "Main OOB discovery thread running");
  WaitForSignal(kFirstPause);
  while (Terminated() == 0) {
    if (HasState(kOobForced) || (HasState(kOobEnabled) && m_Interval.load() != 0)) RunCycle();
    KeepCache();
    AwaitNextCycle();
  }
  StopWorkers();
  m_Cycle->Set(nullptr);
  disco_printf(kLogStartStop, nullptr, "OOB main discovery thread terminated");
  m_ThreadId = std::thread::id();
  m_Shared->state = 0;
}

void COOBHbaDiscover::RunCycle() {
  try {
    DoOOBDiscovery();
    return;
  } catch (const std::exception& failure) {
    disco_printf(kLogDetails, nullptr, "OOB: cycle given up, error: %s", failure.what());
  }
  try {
    StopWorkers();
  } catch (const std::exception&) {
    // No memory for that either; the cycle ends all the same.
  }
  EndCycle();
}

// What remote hosts have answered is good for the next cycle too, until somebody turns the cache off.
void COOBHbaDiscover::KeepCache() {
  const int flags = RM_OOBHandleCacheControl(kAskCache);
  RM_OOBHandleCacheControl(static_cast<int>(static_cast<unsigned int>(flags) | kKeepCache));
}

void COOBHbaDiscover::AwaitNextCycle() {
  // The pauses inside a cycle may have used up the signal that came with a request.
  if (Terminated() != 0 || HasState(kOobForced)) return;
  const std::uint64_t interval = m_Interval.load();
  WaitForSignal(HasState(kOobEnabled) && interval != 0 ? WaitMilliseconds(interval) : kForEver);
}

bool COOBHbaDiscover::EnterCycle() {
  std::uint32_t state = m_Shared->state.load();
  do {
    if ((state & kOobInCycle) != 0 || Terminated() != 0) return false;
  } while (!m_Shared->state.compare_exchange_weak(state, state | kOobInCycle));
  return true;
}

void COOBHbaDiscover::DoOOBDiscovery() {
  if (!EnterCycle()) return;
  m_ListChanged = 0;
  disco_printf(kLogBounds, nullptr, "OOB DISCOVERY CYCLE - Starting discovery cycle");
  const auto cycle = std::make_shared<OobCycle>(m_Shared);
  m_Cycle->Set(cycle);
  ProcessAllHostsFile();
  if (!StopForced()) {
    unsigned int hosts = 0;
    {
      const OobIpAddressListGuard guard(cycle->addresses);
      hosts = cycle->addresses.GetCount();
      cycle->addresses.SelectFirstEntry();
    }
    VisitHosts(cycle, hosts);
    if (StopForced()) {
      StopWorkers();
    } else {
      m_Owner->UpdateFromHosts([&] {
        if (hosts != 0) MergeFound(*cycle);
      });
      ReportCycle(*cycle);
      m_Owner->NotePicture();
    }
    disco_printf(kLogBounds, nullptr, "OOB DISCOVERY CYCLE DONE (%d)\n",
                 static_cast<int>(cycle->found.GetCount()));
  }
  EndCycle();
}

// Whether the cycle is to stop, and says so.
bool COOBHbaDiscover::StopForced() {
  if (!StopRequested()) return false;
  disco_printf(kLogBounds, nullptr, "Forced stop of OOB discovery cycle");
  return true;
}

void COOBHbaDiscover::VisitHosts(const std::shared_ptr<OobCycle>& cycle, unsigned int hosts) {
  m_ThreadPool.AdjustThreadCount(std::min(hosts, kMaxThreads), HbaDiscoveryThread, m_Cycle, 0);
  if (hosts == 0) return;
  disco_printf(kLogCycle, nullptr, "OOB Discovery: Enabling discovery threads");
  const bool silentAsked = AskSilentHosts(cycle);
  m_ThreadPool.EnableThreads();
  AwaitWorkers(*cycle, silentAsked);
}

// Hosts that have kept a worker waiting for nothing are asked beside the others, so that these do not wait
// behind them, and the cycle does not wait for them to run into the limit again. One that answers is read in
// this cycle, or in the next one when it comes too late for this.
bool COOBHbaDiscover::AskSilentHosts(const std::shared_ptr<OobCycle>& cycle) {
  if (m_SilentPool.AllThreadsIdle() == 0) {
    // Some are still being asked since an earlier cycle; the others are visited.
    Take(m_SilentRound, cycle->addresses);
    return false;
  }
  const std::vector<_RM_IP_INFO> hosts = Take(HostsOf(m_Shared->silentHosts), cycle->addresses);
  if (hosts.empty()) return false;
  m_SilentRound = hosts;
  const auto silent = std::make_shared<OobSilentHosts>(cycle);
  {
    const OobIpAddressListGuard guard(silent->addresses);
    for (const _RM_IP_INFO& host : hosts) silent->addresses.AddEntry(&host);
    silent->addresses.SelectFirstEntry();
  }
  m_SilentPool.TerminateThreadsImmediate();  // they have ended by themselves
  const auto threads = static_cast<unsigned int>(std::min<std::size_t>(hosts.size(), kMaxThreads));
  m_SilentPool.AdjustThreadCount(threads, SilentHostThread, silent, 0);
  m_SilentPool.EnableThreads();
  return true;
}

// A wait that a signal cuts short counts as a whole one. Who asks for a cycle wants to hear of slow hosts, too.
void COOBHbaDiscover::AwaitWorkers(OobCycle& cycle, bool silentAsked) {
  const auto silentEnd =
      std::chrono::steady_clock::now() + m_Shared->callLimit / (cycle.IsForced() ? 1 : kSilentShare);
  const auto working = [&] {
    if (m_ThreadPool.AllThreadsIdle() == 0) return true;
    const bool early = std::chrono::steady_clock::now() < silentEnd;
    if (silentAsked && early && m_SilentPool.AllThreadsIdle() == 0) return true;
    // In this order: a silent host's worker counts itself before it looks whether the cycle is over.
    cycle.isOver = true;
    return cycle.silentInReading.load() != 0;
  };
  const std::uint64_t period = IntermediatePeriod(m_Owner->GetIntermediateCBInterval());
  std::uint64_t waits = 0;
  while (working() && !StopRequested()) {
    WaitForSignal(kIdlePoll);
    if (!cycle.IsForced() || period < kShortestIntermediate) continue;
    if (++waits * kIdlePoll < period) continue;
    IntermediateUpdate(cycle);
    waits = 0;
  }
}

void COOBHbaDiscover::IntermediateUpdate(OobCycle& cycle) {
  disco_printf(kLogCycle, nullptr, "OOB discovery: doing intermediate list update\n");
  const std::shared_ptr<CHbaList> current = m_Owner->GetCurrentList();
  if (current != nullptr && current->MergeLists(&cycle.found, 0, 0) != 0) m_ListChanged = 1;
}

void COOBHbaDiscover::MergeFound(OobCycle& cycle) {
  const std::shared_ptr<CHbaList> current = m_Owner->GetCurrentList();
  const auto found = static_cast<int>(cycle.found.GetCount());
  disco_printf(kLogCycle, nullptr,
               "All OOB port discovery threads idle, discovered %d HBAs, merging with list of %d HBAs", found,
               current == nullptr ? 0 : static_cast<int>(current->GetCount()));
  m_ListChanged = current == nullptr ? 0 : current->MergeLists(&cycle.found, 0, 1);
  // The number is that of this cycle, whatever the text says; users of the log know it so.
  disco_printf(kLogCycle, nullptr, "After merging with lists - list now has %d HBAs", found);
}

void COOBHbaDiscover::ReportCycle(OobCycle& cycle) {
  if (StopRequested()) return;
  if (RemoveUnDiscOOBEntries(cycle) != 0) m_ListChanged = 1;
  // A forced cycle is reported by the in-band cycle that waits for it.
  const int changed = m_ListChanged.load();
  if (changed == 0 || cycle.IsForced()) return;
  disco_printf(kLogOob, nullptr, "OOB DISCOVERY callback\n");
  m_Owner->DoCallBack(changed, 0, 0);
}

int COOBHbaDiscover::RemoveUnDiscOOBEntries(OobCycle& cycle) {
  const std::shared_ptr<CHbaList> kept = m_Owner->GetCurrentList();
  if (kept == nullptr) return 0;
  CHbaList& current = *kept;
  CHbaList& found = cycle.found;
  int changed = 0;
  const HbaListPairGuard guard(current, found);
  for (CHbaEntry* port = current.GetFirstEntry(); port != nullptr; port = current.GetNextEntry()) {
    const HBA_info_v4& info = *port->GetHbaInfo();
    if (found.FindEntry(info.portWwn) != nullptr) continue;
    if (port->ProxyOnly() != 0) {
      disco_printf(kLogOob, info.portWwn, "OOB: Removing board for host %.32s", info.hostName);
      current.RemoveCurrentEntry();
      changed = 1;
    } else if (port->GetProxyAddress()[0] != 0) {
      port->SetProxyAddress(nullptr);
      changed = 1;
    }
  }
  return changed;
}

void COOBHbaDiscover::EndCycle() {
  if (const std::shared_ptr<OobCycle> cycle = m_Cycle->Get(); cycle != nullptr) cycle->isOver = true;
  m_Cycle->Set(nullptr);
  const LockGuard guard(m_KillLock);
  const bool stopped = StopRequested();
  // The signal that came with the stop would start the next cycle at once.
  if (stopped) UnSignal();
  ++m_CyclesEnded;
  const bool again = stopped && m_ForceNext.load();
  m_ForceNext = false;
  ChangeState(kOobInCycle | kOobForced | kOobStopRequested, again ? kOobForced | kOobEnabled : 0U);
}

#include "discovery/DirectedDiscovery.h"

#include <chrono>
#include <exception>
#include <utility>

#include "inband/PortAttributes.h"
#include "inband/PortTargets.h"
#include "inband/PortVPorts.h"
#include "log/DiscoveryLog.h"
#include "model/WwpnKey.h"

namespace {

constexpr unsigned int kLogDirected = kLogInBand | kLogOob;
constexpr unsigned int kForEver = 0xFFFFFFFFU;
constexpr unsigned int kCyclePoll = 500000;  // microseconds
constexpr unsigned int kEndPoll = 10000;     // microseconds
// How long a stop waits for a refresh that is inside a provider call.
constexpr std::chrono::seconds kGiveUp{5};
// Marks the record of a local port that was read through its attributes, until the next full cycle.
constexpr std::uint32_t kRefreshedLocally = 0x80000000U;

enum What : unsigned int {
  kAttributes = 0x01,
  kTargets = 0x02,
  kVPorts = 0x04,
  kEverything = kAttributes | kTargets | kVPorts,
};

}  // namespace

void DirectedDiscovery::StartThread() {
  auto refresher = std::make_shared<Refresher>();
  auto start = std::make_unique<Start>(Start{this, refresher});
  {
    LockGuard guard(m_Lock);
    m_Threads.push_back(refresher);
  }
  if (refresher->thread.Create(DirectedDiscoveryThreadStartup, start.get(), 0, 0) == 0) return;
  static_cast<void>(start.release());  // the thread's now
  m_Taker.Set(refresher);
}

void DirectedDiscovery::AskToStop() {
  m_Taker.Set(nullptr);
  LockGuard guard(m_Lock);
  for (const auto& refresher : m_Threads) {
    refresher->thread.Disable();
    refresher->thread.TerminateImmediate();
  }
}

std::vector<std::shared_ptr<DirectedDiscovery::Refresher>> DirectedDiscovery::TakeThreads() {
  LockGuard guard(m_Lock);
  return std::exchange(m_Threads, {});
}

void DirectedDiscovery::Stop() {
  // All are asked before one is awaited: each notices within one and the same slice.
  AskToStop();
  const auto deadline = std::chrono::steady_clock::now() + kGiveUp;
  for (const auto& refresher : TakeThreads()) {
    CZylTpThread& thread = refresher->thread;
    while (!thread.Ended() && std::chrono::steady_clock::now() < deadline) ZylSleep(kEndPoll);
    if (thread.Ended()) {
      thread.Terminate();
    } else {
      thread.CleanUp();
      m_Parts.gate.LeaveRefresh(refresher.get());
    }
  }
}

void DirectedDiscovery::Join() {
  for (const auto& refresher : TakeThreads()) refresher->thread.Terminate();
}

int DirectedDiscovery::Update(const HBA_NAME& wwpn, unsigned int what) {
  disco_printf(kLogDirected, nullptr, "-- Directed Discovery Call --");
  const std::shared_ptr<Refresher> taker = m_Taker.Get();
  const std::shared_ptr<CHbaList> current = m_Parts.picture.GetCurrentList();
  if (taker == nullptr) return 0;
  // One step from the test to the mark: of two callers one is refused.
  LockGuard guard(taker->lock);
  if (taker->thread.IsIdle() == 0 || current == nullptr) return 0;
  bool known = false;
  {
    HbaListGuard listGuard(*current);
    known = current->FindEntry(wwpn.wwn) != nullptr;
  }
  if (!known) {
    disco_printf(kLogDirected, wwpn.wwn, "Directed Discovery error - did not find existing HBA entry");
    disco_printf(kLogDirected, nullptr, "Directed Discovery not done");
    return 0;
  }
  taker->wwpn = wwpn;
  taker->what = what == 0 ? kEverything : what;
  taker->pending = true;
  taker->thread.Enable();
  return 1;
}

void* DirectedDiscovery::DirectedDiscoveryThreadStartup(void* start) {
  const std::unique_ptr<Start> owned(static_cast<Start*>(start));
  owned->discovery->DirectedDiscoveryThreadProc(*owned->refresher);
  return nullptr;
}

void DirectedDiscovery::DirectedDiscoveryThreadProc(Refresher& refresher) {
  // Kept from request to request: one that was cut short reports what the one before it did.
  int changed = 0;
  while (refresher.thread.Terminated() == 0) {
    refresher.thread.WaitForSignal(kForEver);
    if (refresher.thread.Terminated() != 0) return;
    HBA_NAME wwpn;
    unsigned int what = 0;
    {
      LockGuard guard(refresher.lock);
      if (!refresher.pending) continue;
      refresher.pending = false;
      wwpn = refresher.wwpn;
      what = refresher.what;
    }
    disco_printf(kLogDirected, wwpn.wwn, "Directed Discovery - getting discovery lock");
    if (!EnterRefresh(refresher)) return;
    try {
      RefreshPort(refresher.thread, wwpn, what, &changed);
    } catch (const std::exception& failure) {
      disco_printf(kLogDirected, wwpn.wwn, "Directed Discovery - given up (%s)", failure.what());
      changed = 1;  // a part may have been merged
    }
    // One given up, by a stop that discovery may have been started after, tells nobody.
    m_Parts.kept.Note();
    m_Parts.callback.ReportDirected(wwpn, changed != 0, [&] { return m_Parts.gate.IsRefreshing(&refresher); });
    disco_printf(kLogDirected, nullptr, "-- Directed Discovery Done --");
    refresher.thread.SetIdle();
    m_Parts.gate.LeaveRefresh(&refresher);
  }
}

// Keeps cycles from beginning, once the running one has ended, until the refresh is left. False, with nothing
// kept, when the thread is to stop.
bool DirectedDiscovery::EnterRefresh(const Refresher& refresher) {
  const CZylThread& thread = refresher.thread;
  while (thread.Terminated() == 0 && !m_Parts.gate.ClaimRefresh(&refresher)) ZylSleep(kCyclePoll);
  while (thread.Terminated() == 0 && m_Parts.state.InCycle()) ZylSleep(kCyclePoll);
  if (thread.Terminated() == 0) return true;
  m_Parts.gate.LeaveRefresh(&refresher);
  return false;
}

void DirectedDiscovery::RefreshPort(CZylTpThread& thread, const HBA_NAME& wwpn, unsigned int what,
                                    int* changed) {
  const std::shared_ptr<CHbaList> current = m_Parts.picture.GetCurrentList();
  if (current == nullptr) return;
  CHbaEntry copy;
  {
    HbaListGuard guard(*current);
    const CHbaEntry* listed = current->FindEntry(wwpn.wwn);
    if (listed == nullptr) {
      *changed = 1;  // gone since the request
      return;
    }
    copy = *listed;
  }
  disco_printf(kLogDirected, wwpn.wwn, "Directed Discovery - starting");
  // The reads' results change nothing: a part that cannot be read becomes empty.
  if ((what & kAttributes) != 0 && thread.Terminated() == 0) {
    // Of a port of this host its board tells, in every cycle; of another's, nobody before the next one.
    const bool isRemote = copy.IsLocalPort() == 0 && copy.GetProxyIpInfo() != nullptr;
    const HostKey host = isRemote ? HostKeyOf(*copy.GetProxyIpInfo()) : HostKey{};
    AnswerBook<PortKey>::Question question(isRemote ? &m_Parts.answers->ports : nullptr,
                                           {host, WwpnKey(wwpn.wwn)});
    const int status = GetRemotePortAttr(&copy, &thread);
    question.Answer(status, status == RM_STATUS_OK || status == RM_STATUS_OVER_TEMPERATURE);
    if (copy.IsLocalPort() != 0) copy.GetHbaInfo()->modelId |= kRefreshedLocally;
  }
  if ((what & kTargets) != 0 && thread.Terminated() == 0) {
    copy.ClearTargets();
    AddTargetInfo(&copy, &thread, 1, 1);
  }
  if ((what & kVPorts) != 0 && thread.Terminated() == 0) {
    copy.ClearVPorts();
    AddVPortInfo(&copy, &thread, 1);
  }
  HbaListGuard guard(*current);
  if (thread.Terminated() != 0) return;
  if (CHbaEntry* listed = current->FindEntry(wwpn.wwn); listed != nullptr) {
    *changed = listed->MergeHbaEntry(&copy);
  }
}

// Directed discovery: one known port is read again on request, on a thread of its own.

#include <chrono>
#include <exception>

#include "discovery/HbaDiscover.h"
#include "inband/PortAttributes.h"
#include "inband/PortTargets.h"
#include "inband/PortVPorts.h"
#include "log/DiscoveryLog.h"

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

// One directed thread and the request that it works on. A repeated Startup makes another; the older ones stay
// idle.
struct CHbaDiscover::Directed {
  CZylTpThread thread;
  CZylThreadLock lock;
  bool pending GUARDED_BY(lock) = false;
  HBA_NAME wwpn GUARDED_BY(lock){};
  unsigned int what GUARDED_BY(lock) = 0xFFFFFFFFU;
};

// What the thread starts with; it shares the request with the controller.
struct CHbaDiscover::DirectedStart {
  CHbaDiscover* controller;
  std::shared_ptr<Directed> directed;
};

// Without a thread there is nobody to take a request, and it is refused.
void CHbaDiscover::StartDirectedThread() {
  auto directed = std::make_shared<Directed>();
  auto start = std::make_unique<DirectedStart>(DirectedStart{this, directed});
  m_DirectedThreads.push_back(directed);
  if (directed->thread.Create(DirectedDiscoveryThreadStartup, start.get(), 0, 0) == 0) return;
  static_cast<void>(start.release());  // the thread's now
  m_Directed.Set(directed);
}

void CHbaDiscover::AskDirectedThreadsToStop() {
  m_Directed.Set(nullptr);
  for (const auto& directed : m_DirectedThreads) {
    directed->thread.Disable();
    directed->thread.TerminateImmediate();
  }
}

// A thread whose provider call does not return is left to itself: it shares its request, and finds on its
// return that its refresh is over.
void CHbaDiscover::StopDirectedThreads() {
  // All are asked before one is awaited: each notices within one and the same slice.
  AskDirectedThreadsToStop();
  const auto deadline = std::chrono::steady_clock::now() + kGiveUp;
  for (const auto& directed : m_DirectedThreads) {
    CZylTpThread& thread = directed->thread;
    while (!thread.Ended() && std::chrono::steady_clock::now() < deadline) ZylSleep(kEndPoll);
    if (thread.Ended()) {
      thread.Terminate();
    } else {
      thread.CleanUp();
      LeaveRefresh(*directed);
    }
  }
  m_DirectedThreads.clear();
}

void CHbaDiscover::JoinDirectedThreads() {
  for (const auto& directed : m_DirectedThreads) directed->thread.Terminate();
  m_DirectedThreads.clear();
}

int CHbaDiscover::DirectedDiscoveryUpdate(const HBA_NAME& wwpn, unsigned int what) {
  disco_printf(kLogDirected, nullptr, "-- Directed Discovery Call --");
  const std::shared_ptr<Directed> directed = m_Directed.Get();
  const std::shared_ptr<CHbaList> current = m_CurrentList.Get();
  if (directed == nullptr) return 0;
  // One step from the test to the mark: of two callers one is refused.
  LockGuard guard(directed->lock);
  if (directed->thread.IsIdle() == 0 || current == nullptr) return 0;
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
  directed->wwpn = wwpn;
  directed->what = what == 0 ? kEverything : what;
  directed->pending = true;
  directed->thread.Enable();
  return 1;
}

void* CHbaDiscover::DirectedDiscoveryThreadStartup(void* block) {
  const std::unique_ptr<DirectedStart> start(static_cast<DirectedStart*>(block));
  start->controller->DirectedDiscoveryThreadProc(*start->directed);
  return nullptr;
}

void CHbaDiscover::DirectedDiscoveryThreadProc(Directed& directed) {
  // Kept from request to request: one that was cut short reports what the one before it did.
  int changed = 0;
  while (directed.thread.Terminated() == 0) {
    directed.thread.WaitForSignal(kForEver);
    if (directed.thread.Terminated() != 0) return;
    HBA_NAME wwpn;
    unsigned int what = 0;
    {
      LockGuard guard(directed.lock);
      if (!directed.pending) continue;
      directed.pending = false;
      wwpn = directed.wwpn;
      what = directed.what;
    }
    disco_printf(kLogDirected, wwpn.wwn, "Directed Discovery - getting discovery lock");
    if (!EnterRefresh(directed)) return;
    try {
      RefreshPort(directed.thread, wwpn, what, &changed);
    } catch (const std::exception& failure) {
      disco_printf(kLogDirected, wwpn.wwn, "Directed Discovery - given up (%s)", failure.what());
      changed = 1;  // a part may have been merged
    }
    DoDirectedCallBack(directed, wwpn, changed);
    disco_printf(kLogDirected, nullptr, "-- Directed Discovery Done --");
    directed.thread.SetIdle();
    LeaveRefresh(directed);
  }
}

// Keeps cycles from beginning, once the running one has ended, until LeaveRefresh. False, with nothing kept,
// when the thread is to stop.
bool CHbaDiscover::EnterRefresh(Directed& directed) {
  const CZylThread& thread = directed.thread;
  while (thread.Terminated() == 0 && !ClaimRefresh(directed)) ZylSleep(kCyclePoll);
  while (thread.Terminated() == 0 && InDiscoveryCycle() != 0) ZylSleep(kCyclePoll);
  if (thread.Terminated() == 0) return true;
  LeaveRefresh(directed);
  return false;
}

bool CHbaDiscover::ClaimRefresh(Directed& directed) {
  LockGuard guard(m_CycleLock);
  if (m_Refresh != nullptr) return false;
  m_Refresh = &directed;
  return true;
}

bool CHbaDiscover::IsRefreshing(const Directed& directed) const {
  LockGuard guard(m_CycleLock);
  return m_Refresh == &directed;
}

void CHbaDiscover::LeaveRefresh(const Directed& directed) {
  LockGuard guard(m_CycleLock);
  if (m_Refresh == &directed) m_Refresh = nullptr;
}

void CHbaDiscover::RefreshPort(CZylTpThread& thread, const HBA_NAME& wwpn, unsigned int what, int* changed) {
  const std::shared_ptr<CHbaList> current = m_CurrentList.Get();
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
  // The reads' results are not looked at: a part that cannot be read becomes empty.
  if ((what & kAttributes) != 0 && thread.Terminated() == 0) {
    GetRemotePortAttr(&copy, &thread);
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

void CHbaDiscover::DoDirectedCallBack(const Directed& directed, const HBA_NAME& wwpn, int changed) {
  LockGuard guard(m_CallbackLock);
  if (!IsRefreshing(directed)) return;  // given up, by a stop that discovery may have been started after
  const Registration registration = GetRegistration();
  const unsigned int every = registration.eventMask & kReasonEveryCycle;
  if (!m_CallBacksAllowed || registration.callback == nullptr ||
      (registration.eventMask & (kReasonDirected | kReasonEveryCycle)) == 0) {
    return;
  }
  disco_printf(kLogDirected, wwpn.wwn, "Directed Discovery - doing callback");
  CallBack(registration, kReasonDirected | (changed != 0 ? kReasonChanged : 0U) | every);
}

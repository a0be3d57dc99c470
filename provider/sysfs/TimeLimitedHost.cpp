#include "provider/sysfs/TimeLimitedHost.h"

#include <optional>
#include <set>
#include <tuple>

#include "provider/base/Mutex.h"
#include "provider/host/WorldWideName.h"

namespace provider {

namespace {

template <class Result>
Result Locked() {
  Result result;
  result.status = RM_STATUS_LOCKED;
  return result;
}

}  // namespace

// What a call is about, and so what an overdue one blocks.
struct TimeLimitedHost::Key {
  enum class Kind { kList, kBoard, kPort };

  Kind kind;
  std::uint64_t number;

  bool operator<(const Key& other) const { return std::tie(kind, number) < std::tie(other.kind, other.number); }
};

struct TimeLimitedHost::Overdue {
  Mutex mutex;
  std::multiset<Key> keys GUARDED_BY(mutex);
};

// One call, shared between its thread and its caller.
template <class Result>
struct TimeLimitedHost::Call {
  Mutex mutex;
  Condition isAnswered;
  std::optional<Result> answer GUARDED_BY(mutex);
  bool isLeftBehind GUARDED_BY(mutex) = false;
};

TimeLimitedHost::TimeLimitedHost(std::shared_ptr<Host> host, std::chrono::milliseconds limit)
    : m_Host(std::move(host)), m_Limit(limit), m_Overdue(std::make_shared<Overdue>()) {}

TimeLimitedHost::~TimeLimitedHost() = default;

template <class Result, class Ask>
Result TimeLimitedHost::InTime(const Key& key, const Result& refusal, Ask ask) {
  {
    const MutexLock lock(m_Overdue->mutex);
    if (m_Overdue->keys.contains(key)) return refusal;
  }
  const Condition::Deadline deadline = std::chrono::steady_clock::now() + m_Limit;
  const auto call = std::make_shared<Call<Result>>();
  const auto run = [call, key, refusal, ask, host = m_Host, overdue = m_Overdue]() {
    std::optional<Result> answer;
    try {
      answer = ask(*host);
    } catch (...) {
      answer = refusal;
    }
    const MutexLock lock(call->mutex);
    call->answer = std::move(answer);
    call->isAnswered.NotifyAll();
    if (!call->isLeftBehind) return;
    const MutexLock keysLock(overdue->mutex);
    overdue->keys.erase(overdue->keys.find(key));
  };
  if (!m_Threads.Run(run)) return refusal;
  const MutexLock lock(call->mutex);
  while (!call->answer.has_value()) {
    if (call->isAnswered.WaitUntil(call->mutex, deadline) || call->answer.has_value()) continue;
    const MutexLock keysLock(m_Overdue->mutex);
    m_Overdue->keys.insert(key);
    call->isLeftBehind = true;
    return refusal;
  }
  return *std::move(call->answer);
}

template <class Result, class Ask>
Result TimeLimitedHost::OfPort(const Wwn& wwn, Ask ask) {
  return InTime(Key{Key::Kind::kPort, WwnToNumber(wwn)}, Locked<Result>(), ask);
}

ListAnswer<unsigned int> TimeLimitedHost::BoardInstances() {
  return InTime(Key{Key::Kind::kList, 0}, Locked<ListAnswer<unsigned int>>(),
                [](Host& host) { return host.BoardInstances(); });
}

Answer<Board> TimeLimitedHost::ReadBoard(unsigned int instance) {
  return InTime(Key{Key::Kind::kBoard, instance}, Locked<Answer<Board>>(),
                [instance](Host& host) { return host.ReadBoard(instance); });
}

ListAnswer<HBA_NAME> TimeLimitedHost::PortNames() {
  // Board by board, each in its own time: a sick one has no name to tell, and takes no other with it.
  return Host::PortNames();
}

bool TimeLimitedHost::HasPort(const Wwn& wwn) {
  return InTime(Key{Key::Kind::kPort, WwnToNumber(wwn)}, false,
                [wwn](Host& host) { return host.HasPort(wwn); });
}

bool TimeLimitedHost::IsMakersPort(const Wwn& wwn) {
  if (const std::optional<bool> known = m_Host->MakersPortInMemory(wwn); known.has_value()) return *known;
  return InTime(Key{Key::Kind::kPort, WwnToNumber(wwn)}, false,
                [wwn](Host& host) { return host.IsMakersPort(wwn); });
}

Answer<Attributes> TimeLimitedHost::DiscoveryAttributes(const Wwn& wwn) {
  return OfPort<Answer<Attributes>>(wwn, [wwn](Host& host) { return host.DiscoveryAttributes(wwn); });
}

Answer<Attributes> TimeLimitedHost::HbaAttributes(const Wwn& wwn) {
  return OfPort<Answer<Attributes>>(wwn, [wwn](Host& host) { return host.HbaAttributes(wwn); });
}

Answer<Attributes> TimeLimitedHost::PortAttributes(const Wwn& wwn) {
  return OfPort<Answer<Attributes>>(wwn, [wwn](Host& host) { return host.PortAttributes(wwn); });
}

Answer<Attributes> TimeLimitedHost::ServerAttributes(const Wwn& wwn) {
  return OfPort<Answer<Attributes>>(wwn, [wwn](Host& host) { return host.ServerAttributes(wwn); });
}

Answer<std::uint32_t> TimeLimitedHost::DriverType(const Wwn& wwn) {
  return OfPort<Answer<std::uint32_t>>(wwn, [wwn](Host& host) { return host.DriverType(wwn); });
}

Answer<std::uint32_t> TimeLimitedHost::BindType(const Wwn& wwn) {
  return OfPort<Answer<std::uint32_t>>(wwn, [wwn](Host& host) { return host.BindType(wwn); });
}

Answer<IscsiNames> TimeLimitedHost::InitiatorProperties(const Wwn& wwn) {
  return OfPort<Answer<IscsiNames>>(wwn, [wwn](Host& host) { return host.InitiatorProperties(wwn); });
}

ListAnswer<RM_NodeInfoEntry> TimeLimitedHost::Nodes(const Wwn& wwn) {
  return OfPort<ListAnswer<RM_NodeInfoEntry>>(wwn, [wwn](Host& host) { return host.Nodes(wwn); });
}

ListAnswer<RM_VPortEntry> TimeLimitedHost::VirtualPorts(const Wwn& wwn) {
  return OfPort<ListAnswer<RM_VPortEntry>>(wwn, [wwn](Host& host) { return host.VirtualPorts(wwn); });
}

ListAnswer<RM_VPortTargetEntry> TimeLimitedHost::VirtualPortTargets(const Wwn& wwn, const Wwn& vportWwn) {
  return OfPort<ListAnswer<RM_VPortTargetEntry>>(
      wwn, [wwn, vportWwn](Host& host) { return host.VirtualPortTargets(wwn, vportWwn); });
}

ListAnswer<_RM_ISCSI_TARGET> TimeLimitedHost::IscsiTargets(const Wwn& wwn, bool refresh) {
  return OfPort<ListAnswer<_RM_ISCSI_TARGET>>(
      wwn, [wwn, refresh](Host& host) { return host.IscsiTargets(wwn, refresh); });
}

ListAnswer<HBA_NAME> TimeLimitedHost::VirtualFunctions(const Wwn& wwn) {
  return OfPort<ListAnswer<HBA_NAME>>(wwn, [wwn](Host& host) { return host.VirtualFunctions(wwn); });
}

// Reads nothing.
Answer<bool> TimeLimitedHost::SecureManagement() {
  return m_Host->SecureManagement();
}

}  // namespace provider

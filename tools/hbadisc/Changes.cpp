#include "tools/hbadisc/Changes.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <utility>

#include "tools/hbadisc/PortReader.h"

namespace hbadisc {

namespace {

using Path = std::vector<std::string>;

constexpr unsigned int kAtOnce = 32;

ChangeKind KindOf(const hbadisc_change& record) {
  if (record.values == HBADISC_CHANGE_HAS_AFTER) return ChangeKind::Added;
  return record.values == HBADISC_CHANGE_HAS_BEFORE ? ChangeKind::Removed : ChangeKind::Changed;
}

// The values that stand before and behind a change, made by `convert`; null where there is none.
template <class Convert>
std::pair<Json, Json> Values(const hbadisc_change& record, Convert convert) {
  std::pair<Json, Json> values;
  if (record.values & HBADISC_CHANGE_HAS_BEFORE) values.first = convert(record.before);
  if (record.values & HBADISC_CHANGE_HAS_AFTER) values.second = convert(record.after);
  return values;
}

Json LinkJson(std::uint32_t link) {
  if (link == HBADISC_LINK_OVER_TEMPERATURE) return LinkText(Link::OverTemperature);
  if (link == 1) return LinkText(Link::Up);
  return link == 2 ? Json(LinkText(Link::Down)) : Json();
}

// One change for each member that differs; both have the same keys, being written by the same code.
void TellMembers(const std::string& port, const Path& path, const std::pair<Json, Json>& values,
                 const std::set<std::string>& leftOut, std::vector<Change>& changes) {
  for (const auto& [key, before] : values.first.items()) {
    if (leftOut.contains(key) || before == values.second[key]) continue;
    Path below = path;
    below.push_back(key);
    changes.push_back({ChangeKind::Changed, port, below, before, values.second[key]});
  }
}

bool IsIscsiTarget(PortKind kind, const std::optional<Wwn>& vport) {
  return kind == PortKind::Iscsi && !vport;
}

Json TargetJson(const RM_NodeInfoEntry& record, bool isIscsi) {
  return isIscsi ? ToJson(ToIscsiTarget(record)) : ToJson(ToFcTarget(record));
}

VirtualPort ToVirtualPort(const discovery_vport_info& record) {
  return {ToWwn(record.portWwn.wwn), KnownWwn(record.nodeWwn.wwn), record.targetCount, {}};
}

// The name by which an item of a list is known.
std::string NameOf(const Json& item) {
  for (const char* key : {"wwpn", "name"}) {
    if (item.is_object() && item.contains(key) && item[key].is_string()) return item[key].get<std::string>();
  }
  return item.is_string() ? item.get<std::string>() : std::string();
}

// An item of a list that came, went, or has members that differ.
void TellItem(const hbadisc_change& record, Path path, const std::pair<Json, Json>& values,
              std::vector<Change>& changes) {
  const std::string port = HexText(ToWwn(record.port.wwn));
  path.push_back(NameOf(values.first.is_null() ? values.second : values.first));
  if (KindOf(record) == ChangeKind::Changed) return TellMembers(port, path, values, {}, changes);
  changes.push_back({KindOf(record), port, path, values.first, values.second});
}

// What hangs off a port that is new.
void AddItem(const hbadisc_change& record, PortKind kind, PortDetails& details) {
  const std::optional<Wwn> vport = KnownWwn(record.vport.wwn);
  switch (record.kind) {
    case HBADISC_CHANGE_ISCSI_NAMES:
      details.iscsiNames = ToIscsiNames(record.after.iscsiNames);
      return;
    case HBADISC_CHANGE_VPORT:
      details.virtualPorts.push_back(ToVirtualPort(record.after.vport));
      return;
    case HBADISC_CHANGE_FUNCTION:
      details.virtualFunctions.push_back(ToWwn(record.after.function.wwn));
      return;
    default:
      break;
  }
  if (vport) {
    details.virtualPorts.back().targets.push_back(ToFcTarget(record.after.target));
  } else if (IsIscsiTarget(kind, vport)) {
    details.iscsiTargets.push_back(ToIscsiTarget(record.after.target));
  } else {
    details.fcTargets.push_back(ToFcTarget(record.after.target));
  }
}

bool IsItem(const hbadisc_change& record) {
  switch (record.kind) {
    case HBADISC_CHANGE_ISCSI_NAMES:
    case HBADISC_CHANGE_TARGET:
    case HBADISC_CHANGE_VPORT:
    case HBADISC_CHANGE_FUNCTION:
      return record.values == HBADISC_CHANGE_HAS_AFTER;
    default:
      return false;
  }
}

Change Added(const Port& port) {
  return {ChangeKind::Added, HexText(port.wwpn), {}, Json(), ToJson(port)};
}

// The ports that have come, with what hangs off them: its records follow that of the port.
class NewPort {
 public:
  void Begin(const hba_discovery_info_V4& record) {
    m_Port = ToPort(record);
    m_Port->details.emplace();
  }
  bool Takes(const hbadisc_change& record) {
    if (!m_Port || ToWwn(record.port.wwn) != m_Port->wwpn || !IsItem(record)) return false;
    // A target of a virtual port comes right behind it; one that does not has come later.
    const std::optional<Wwn> vport = KnownWwn(record.vport.wwn);
    const std::vector<VirtualPort>& vports = m_Port->details->virtualPorts;
    if (vport && (vports.empty() || vports.back().wwpn != *vport)) return false;
    AddItem(record, m_Port->kind, *m_Port->details);
    return true;
  }
  void End(std::vector<Change>& changes) {
    if (m_Port) changes.push_back(Added(*m_Port));
    m_Port.reset();
  }

 private:
  std::optional<Port> m_Port;
};

}  // namespace

std::string_view KindText(ChangeKind kind) {
  switch (kind) {
    case ChangeKind::Added:
      return "added";
    case ChangeKind::Removed:
      return "removed";
    case ChangeKind::Changed:
      break;
  }
  return "changed";
}

Follower::Follower(Scope scope) : m_Scope(scope), m_Descriptor(HBADisc_GetChangeDescriptor()) {}

void Follower::Forget() const {
  std::uint64_t number = 0;
  [[maybe_unused]] const ssize_t taken = read(m_Descriptor, &number, sizeof number);
}

std::vector<Change> Follower::Next(bool* lost) {
  std::vector<Change> changes;
  std::vector<hbadisc_change> records(kAtOnce);
  NewPort fresh;
  for (unsigned int count = kAtOnce; count == kAtOnce;) {
    *lost = HBADisc_GetChanges(m_Sequence, records.data(), &count) != 0;
    if (*lost) {
      fresh.End(changes);
      const std::vector<Change> rest = WalkAgain();
      changes.insert(changes.end(), rest.begin(), rest.end());
      return changes;
    }
    for (unsigned int i = 0; i < count; ++i) {
      const hbadisc_change& record = records[i];
      m_Sequence = record.sequence;
      if (fresh.Takes(record)) continue;
      fresh.End(changes);
      if (record.kind == HBADISC_CHANGE_ADDED && IsWanted(record.after.port, m_Scope)) {
        fresh.Begin(record.after.port);
        m_Kinds[ToWwn(record.port.wwn)] = ToPort(record.after.port).kind;
      } else {
        Take(record, changes);
      }
    }
  }
  fresh.End(changes);
  return changes;
}

// Where records are missing, the ports that are there say which came and which went.
std::vector<Change> Follower::WalkAgain() {
  std::vector<Change> changes;
  std::map<Wwn, PortKind> before = std::exchange(m_Kinds, {});
  for (const Port& port : ReadPorts(Details::All, m_Scope, &m_Sequence)) {
    m_Kinds[port.wwpn] = port.kind;
    if (before.erase(port.wwpn) == 0) changes.push_back(Added(port));
  }
  for (const auto& [name, kind] : before)
    changes.push_back({ChangeKind::Removed, HexText(name), {}, Json(), Json()});
  return changes;
}

void Follower::Take(const hbadisc_change& record, std::vector<Change>& changes) {
  const Wwn name = ToWwn(record.port.wwn);
  if (!m_Kinds.contains(name)) return;
  if (record.kind != HBADISC_CHANGE_REMOVED) return TakeValue(record, changes);
  m_Kinds.erase(name);
  changes.push_back({ChangeKind::Removed, HexText(name), {}, ToJson(ToPort(record.before.port)), Json()});
}

void Follower::TakeValue(const hbadisc_change& record, std::vector<Change>& changes) const {
  // They have records of their own, or follow from these.
  static const std::set<std::string> kOfTheirOwn = {"link",        "function_link", "target_count",
                                                    "vport_count", "vf_count",      "unanswered"};
  using Value = hbadisc_change_value;
  const std::string port = HexText(ToWwn(record.port.wwn));
  const std::optional<Wwn> vport = KnownWwn(record.vport.wwn);
  const auto asPort = [](const Value& value) { return ToJson(ToPort(value.port)); };
  const auto tell = [&](const char* key, const std::pair<Json, Json>& values) {
    changes.push_back({ChangeKind::Changed, port, {key}, values.first, values.second});
  };
  switch (record.kind) {
    case HBADISC_CHANGE_LINK:
      return tell("link", Values(record, [](const Value& value) { return LinkJson(value.link); }));
    case HBADISC_CHANGE_FUNCTION_LINK:
      return tell("function_link", Values(record, [](const Value& value) { return LinkJson(value.link); }));
    case HBADISC_CHANGE_ATTRIBUTES:
      return TellMembers(port, {}, Values(record, asPort), kOfTheirOwn, changes);
    case HBADISC_CHANGE_UNANSWERED: {
      const std::pair<Json, Json> values = Values(record, asPort);
      // A new reason alone is not worth a line.
      if (record.before.port.unanswered == record.after.port.unanswered) return;
      return tell("unanswered", {values.first["unanswered"], values.second["unanswered"]});
    }
    case HBADISC_CHANGE_ISCSI_NAMES:
      return TellMembers(
          port, {"iscsi_names"},
          Values(record, [](const Value& value) { return ToJson(ToIscsiNames(value.iscsiNames)); }), {},
          changes);
    case HBADISC_CHANGE_TARGET: {
      const bool isIscsi = IsIscsiTarget(m_Kinds.at(ToWwn(record.port.wwn)), vport);
      const Path path = vport ? Path{"vports", HexText(*vport), "targets"} : Path{"targets"};
      const auto asTarget = [isIscsi](const Value& value) { return TargetJson(value.target, isIscsi); };
      return TellItem(record, path, Values(record, asTarget), changes);
    }
    case HBADISC_CHANGE_VPORT:
      return TellItem(record, {"vports"},
                      Values(record, [](const Value& value) { return ToJson(ToVirtualPort(value.vport)); }),
                      changes);
    case HBADISC_CHANGE_FUNCTION:
      return TellItem(
          record, {"virtual_functions"},
          Values(record, [](const Value& value) { return Json(HexText(ToWwn(value.function.wwn))); }), changes);
    default:
      return;
  }
}

}  // namespace hbadisc

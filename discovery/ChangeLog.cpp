#include "discovery/ChangeLog.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "discovery/PortChanges.h"

namespace {

std::uint64_t LastOf(const ChangeLog::Node& node) {
  return node.first + node.count - 1;
}

// How much of a value's union is used.
std::size_t ValueSize(std::uint32_t kind) {
  switch (kind) {
    case HBADISC_CHANGE_LINK:
    case HBADISC_CHANGE_FUNCTION_LINK:
      return sizeof(hbadisc_change_value::link);
    case HBADISC_CHANGE_ISCSI_NAMES:
      return sizeof(hbadisc_change_value::iscsiNames);
    case HBADISC_CHANGE_TARGET:
      return sizeof(hbadisc_change_value::target);
    case HBADISC_CHANGE_VPORT:
      return sizeof(hbadisc_change_value::vport);
    case HBADISC_CHANGE_FUNCTION:
      return sizeof(hbadisc_change_value::function);
    default:
      return sizeof(hbadisc_change_value::port);
  }
}

std::vector<unsigned char> Packed(const hbadisc_change& change, const hbadisc_change_value& value,
                                  std::uint32_t present) {
  if ((change.values & present) == 0) return {};
  const auto* bytes = reinterpret_cast<const unsigned char*>(&value);
  return {bytes, bytes + ValueSize(change.kind)};
}

ChangeLog::Node::Record Pack(const PortChange& made) {
  hbadisc_change change;
  FillRecord(made, &change);
  return {change.kind,
          change.values,
          change.port,
          change.vport,
          Packed(change, change.before, HBADISC_CHANGE_HAS_BEFORE),
          Packed(change, change.after, HBADISC_CHANGE_HAS_AFTER)};
}

void Unpack(const std::vector<unsigned char>& packed, hbadisc_change_value* value) {
  std::memset(value, 0, sizeof *value);
  if (!packed.empty()) std::memcpy(value, packed.data(), packed.size());
}

void Unpack(const ChangeLog::Node::Record& packed, hbadisc_change* change) {
  change->kind = packed.kind;
  change->values = packed.values;
  change->port = packed.port;
  change->vport = packed.vport;
  Unpack(packed.before, &change->before);
  Unpack(packed.after, &change->after);
}

// Fills records from number `after` on; how many.
unsigned int Expand(const ChangeLog::Node& node, std::uint64_t after, hbadisc_change* changes,
                    unsigned int room) {
  std::uint64_t number = node.first;
  unsigned int filled = 0;
  const auto next = [&]() -> hbadisc_change* {
    const std::uint64_t mine = number++;
    if (mine <= after || filled == room) return nullptr;
    hbadisc_change* change = &changes[filled++];
    change->sequence = mine;
    change->time = node.time;
    return change;
  };
  if (node.added) {
    VisitPortChanges(nullptr, &*node.added, [&](const PortChange& made) {
      if (hbadisc_change* change = next(); change != nullptr) FillRecord(made, change);
    });
  }
  for (const ChangeLog::Node::Record& packed : node.records) {
    if (hbadisc_change* change = next(); change != nullptr) Unpack(packed, change);
  }
  return filled;
}

}  // namespace

ChangeLog::~ChangeLog() {
  if (m_Descriptor >= 0) close(m_Descriptor);
}

void ChangeLog::SetLimit(std::uint64_t limit) {
  LockGuard guard(m_Lock);
  m_Limit = std::max<std::uint64_t>(limit, 1);
}

void ChangeLog::Add(Batch& batch, const CHbaEntry* before, const CHbaEntry* after, std::int64_t time) {
  auto node = std::make_shared<Node>();
  node->time = time;
  if (before == nullptr && after != nullptr) {
    node->added = *after;
    VisitPortChanges(nullptr, after, [&node](const PortChange&) { ++node->count; });
  } else {
    VisitPortChanges(before, after,
                     [&node](const PortChange& change) { node->records.push_back(Pack(change)); });
    node->count = node->records.size();
  }
  if (node->count != 0) batch.push_back(std::move(node));
}

void ChangeLog::Append(Batch& batch) noexcept {
  Batch dropped;  // freed without the lock
  LockGuard guard(m_Lock);
  for (const std::shared_ptr<Node>& node : batch) {
    node->first = m_Last + 1;
    m_Last += node->count;
  }
  m_Nodes.splice(m_Nodes.end(), batch);
  auto kept = m_Nodes.begin();
  while (kept != m_Nodes.end() && m_Last - LastOf(**kept) >= m_Limit) ++kept;
  dropped.splice(dropped.end(), m_Nodes, m_Nodes.begin(), kept);
}

void ChangeLog::Announce() {
  LockGuard guard(m_Lock);
  if (m_Descriptor < 0 || m_Announced == m_Last) return;
  m_Announced = m_Last;
  const std::uint64_t one = 1;
  // A counter that cannot take more is readable as it is.
  [[maybe_unused]] const ssize_t written = write(m_Descriptor, &one, sizeof one);
}

std::uint64_t ChangeLog::Last() const {
  LockGuard guard(m_Lock);
  return m_Last;
}

int ChangeLog::Read(std::uint64_t after, hbadisc_change* changes, unsigned int* count) const {
  std::vector<std::shared_ptr<const Node>> nodes;
  bool lost = false;
  {
    LockGuard guard(m_Lock);
    const std::uint64_t oldest = m_Nodes.empty() ? m_Last + 1 : m_Nodes.front()->first;
    lost = after < oldest - 1;
    std::uint64_t wanted = *count;
    for (const std::shared_ptr<Node>& node : m_Nodes) {
      if (wanted == 0) break;
      if (LastOf(*node) <= after) continue;
      nodes.push_back(node);
      wanted -= std::min(wanted, LastOf(*node) - std::max(after, node->first - 1));
    }
  }
  unsigned int filled = 0;
  for (const auto& node : nodes) filled += Expand(*node, after, changes + filled, *count - filled);
  *count = filled;
  return lost ? 1 : 0;
}

int ChangeLog::Descriptor() {
  LockGuard guard(m_Lock);
  if (m_Descriptor < 0) m_Descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  return m_Descriptor;
}

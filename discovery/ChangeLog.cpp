#include "discovery/ChangeLog.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>

#include "discovery/PortChanges.h"

ChangeLog::~ChangeLog() {
  if (m_Descriptor >= 0) close(m_Descriptor);
}

void ChangeLog::SetLimit(std::uint64_t limit) {
  LockGuard guard(m_Lock);
  m_Limit = std::max<std::uint64_t>(limit, 1);
}

void ChangeLog::Add(const CHbaEntry* before, const CHbaEntry* after, std::int64_t time) {
  std::uint64_t count = 0;
  VisitPortChanges(before, after, [&count](const PortChange&) { ++count; });
  if (count == 0) return;
  auto node = std::make_shared<Node>();
  node->count = count;
  node->time = time;
  if (before != nullptr) node->before = *before;
  if (after != nullptr) node->after = *after;
  Nodes dropped;  // freed without the lock
  LockGuard guard(m_Lock);
  node->first = m_Last + 1;
  m_Nodes.push_back(node);
  m_Last += count;
  while (m_Last - m_Nodes.front()->first - m_Nodes.front()->count + 1 >= m_Limit) {
    dropped.push_back(m_Nodes.front());
    m_Nodes.pop_front();
  }
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

std::uint64_t ChangeLog::OldestLocked() const {
  return m_Nodes.empty() ? m_Last + 1 : m_Nodes.front()->first;
}

int ChangeLog::Read(std::uint64_t after, hbadisc_change* changes, unsigned int* count) const {
  std::vector<std::shared_ptr<const Node>> nodes;
  bool lost = false;
  {
    LockGuard guard(m_Lock);
    lost = after + 1 < OldestLocked();
    std::uint64_t wanted = *count;
    auto node = std::partition_point(m_Nodes.begin(), m_Nodes.end(), [after](const auto& each) {
      return each->first + each->count - 1 <= after;
    });
    for (; node != m_Nodes.end() && wanted != 0; ++node) {
      nodes.push_back(*node);
      const std::uint64_t behind = (*node)->first + (*node)->count - 1 - std::max(after, (*node)->first - 1);
      wanted -= std::min(wanted, behind);
    }
  }
  unsigned int filled = 0;
  for (const auto& node : nodes) filled += Expand(*node, after, changes + filled, *count - filled);
  *count = filled;
  return lost ? 1 : 0;
}

unsigned int ChangeLog::Expand(const Node& node, std::uint64_t after, hbadisc_change* changes,
                               unsigned int room) {
  std::uint64_t number = node.first;
  unsigned int filled = 0;
  VisitPortChanges(node.before ? &*node.before : nullptr, node.after ? &*node.after : nullptr,
                   [&](const PortChange& change) {
                     const std::uint64_t mine = number++;
                     if (mine <= after || filled == room) return;
                     hbadisc_change& record = changes[filled++];
                     record.sequence = mine;
                     record.time = node.time;
                     FillRecord(change, &record);
                   });
  return filled;
}

int ChangeLog::Descriptor() {
  LockGuard guard(m_Lock);
  if (m_Descriptor < 0) m_Descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  return m_Descriptor;
}

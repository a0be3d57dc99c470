#include "provider/sysfs/SysfsLook.h"

#include <utility>

namespace provider {

void SysfsLook::Restart(bool goesOn) {
  std::map<Wwn, Known> dropped;  // freed without the lock
  const MutexLock lock(m_Mutex);
  m_GoesOn = goesOn;
  std::swap(dropped, m_Known);
}

std::optional<std::vector<RM_NodeInfoEntry>> SysfsLook::TakeNodes(const Wwn& port) {
  const MutexLock lock(m_Mutex);
  const auto known = m_Known.find(port);
  if (known == m_Known.end()) return std::nullopt;
  return std::exchange(known->second.nodes, std::nullopt);
}

std::optional<FcStorage> SysfsLook::Storage(const Wwn& port) const {
  const MutexLock lock(m_Mutex);
  const auto known = m_Known.find(port);
  return known == m_Known.end() ? std::nullopt : std::optional(known->second.storage);
}

void SysfsLook::Keep(const Wwn& port, const FcTargets& targets) {
  const MutexLock lock(m_Mutex);
  if (!m_GoesOn) return;
  const auto [known, isNew] = m_Known.try_emplace(port);
  // Those of a second reading are the last that the look asks for.
  known->second.storage = targets.storage;
  if (isNew) known->second.nodes = targets.nodes;
}

}  // namespace provider

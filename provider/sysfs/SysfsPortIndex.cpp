#include "provider/sysfs/SysfsPortIndex.h"

namespace provider {

void SysfsPortIndex::BeginLook() {
  const MutexLock lock(m_Mutex);
  m_Names = nullptr;
}

std::shared_ptr<const SysfsPortIndex::Names> SysfsPortIndex::Get() const {
  const MutexLock lock(m_Mutex);
  return m_Names;
}

std::shared_ptr<const SysfsPortIndex::Names> SysfsPortIndex::Renew(const SysfsDirectory& root) {
  std::shared_ptr<const Names> names = Read(root);
  const MutexLock lock(m_Mutex);
  m_Names = names;
  return names;
}

std::shared_ptr<const SysfsPortIndex::Names> SysfsPortIndex::Read(const SysfsDirectory& root) {
  auto names = std::make_shared<Names>();
  names->read = std::chrono::steady_clock::now();
  for (const FcPortName& port : ReadFcPortNames(root)) {
    names->locked |= port.status == RM_STATUS_LOCKED;
    if (port.status != RM_STATUS_OK) continue;
    names->all.insert(port.name);
    if (!port.isVirtual) names->ports.emplace(port.name, port.number);
  }
  return names;
}

// Not there, unless the port of that number still has the name.
FoundFcPort SysfsPortIndex::Open(const SysfsDirectory& root, const Names& names, const Wwn& name) {
  const auto known = names.ports.find(name);
  if (known == names.ports.end()) return {names.locked ? RM_STATUS_LOCKED : RM_STATUS_NOT_FOUND, {}};
  FcPort port(root, known->second);
  const int status = port.ReadName();
  if (status == RM_STATUS_OK && port.portName == name) return {RM_STATUS_OK, std::move(port)};
  return {status == RM_STATUS_LOCKED ? RM_STATUS_LOCKED : RM_STATUS_NOT_FOUND, {}};
}

FoundFcPort SysfsPortIndex::Find(const SysfsDirectory& root, const Wwn& name) {
  if (const std::shared_ptr<const Names> names = Get(); names != nullptr) {
    FoundFcPort found = Open(root, *names, name);
    const bool wasKnown = names->ports.contains(name);
    if (found.port.has_value() || (!wasKnown && IsFresh(*names))) return found;
  }
  return Open(root, *Renew(root), name);
}

bool SysfsPortIndex::Has(const SysfsDirectory& root, const Wwn& name) {
  if (const std::optional<bool> known = HasInMemory(name); known.has_value()) return *known;
  return Renew(root)->all.contains(name);
}

std::optional<bool> SysfsPortIndex::HasInMemory(const Wwn& name) const {
  const std::shared_ptr<const Names> names = Get();
  if (names == nullptr || !IsFresh(*names)) return std::nullopt;
  return names->all.contains(name);
}

}  // namespace provider

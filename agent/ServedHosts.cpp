#include "agent/ServedHosts.h"

#include <filesystem>
#include <stdexcept>

#include "provider/sysfs/SysfsHost.h"

namespace agent {

using provider::Host;
using provider::NetAddress;

ServedHosts ServedHosts::OfFabric(const std::string& path, bool servesLocal) {
  ServedHosts hosts;
  hosts.m_Fabric.emplace(path);
  if (servesLocal || hosts.m_Fabric->Addresses().empty()) hosts.m_Elsewhere = hosts.m_Fabric->Local();
  return hosts;
}

ServedHosts ServedHosts::OfSysfs(const std::string& root) {
  std::error_code ignored;
  if (!std::filesystem::is_directory(root, ignored)) {
    throw std::runtime_error(root + ": expected the directory of a sysfs");
  }
  ServedHosts hosts;
  hosts.m_Elsewhere = provider::MakeSysfsHost(root);
  return hosts;
}

std::shared_ptr<Host> ServedHosts::At(const NetAddress& address) const {
  if (!m_Fabric.has_value()) return m_Elsewhere;
  if (m_Fabric->IsUnreachable(address)) return nullptr;
  std::shared_ptr<Host> host = m_Fabric->At(address);
  return host != nullptr ? host : m_Elsewhere;
}

std::vector<NetAddress> ServedHosts::OwnAddresses() const {
  std::vector<NetAddress> addresses;
  if (m_Fabric.has_value()) addresses = m_Fabric->Addresses();
  if (addresses.empty() && m_Elsewhere != nullptr) {
    addresses = {NetAddress::Parse("127.0.0.1").value(), NetAddress::Parse("::1").value()};
  }
  std::erase_if(addresses, [this](const NetAddress& address) {
    return !address.IsLoopback() || (m_Fabric.has_value() && m_Fabric->IsUnreachable(address));
  });
  return addresses;
}

void ServedHosts::EndCalls() const {
  if (m_Fabric.has_value()) m_Fabric->EndSleeps();
}

}  // namespace agent

#include "provider/process/RemoteHosts.h"

#include <algorithm>
#include <cstring>

#include "provider/remote/RemoteHost.h"

namespace provider {

namespace {

constexpr std::size_t kMostHosts = 65'536;
constexpr std::size_t kBytesIpv4 = 4;
constexpr std::size_t kAddressInProxy = 4;

// First bytes of a proxy address.
constexpr std::uint8_t kTypeIpv4 = 0xFF;
constexpr std::uint8_t kTypeIpv4Cim = 0xFE;
constexpr std::uint8_t kTypeHandle = 0x06;

}  // namespace

RemoteHosts& RemoteHosts::Get() {
  static RemoteHosts& hosts = *new RemoteHosts;
  return hosts;
}

std::optional<ProxyAddress> RemoteHosts::Add(const _RM_IP_INFO& record) {
  const NetAddress address = NetAddress::Of(record);
  const MutexLock held(m_Mutex);
  const bool isNew = !m_Hosts.contains(address);
  const bool needsHandle = address.isIpv6 && !m_HandleNumbers.contains(address);
  if (isNew && m_Hosts.size() >= kMostHosts) return std::nullopt;
  if (needsHandle && m_HandleAddresses.size() >= kMostHosts) return std::nullopt;
  const ProxyAddress proxy = ProxyOf(address, record);
  Entry& entry = m_Hosts[address];
  const bool isCim = (record.flags & RM_IP_FLAG_CIM) != 0;
  if (isCim) {
    entry.host.reset();
  } else if (entry.host == nullptr || entry.port != record.port) {
    entry.host = MakeRemoteHost(address, record.port != 0 ? record.port : kAgentPort);
  }
  entry.port = record.port;
  entry.flags = record.flags;
  return proxy;
}

ProxyAddress RemoteHosts::ProxyOf(const NetAddress& address, const _RM_IP_INFO& record) {
  ProxyAddress proxy{};
  if (!address.isIpv6) {
    proxy[0] = (record.flags & RM_IP_FLAG_CIM) != 0 ? kTypeIpv4Cim : kTypeIpv4;
    std::memcpy(&proxy[2], &record.port, sizeof(record.port));
    std::copy_n(address.bytes.begin(), kBytesIpv4, proxy.begin() + kAddressInProxy);
    return proxy;
  }
  const auto next = static_cast<std::uint32_t>(m_HandleAddresses.size());
  const auto [known, isNew] = m_HandleNumbers.emplace(address, next);
  if (isNew) m_HandleAddresses.push_back(address);
  proxy[0] = kTypeHandle;
  std::memcpy(&proxy[kAddressInProxy], &known->second, sizeof(known->second));
  return proxy;
}

std::optional<NetAddress> RemoteHosts::AddressOf(const ProxyAddress& proxy) const {
  if (proxy[0] == kTypeIpv4 || proxy[0] == kTypeIpv4Cim) {
    NetAddress address;
    std::copy_n(proxy.begin() + kAddressInProxy, kBytesIpv4, address.bytes.begin());
    return address;
  }
  std::uint32_t number = 0;
  std::memcpy(&number, &proxy[kAddressInProxy], sizeof(number));
  if (proxy[0] != kTypeHandle || number >= m_HandleAddresses.size()) return std::nullopt;
  return m_HandleAddresses[number];
}

bool RemoteHosts::Remove(const _RM_IP_INFO& record) {
  const NetAddress address = NetAddress::Of(record);
  const MutexLock held(m_Mutex);
  return m_Hosts.erase(address) > 0;
}

std::shared_ptr<Host> RemoteHosts::Find(const ProxyAddress& proxy) {
  const MutexLock held(m_Mutex);
  const std::optional<NetAddress> address = AddressOf(proxy);
  if (!address.has_value()) return nullptr;
  const auto found = m_Hosts.find(*address);
  return found == m_Hosts.end() ? nullptr : found->second.host;
}

std::shared_ptr<Host> RemoteHosts::Find(const _RM_IP_INFO& record) {
  const MutexLock held(m_Mutex);
  const auto found = m_Hosts.find(NetAddress::Of(record));
  return found == m_Hosts.end() ? nullptr : found->second.host;
}

bool RemoteHosts::IsCim(const ProxyAddress& proxy) {
  if (proxy[0] != kTypeHandle) return proxy[0] == kTypeIpv4Cim;
  const MutexLock held(m_Mutex);
  const std::optional<NetAddress> address = AddressOf(proxy);
  if (!address.has_value()) return false;
  const auto found = m_Hosts.find(*address);
  return found != m_Hosts.end() && (found->second.flags & RM_IP_FLAG_CIM) != 0;
}

}  // namespace provider

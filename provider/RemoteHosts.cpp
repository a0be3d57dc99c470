#include "provider/RemoteHosts.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace provider {

namespace {

constexpr std::size_t kMostHosts = 65'536;
constexpr std::size_t kBytesIpv4 = 4;

// First bytes of a proxy address.
constexpr std::uint8_t kTypeIpv4 = 0xFF;
constexpr std::uint8_t kTypeIpv4Cim = 0xFE;
constexpr std::uint8_t kTypeHandle = 0x06;

_RM_IP_INFO MakeRecord(const void* address, std::size_t bytes, std::uint16_t port) {
  _RM_IP_INFO record{};
  std::memcpy(record.address, address, bytes);
  record.port = port;
  if (bytes != kBytesIpv4) record.flags = RM_IP_FLAG_IPV6;
  return record;
}

std::optional<_RM_IP_INFO> ParseNumeric(const std::string& host, std::uint16_t port) {
  in_addr ipv4{};
  if (inet_pton(AF_INET, host.c_str(), &ipv4) == 1) return MakeRecord(&ipv4, sizeof(ipv4), port);
  in6_addr ipv6{};
  if (inet_pton(AF_INET6, host.c_str(), &ipv6) == 1) return MakeRecord(&ipv6, sizeof(ipv6), port);
  return std::nullopt;
}

// The resolver would take "10.1" for 10.0.0.1 and an address with a zone for one without: no names, those.
bool IsNumberOfOtherKind(const std::string& host) {
  in_addr ignored{};
  return host.find(':') != std::string::npos || inet_aton(host.c_str(), &ignored) != 0;
}

std::optional<_RM_IP_INFO> AskResolver(const std::string& host, std::uint16_t port) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* first = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &first) != 0) return std::nullopt;
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(first, freeaddrinfo);
  std::optional<_RM_IP_INFO> found;
  for (const addrinfo* at = first; at != nullptr; at = at->ai_next) {
    if (at->ai_family == AF_INET) {
      const auto* address = reinterpret_cast<const sockaddr_in*>(at->ai_addr);
      return MakeRecord(&address->sin_addr, sizeof(address->sin_addr), port);
    }
    if (at->ai_family == AF_INET6 && !found.has_value()) {
      const auto* address = reinterpret_cast<const sockaddr_in6*>(at->ai_addr);
      found = MakeRecord(&address->sin6_addr, sizeof(address->sin6_addr), port);
    }
  }
  return found;
}

}  // namespace

std::optional<_RM_IP_INFO> ResolveHost(const std::string& host, std::uint16_t port) {
  if (host.empty()) return std::nullopt;
  if (std::optional<_RM_IP_INFO> record = ParseNumeric(host, port)) return record;
  return IsNumberOfOtherKind(host) ? std::nullopt : AskResolver(host, port);
}

std::string AddressText(const _RM_IP_INFO& host) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const int family = (host.flags & RM_IP_FLAG_IPV6) != 0 ? AF_INET6 : AF_INET;
  return inet_ntop(family, host.address, text.data(), text.size()) == nullptr ? "" : text.data();
}

RemoteHosts& RemoteHosts::Get() {
  static RemoteHosts& hosts = *new RemoteHosts;
  return hosts;
}

RemoteHosts::Key RemoteHosts::KeyOf(const _RM_IP_INFO& host) {
  const bool isIpv6 = (host.flags & RM_IP_FLAG_IPV6) != 0;
  Key key{};
  key[0] = isIpv6 ? 1 : 0;
  std::copy_n(host.address, isIpv6 ? sizeof(host.address) : kBytesIpv4, key.begin() + 1);
  return key;
}

std::optional<ProxyAddress> RemoteHosts::Add(const _RM_IP_INFO& host) {
  const Key key = KeyOf(host);
  const MutexLock held(m_Mutex);
  const bool isNew = !m_Hosts.contains(key);
  if (isNew && (m_Hosts.size() >= kMostHosts || m_HandleNumbers.size() >= kMostHosts)) return std::nullopt;
  m_Hosts[key] = host;
  return ProxyOf(key, host);
}

ProxyAddress RemoteHosts::ProxyOf(const Key& key, const _RM_IP_INFO& host) {
  ProxyAddress proxy{};
  if ((host.flags & RM_IP_FLAG_IPV6) == 0) {
    proxy[0] = (host.flags & RM_IP_FLAG_CIM) != 0 ? kTypeIpv4Cim : kTypeIpv4;
    std::memcpy(&proxy[2], &host.port, sizeof(host.port));
    std::copy_n(host.address, kBytesIpv4, proxy.begin() + 4);
    return proxy;
  }
  const auto next = static_cast<std::uint32_t>(m_HandleNumbers.size());
  const std::uint32_t number = m_HandleNumbers.emplace(key, next).first->second;
  proxy[0] = kTypeHandle;
  std::memcpy(&proxy[4], &number, sizeof(number));
  return proxy;
}

bool RemoteHosts::Remove(const _RM_IP_INFO& host) {
  const Key key = KeyOf(host);
  const MutexLock held(m_Mutex);
  return m_Hosts.erase(key) > 0;
}

bool RemoteHosts::IsCim(const ProxyAddress& proxy) {
  if (proxy[0] != kTypeHandle) return proxy[0] == kTypeIpv4Cim;
  std::uint32_t number = 0;
  std::memcpy(&number, &proxy[4], sizeof(number));
  const MutexLock held(m_Mutex);
  return std::any_of(m_Hosts.begin(), m_Hosts.end(), [&](const auto& entry) REQUIRES(m_Mutex) {
    const auto found = m_HandleNumbers.find(entry.first);
    return found != m_HandleNumbers.end() && found->second == number &&
           (entry.second.flags & RM_IP_FLAG_CIM) != 0;
  });
}

}  // namespace provider

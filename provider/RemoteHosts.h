// The remote hosts this process knows: their addresses and the 8-byte proxy addresses under which they are
// meant.
//
// Thread safety: locked inside, usable before main and after exit has begun.
#ifndef PROVIDER_REMOTEHOSTS_H_
#define PROVIDER_REMOTEHOSTS_H_

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "provider/Host.h"
#include "provider/Mutex.h"

namespace provider {

using ProxyAddress = std::array<std::uint8_t, 8>;

// Numeric IPv4 or IPv6 text, or a name that the resolver knows; of a name's addresses the first of IPv4 is
// taken when there is one. Nothing when the text is neither. Asking the resolver takes as long as it takes.
std::optional<_RM_IP_INFO> ResolveHost(const std::string& host, std::uint16_t port);

// The address alone, as people write it.
std::string AddressText(const _RM_IP_INFO& host);

class RemoteHosts {
 public:
  // The process's table; never destroyed.
  static RemoteHosts& Get();

  // Registers the host, or notes its new port and flags. Nothing when the table is full.
  std::optional<ProxyAddress> Add(const _RM_IP_INFO& host);
  // By address alone. False when it was not registered.
  bool Remove(const _RM_IP_INFO& host);
  bool IsCim(const ProxyAddress& proxy);

 private:
  // Family and address: what makes two hosts the same one.
  using Key = std::array<std::uint8_t, 17>;

  static Key KeyOf(const _RM_IP_INFO& host);
  ProxyAddress ProxyOf(const Key& key, const _RM_IP_INFO& host) REQUIRES(m_Mutex);

  Mutex m_Mutex;
  std::map<Key, _RM_IP_INFO> m_Hosts GUARDED_BY(m_Mutex);
  // Of every IPv6 address ever registered: a proxy address stays that of its host for the life of the process.
  std::map<Key, std::uint32_t> m_HandleNumbers GUARDED_BY(m_Mutex);
};

}  // namespace provider

#endif  // PROVIDER_REMOTEHOSTS_H_

// The remote hosts this process knows: their addresses and the 8-byte proxy addresses under which they are
// meant.
//
// Thread safety: locked inside, usable before main and after exit has begun.
// Ownership: a host is shared with the calls that run on it, so that it outlives its removal for those.
#ifndef PROVIDER_PROCESS_REMOTEHOSTS_H_
#define PROVIDER_PROCESS_REMOTEHOSTS_H_

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "provider/base/Mutex.h"
#include "provider/host/Host.h"
#include "provider/host/NetAddress.h"

namespace provider {

using ProxyAddress = std::array<std::uint8_t, 8>;

class RemoteHosts {
 public:
  // The process's table; never destroyed.
  static RemoteHosts& Get();

  // Registers the host, or notes its new port and flags. Nothing when the table is full.
  std::optional<ProxyAddress> Add(const _RM_IP_INFO& record);
  // By address alone. False when it was not registered.
  bool Remove(const _RM_IP_INFO& record);

  // By address alone, whatever the port. Null when no such host is registered, and for a CIM host, which
  // nothing here can talk to.
  std::shared_ptr<Host> Find(const ProxyAddress& proxy);
  std::shared_ptr<Host> Find(const _RM_IP_INFO& record);

  bool IsCim(const ProxyAddress& proxy);

 private:
  struct Entry {
    std::uint16_t port = 0;
    std::uint8_t flags = 0;
    std::shared_ptr<Host> host;
  };

  ProxyAddress ProxyOf(const NetAddress& address, const _RM_IP_INFO& record) REQUIRES(m_Mutex);
  std::optional<NetAddress> AddressOf(const ProxyAddress& proxy) const REQUIRES(m_Mutex);

  Mutex m_Mutex;
  std::map<NetAddress, Entry> m_Hosts GUARDED_BY(m_Mutex);
  // Of every IPv6 address ever registered: a proxy address stays that of its host for the life of the process.
  std::map<NetAddress, std::uint32_t> m_HandleNumbers GUARDED_BY(m_Mutex);
  std::vector<NetAddress> m_HandleAddresses GUARDED_BY(m_Mutex);  // by number
};

}  // namespace provider

#endif  // PROVIDER_PROCESS_REMOTEHOSTS_H_

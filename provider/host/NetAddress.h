// An IPv4 or IPv6 address: what makes two remote hosts the same one.
//
// Thread safety: a value.
#ifndef PROVIDER_HOST_NETADDRESS_H_
#define PROVIDER_HOST_NETADDRESS_H_

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

#include "rmapi/rmapi.h"

namespace provider {

// The agents' port, where none is said.
inline constexpr std::uint16_t kAgentPort = 23333;

struct NetAddress {
  bool isIpv6 = false;
  std::array<std::uint8_t, 16> bytes{};  // an IPv4 address in the first four

  bool operator==(const NetAddress&) const = default;
  bool operator<(const NetAddress& other) const {
    return std::tie(isIpv6, bytes) < std::tie(other.isIpv6, other.bytes);
  }

  // Numeric text, without port, brackets or zone; else nothing.
  static std::optional<NetAddress> Parse(const std::string& text);
  static NetAddress Of(const _RM_IP_INFO& record);
  // Of another family: nothing.
  static std::optional<NetAddress> Of(const sockaddr_storage& socketAddress);

  _RM_IP_INFO Record(std::uint16_t port) const;
  // Returns its length, which is never 0.
  socklen_t SocketAddress(std::uint16_t port, sockaddr_storage& socketAddress) const;

  bool IsLoopback() const;
  // As people write it.
  std::string Text() const;
  // With the port, an IPv6 address in brackets: as it stands in a URL.
  std::string TextWithPort(std::uint16_t port) const;
};

}  // namespace provider

#endif  // PROVIDER_HOST_NETADDRESS_H_

#include "provider/host/NetAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>

namespace provider {

namespace {

constexpr std::size_t kBytesIpv4 = 4;

NetAddress FromBytes(bool isIpv6, const void* bytes) {
  NetAddress address;
  address.isIpv6 = isIpv6;
  std::memcpy(address.bytes.data(), bytes, isIpv6 ? address.bytes.size() : kBytesIpv4);
  return address;
}

}  // namespace

std::optional<NetAddress> NetAddress::Parse(const std::string& text) {
  std::array<std::uint8_t, sizeof(in6_addr)> bytes{};
  if (inet_pton(AF_INET, text.c_str(), bytes.data()) == 1) return FromBytes(false, bytes.data());
  if (inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1) return FromBytes(true, bytes.data());
  return std::nullopt;
}

NetAddress NetAddress::Of(const _RM_IP_INFO& record) {
  return FromBytes((record.flags & RM_IP_FLAG_IPV6) != 0, record.address);
}

std::optional<NetAddress> NetAddress::Of(const sockaddr_storage& socketAddress) {
  if (socketAddress.ss_family == AF_INET) {
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, &socketAddress, sizeof(ipv4));
    return FromBytes(false, &ipv4.sin_addr);
  }
  if (socketAddress.ss_family == AF_INET6) {
    sockaddr_in6 ipv6{};
    std::memcpy(&ipv6, &socketAddress, sizeof(ipv6));
    return FromBytes(true, &ipv6.sin6_addr);
  }
  return std::nullopt;
}

_RM_IP_INFO NetAddress::Record(std::uint16_t port) const {
  _RM_IP_INFO record{};
  std::copy(bytes.begin(), bytes.end(), record.address);
  record.port = port;
  if (isIpv6) record.flags = RM_IP_FLAG_IPV6;
  return record;
}

socklen_t NetAddress::SocketAddress(std::uint16_t port, sockaddr_storage& socketAddress) const {
  socketAddress = {};
  if (isIpv6) {
    sockaddr_in6 ipv6{};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = htons(port);
    std::memcpy(&ipv6.sin6_addr, bytes.data(), sizeof(ipv6.sin6_addr));
    std::memcpy(&socketAddress, &ipv6, sizeof(ipv6));
    return sizeof(ipv6);
  }
  sockaddr_in ipv4{};
  ipv4.sin_family = AF_INET;
  ipv4.sin_port = htons(port);
  std::memcpy(&ipv4.sin_addr, bytes.data(), sizeof(ipv4.sin_addr));
  std::memcpy(&socketAddress, &ipv4, sizeof(ipv4));
  return sizeof(ipv4);
}

bool NetAddress::IsLoopback() const {
  constexpr std::uint8_t kLoopbackNet = 127;
  if (!isIpv6) return bytes[0] == kLoopbackNet;
  return std::all_of(bytes.begin(), bytes.end() - 1, [](std::uint8_t byte) { return byte == 0; }) &&
         bytes.back() == 1;
}

std::string NetAddress::Text() const {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const int family = isIpv6 ? AF_INET6 : AF_INET;
  return inet_ntop(family, bytes.data(), text.data(), text.size()) == nullptr ? "" : text.data();
}

std::string NetAddress::TextWithPort(std::uint16_t port) const {
  const std::string text = isIpv6 ? '[' + Text() + ']' : Text();
  return text + ':' + std::to_string(port);
}

}  // namespace provider

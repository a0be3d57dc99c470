#include "agent/Listeners.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>

namespace agent {

using provider::FileDescriptor;
using provider::NetAddress;

namespace {

constexpr int kBacklog = 128;
constexpr int kPauseMilliseconds = 100;

[[noreturn]] void Throw(const std::string& what) {
  throw std::runtime_error(what + ": " + std::error_code(errno, std::generic_category()).message());
}

void SetOption(int socket, int level, int option) {
  constexpr int kOn = 1;
  // An option that is refused costs speed or a second attempt, nothing more.
  [[maybe_unused]] const int result = setsockopt(socket, level, option, &kOn, sizeof(kOn));
}

std::optional<NetAddress> AddressOf(int socket, int (*name)(int, sockaddr*, socklen_t*)) {
  sockaddr_storage storage{};
  socklen_t length = sizeof(storage);
  if (name(socket, reinterpret_cast<sockaddr*>(&storage), &length) != 0) return std::nullopt;
  return NetAddress::Of(storage);
}

std::uint16_t PortOf(int socket) {
  sockaddr_storage storage{};
  socklen_t length = sizeof(storage);
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&storage), &length) != 0) return 0;
  // The port lies at the same place in both families' addresses.
  return ntohs(reinterpret_cast<const sockaddr_in&>(storage).sin_port);
}

}  // namespace

Listeners::Listeners(std::uint16_t port) : m_Port(port), m_Epoll(epoll_create1(EPOLL_CLOEXEC)) {
  if (!m_Epoll.IsOpen()) Throw("epoll");
}

void Listeners::Add(const NetAddress& address) {
  const std::string text = address.TextWithPort(m_Port);
  FileDescriptor socket(
      ::socket(address.isIpv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
  if (!socket.IsOpen()) Throw(text);
  SetOption(socket.Get(), SOL_SOCKET, SO_REUSEADDR);
  if (address.isIpv6) SetOption(socket.Get(), IPPROTO_IPV6, IPV6_V6ONLY);
  sockaddr_storage storage;
  const socklen_t length = address.SocketAddress(m_Port, storage);
  if (bind(socket.Get(), reinterpret_cast<const sockaddr*>(&storage), length) != 0) Throw(text);
  if (listen(socket.Get(), kBacklog) != 0) Throw(text);
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = socket.Get();
  if (epoll_ctl(m_Epoll.Get(), EPOLL_CTL_ADD, socket.Get(), &event) != 0) Throw(text);
  if (m_Port == 0) m_Port = PortOf(socket.Get());
  m_Sockets.emplace(address, std::move(socket));
}

void Listeners::Set(const std::vector<NetAddress>& addresses) {
  const std::set<NetAddress> wanted(addresses.begin(), addresses.end());
  std::erase_if(m_Sockets, [&wanted](const auto& entry) { return !wanted.contains(entry.first); });
  std::string wrong;
  for (const NetAddress& address : wanted) {
    if (m_Sockets.contains(address)) continue;
    try {
      Add(address);
    } catch (const std::runtime_error& error) {
      if (wrong.empty()) wrong = error.what();
    }
  }
  if (!wrong.empty()) throw std::runtime_error(wrong);
}

std::vector<NetAddress> Listeners::Addresses() const {
  std::vector<NetAddress> addresses;
  for (const auto& [address, socket] : m_Sockets) addresses.push_back(address);
  return addresses;
}

std::optional<std::vector<int>> Listeners::WaitForSockets(int stopDescriptor, int milliseconds) {
  // Without descriptors for another connection the sockets stay ready: look only for the end for a while.
  std::array<pollfd, 2> descriptors = {{{stopDescriptor, POLLIN, 0}, {m_Epoll.Get(), POLLIN, 0}}};
  const nfds_t count = m_OutOfDescriptors ? 1 : 2;
  poll(descriptors.data(), count, m_OutOfDescriptors ? kPauseMilliseconds : milliseconds);
  m_OutOfDescriptors = false;
  if (descriptors[0].revents != 0) return std::nullopt;
  std::array<epoll_event, 64> events{};
  const int ready = epoll_wait(m_Epoll.Get(), events.data(), static_cast<int>(events.size()), 0);
  std::vector<int> sockets;
  sockets.reserve(events.size());
  for (int i = 0; i < ready; ++i) sockets.push_back(events.at(static_cast<std::size_t>(i)).data.fd);
  return sockets;
}

std::optional<Accepted> Listeners::AcceptOne(int socket) {
  Accepted accepted;
  accepted.peerLength = sizeof(accepted.peer);
  accepted.socket = FileDescriptor(accept4(socket, reinterpret_cast<sockaddr*>(&accepted.peer),
                                           &accepted.peerLength, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!accepted.socket.IsOpen()) {
    m_OutOfDescriptors = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
    return std::nullopt;
  }
  SetOption(accepted.socket.Get(), IPPROTO_TCP, TCP_NODELAY);
  const std::optional<NetAddress> local = AddressOf(accepted.socket.Get(), getsockname);
  const std::optional<NetAddress> peer = NetAddress::Of(accepted.peer);
  if (!local.has_value() || !peer.has_value()) return std::nullopt;
  accepted.localAddress = *local;
  accepted.peerAddress = *peer;
  return accepted;
}

}  // namespace agent

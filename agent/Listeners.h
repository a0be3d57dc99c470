// The sockets on which connections are waited for, one for each address.
//
// Thread safety: for one thread. Ownership: owns the sockets.
#ifndef AGENT_LISTENERS_H_
#define AGENT_LISTENERS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "provider/base/FileDescriptor.h"
#include "provider/host/NetAddress.h"

namespace agent {

struct Accepted {
  provider::FileDescriptor socket;
  sockaddr_storage peer{};
  socklen_t peerLength = 0;
  provider::NetAddress peerAddress;
  provider::NetAddress localAddress;
};

class Listeners {
 public:
  // Port 0: the one that the first socket gets by chance.
  explicit Listeners(std::uint16_t port);

  // Listens on these addresses, and no longer on others. Throws std::runtime_error with the first address that
  // cannot be listened on; the others are.
  void Set(const std::vector<provider::NetAddress>& addresses);

  // Waits for connections, at most that long, and hands each to `accept`. False when `stopDescriptor` has
  // become readable.
  template <class Accept>
  bool Wait(int stopDescriptor, int milliseconds, Accept accept) {
    const std::optional<std::vector<int>> ready = WaitForSockets(stopDescriptor, milliseconds);
    if (!ready.has_value()) return false;
    for (const int socket : *ready) {
      for (int i = 0; i < kMostAtOnce; ++i) {
        std::optional<Accepted> accepted = AcceptOne(socket);
        if (!accepted.has_value()) break;
        accept(std::move(*accepted));
      }
    }
    return true;
  }

  std::vector<provider::NetAddress> Addresses() const;
  std::uint16_t Port() const { return m_Port; }

 private:
  static constexpr int kMostAtOnce = 64;  // connections of one socket, before the others have their turn

  void Add(const provider::NetAddress& address);
  std::optional<std::vector<int>> WaitForSockets(int stopDescriptor, int milliseconds);
  std::optional<Accepted> AcceptOne(int socket);

  std::uint16_t m_Port;
  provider::FileDescriptor m_Epoll;
  std::map<provider::NetAddress, provider::FileDescriptor> m_Sockets;
  bool m_OutOfDescriptors = false;
};

}  // namespace agent

#endif  // AGENT_LISTENERS_H_

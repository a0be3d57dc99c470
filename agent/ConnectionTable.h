// The open connections: counted, so that no client can take them all, and each with the time until which it has
// to have got on.
//
// Thread safety: locked inside.
#ifndef AGENT_CONNECTIONTABLE_H_
#define AGENT_CONNECTIONTABLE_H_

#include <chrono>
#include <cstddef>
#include <map>
#include <utility>

#include "provider/base/Mutex.h"
#include "provider/host/NetAddress.h"

namespace agent {

class ConnectionTable {
 public:
  using Clock = std::chrono::steady_clock;

  // For a connection that waits for nothing but the served host.
  static constexpr Clock::time_point kNoDeadline = Clock::time_point::max();

  // Of all connections, and of those from one peer to one of the served hosts. A peer is an IPv4 address or the
  // first half of an IPv6 address: whoever has one of the latter has as many as he likes.
  ConnectionTable(std::size_t mostInAll, std::size_t mostOfPeer)
      : m_MostInAll(mostInAll), m_MostOfPeer(mostOfPeer) {}

  // False when there are too many already.
  bool Add(int socket, const provider::NetAddress& peer, const provider::NetAddress& local,
           Clock::time_point deadline);
  // Does nothing for one that is not there.
  void SetDeadline(int socket, Clock::time_point deadline);
  // Ends the connections whose deadline is over. Whoever serves them removes them when he notices.
  void EndOverdue(Clock::time_point now);
  // To be called before the socket is closed; does nothing for one that is not there.
  void Remove(int socket);

 private:
  using Pair = std::pair<provider::NetAddress, provider::NetAddress>;

  struct Connection {
    Pair pair;
    Clock::time_point deadline;
  };

  void Forget(int socket) REQUIRES(m_Mutex);

  const std::size_t m_MostInAll;
  const std::size_t m_MostOfPeer;
  provider::Mutex m_Mutex;
  std::map<int, Connection> m_Connections GUARDED_BY(m_Mutex);
  std::map<Pair, std::size_t> m_Counts GUARDED_BY(m_Mutex);
};

}  // namespace agent

#endif  // AGENT_CONNECTIONTABLE_H_

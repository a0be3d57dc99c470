// The open connections, counted, so that no client can take them all.
//
// Thread safety: locked inside.
#ifndef AGENT_CONNECTIONTABLE_H_
#define AGENT_CONNECTIONTABLE_H_

#include <cstddef>
#include <map>
#include <utility>

#include "provider/Mutex.h"
#include "provider/NetAddress.h"

namespace agent {

class ConnectionTable {
 public:
  // Of all connections, and of those from one address to one of the served hosts.
  ConnectionTable(std::size_t mostInAll, std::size_t mostOfPeer)
      : m_MostInAll(mostInAll), m_MostOfPeer(mostOfPeer) {}

  // False when there are too many already.
  bool Add(int socket, const provider::NetAddress& peer, const provider::NetAddress& local);
  // To be called before the socket is closed; does nothing for one that is not there.
  void Remove(int socket);

 private:
  using Pair = std::pair<provider::NetAddress, provider::NetAddress>;

  void Forget(int socket) REQUIRES(m_Mutex);

  const std::size_t m_MostInAll;
  const std::size_t m_MostOfPeer;
  provider::Mutex m_Mutex;
  std::map<int, Pair> m_Connections GUARDED_BY(m_Mutex);
  std::map<Pair, std::size_t> m_Counts GUARDED_BY(m_Mutex);
};

}  // namespace agent

#endif  // AGENT_CONNECTIONTABLE_H_

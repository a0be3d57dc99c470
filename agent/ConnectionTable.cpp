#include "agent/ConnectionTable.h"

#include <sys/socket.h>

#include <algorithm>

namespace agent {

using provider::MutexLock;
using provider::NetAddress;

namespace {

NetAddress PeerOf(NetAddress address) {
  constexpr std::ptrdiff_t kNetworkBytes = 8;
  if (address.isIpv6) std::fill(address.bytes.begin() + kNetworkBytes, address.bytes.end(), std::uint8_t{0});
  return address;
}

}  // namespace

bool ConnectionTable::Add(int socket, const NetAddress& peer, const NetAddress& local,
                          Clock::time_point deadline) {
  const Pair pair(PeerOf(peer), local);
  const MutexLock held(m_Mutex);
  // A number that is given out again was closed without a word.
  Forget(socket);
  const auto count = m_Counts.find(pair);
  if (m_Connections.size() >= m_MostInAll) return false;
  if (count != m_Counts.end() && count->second >= m_MostOfPeer) return false;
  m_Connections.emplace(socket, Connection{pair, deadline});
  ++m_Counts[pair];
  return true;
}

void ConnectionTable::SetDeadline(int socket, Clock::time_point deadline) {
  const MutexLock held(m_Mutex);
  const auto connection = m_Connections.find(socket);
  if (connection != m_Connections.end()) connection->second.deadline = deadline;
}

void ConnectionTable::EndOverdue(Clock::time_point now) {
  const MutexLock held(m_Mutex);
  for (auto& [socket, connection] : m_Connections) {
    if (connection.deadline > now) continue;
    // It is still open, since it is removed before it is closed.
    shutdown(socket, SHUT_RDWR);
    connection.deadline = kNoDeadline;
  }
}

void ConnectionTable::Remove(int socket) {
  const MutexLock held(m_Mutex);
  Forget(socket);
}

void ConnectionTable::Forget(int socket) {
  const auto connection = m_Connections.find(socket);
  if (connection == m_Connections.end()) return;
  const auto count = m_Counts.find(connection->second.pair);
  if (count != m_Counts.end() && --count->second == 0) m_Counts.erase(count);
  m_Connections.erase(connection);
}

}  // namespace agent

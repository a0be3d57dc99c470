#include "agent/ConnectionTable.h"

namespace agent {

using provider::MutexLock;

bool ConnectionTable::Add(int socket, const provider::NetAddress& peer, const provider::NetAddress& local) {
  const Pair pair(peer, local);
  const MutexLock held(m_Mutex);
  // A number that is given out again was closed without a word.
  Forget(socket);
  const auto count = m_Counts.find(pair);
  if (m_Connections.size() >= m_MostInAll) return false;
  if (count != m_Counts.end() && count->second >= m_MostOfPeer) return false;
  m_Connections.emplace(socket, pair);
  ++m_Counts[pair];
  return true;
}

void ConnectionTable::Remove(int socket) {
  const MutexLock held(m_Mutex);
  Forget(socket);
}

void ConnectionTable::Forget(int socket) {
  const auto connection = m_Connections.find(socket);
  if (connection == m_Connections.end()) return;
  const auto count = m_Counts.find(connection->second);
  if (count != m_Counts.end() && --count->second == 0) m_Counts.erase(count);
  m_Connections.erase(connection);
}

}  // namespace agent

// The agent's HTTP server: read-only, bounded, one thread for each connection so that a slow host holds up
// nobody else.
//
// Thread safety: Run is for one thread; the requests are answered on others.
#ifndef AGENT_SERVER_H_
#define AGENT_SERVER_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/ConnectionTable.h"
#include "agent/Listeners.h"
#include "agent/RequestHandler.h"
#include "agent/ServedHosts.h"
#include "provider/host/NetAddress.h"

struct MHD_Daemon;

namespace agent {

struct ServerOptions {
  std::vector<provider::NetAddress> listen;  // empty: where the hosts are
  std::uint16_t port = provider::kAgentPort;
  std::size_t mostConnections = 1024;
  std::size_t mostConnectionsOfPeer = 64;  // to one host
  // From the connection's begin, or its last answer, to a whole request; and for the answer to be taken. Looked
  // at once a second.
  std::chrono::seconds requestLimit{15};
  std::chrono::seconds answerLimit{30};
};

class Server {
 public:
  // Listens at once. Throws std::runtime_error.
  Server(ServedHosts hosts, const ServerOptions& options);
  // Ends scripted hangs, closes all connections and waits for their threads.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // "listening on ...": a line for each address, one for all when they are many.
  std::string Addresses() const;
  // Whether others than this machine can connect.
  bool IsOpenToOthers() const;
  std::uint16_t Port() const { return m_Listeners.Port(); }

  // Takes connections until `stopDescriptor` becomes readable.
  void Run(int stopDescriptor);

 private:
  struct StopDaemon {
    void operator()(MHD_Daemon* daemon) const;
  };

  std::vector<provider::NetAddress> Wanted() const;
  void FollowAddresses();
  void ListenFirst();
  void Accept(Accepted accepted);
  void EndOverdue();

  const ServedHosts m_Hosts;
  const ServerOptions m_Options;
  ConnectionTable::Clock::time_point m_NextLook;
  std::string m_Complaint;  // why an address could not be listened on; said once
  ConnectionTable m_Connections;
  const RequestContext m_Context;
  Listeners m_Listeners;
  std::unique_ptr<MHD_Daemon, StopDaemon> m_Daemon;
};

}  // namespace agent

#endif  // AGENT_SERVER_H_

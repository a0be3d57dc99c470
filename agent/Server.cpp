#include "agent/Server.h"

#include <microhttpd.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "provider/base/ProviderLog.h"

namespace agent {

using provider::NetAddress;

namespace {

constexpr std::size_t kConnectionMemory = 16'384;  // holds the request's line and headers
constexpr std::size_t kThreadStack = 524'288;
constexpr std::size_t kClosingConnections = 256;  // counted by the daemon for a little longer than by us
constexpr int kLookMilliseconds = 1'000;
constexpr std::size_t kMostLines = 8;

// For a client that has too many connections; it is to come back later.
constexpr std::string_view kTooMany =
    "HTTP/1.1 503 Service Unavailable\r\nConnection: close\r\nContent-Length: 0\r\nRetry-After: 1\r\n\r\n";

void NotifyConnection(void* table, MHD_Connection* connection, void** /*ofSocket*/,
                      MHD_ConnectionNotificationCode code) {
  if (code != MHD_CONNECTION_NOTIFY_CLOSED) return;
  const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  if (info != nullptr) static_cast<ConnectionTable*>(table)->Remove(info->connect_fd);
}

// Names in paths are written in one way only, so that there is nothing to be unescaped.
std::size_t LeaveEscaped(void* /*unused*/, MHD_Connection* /*connection*/, char* text) {
  return std::strlen(text);
}

MHD_Daemon* StartDaemon(const RequestContext& context, std::size_t mostConnections) {
  constexpr unsigned int kFlags =
      MHD_USE_POLL_INTERNAL_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_NO_LISTEN_SOCKET | MHD_USE_ITC;
  // The handlers only read the context.
  auto* const common = const_cast<RequestContext*>(&context);
  MHD_Daemon* daemon = MHD_start_daemon(
      kFlags, 0, nullptr, nullptr, &HandleRequest, common, MHD_OPTION_NOTIFY_COMPLETED, &EndRequest, common,
      MHD_OPTION_NOTIFY_CONNECTION, &NotifyConnection, &context.connections, MHD_OPTION_UNESCAPE_CALLBACK,
      &LeaveEscaped, nullptr, MHD_OPTION_CONNECTION_LIMIT,
      static_cast<unsigned int>(mostConnections + kClosingConnections), MHD_OPTION_CONNECTION_MEMORY_LIMIT,
      kConnectionMemory, MHD_OPTION_THREAD_STACK_SIZE, kThreadStack, MHD_OPTION_END);
  if (daemon == nullptr) throw std::runtime_error("the HTTP server could not be started");
  return daemon;
}

}  // namespace

void Server::StopDaemon::operator()(MHD_Daemon* daemon) const {
  MHD_stop_daemon(daemon);
}

Server::Server(ServedHosts hosts, const ServerOptions& options)
    : m_Hosts(std::move(hosts)),
      m_Options(options),
      m_Connections(options.mostConnections, options.mostConnectionsOfPeer),
      m_Context{m_Hosts, m_Connections, options.requestLimit, options.answerLimit},
      m_Listeners(options.port) {
  ListenFirst();
  m_Daemon.reset(StartDaemon(m_Context, m_Options.mostConnections));
}

Server::~Server() {
  m_Hosts.EndCalls();
}

std::vector<NetAddress> Server::Wanted() const {
  return m_Options.listen.empty() ? m_Hosts.OwnAddresses() : m_Options.listen;
}

// Addresses that were asked for by name must do. Of the others some are enough: a machine may have no IPv6.
void Server::ListenFirst() {
  try {
    m_Listeners.Set(Wanted());
  } catch (const std::runtime_error& error) {
    if (!m_Options.listen.empty() || m_Listeners.Addresses().empty()) throw;
    m_Complaint = error.what();
    provider::LogLine(m_Complaint);
  }
}

std::string Server::Addresses() const {
  const std::vector<NetAddress> addresses = m_Listeners.Addresses();
  if (addresses.empty()) return "listening on no address, name one with --listen";
  const auto text = [this](const NetAddress& address) { return address.TextWithPort(Port()); };
  if (addresses.size() > kMostLines) {
    return "listening on " + std::to_string(addresses.size()) + " addresses from " + text(addresses.front()) +
           " to " + text(addresses.back());
  }
  std::string lines;
  for (const NetAddress& address : addresses) {
    if (!lines.empty()) lines += '\n';
    lines += "listening on " + text(address);
  }
  return lines;
}

bool Server::IsOpenToOthers() const {
  const std::vector<NetAddress> addresses = m_Listeners.Addresses();
  return !std::all_of(addresses.begin(), addresses.end(),
                      [](const NetAddress& address) { return address.IsLoopback(); });
}

// The hosts of a fabric file come and go as the file is changed.
void Server::FollowAddresses() {
  if (!m_Options.listen.empty()) return;
  std::string complaint;
  try {
    m_Listeners.Set(Wanted());
  } catch (const std::runtime_error& error) {
    complaint = error.what();
  }
  if (!complaint.empty() && complaint != m_Complaint) provider::LogLine(complaint);
  m_Complaint = complaint;
}

void Server::Run(int stopDescriptor) {
  while (m_Listeners.Wait(stopDescriptor, kLookMilliseconds,
                          [this](Accepted accepted) { Accept(std::move(accepted)); })) {
    FollowAddresses();
    EndOverdue();
  }
}

// However many connections come, not more often than it matters.
void Server::EndOverdue() {
  const auto now = ConnectionTable::Clock::now();
  if (now < m_NextLook) return;
  m_NextLook = now + std::chrono::milliseconds(kLookMilliseconds);
  m_Connections.EndOverdue(now);
}

void Server::Accept(Accepted accepted) {
  const int socket = accepted.socket.Get();
  if (!m_Connections.Add(socket, accepted.peerAddress, accepted.localAddress,
                         ConnectionTable::Clock::now() + m_Options.requestLimit)) {
    [[maybe_unused]] const ssize_t sent = send(socket, kTooMany.data(), kTooMany.size(), MSG_NOSIGNAL);
    shutdown(socket, SHUT_WR);
    return;
  }
  const int given = accepted.socket.Release();  // closed by the daemon, also when it refuses
  const auto* peer = reinterpret_cast<const sockaddr*>(&accepted.peer);
  if (MHD_add_connection(m_Daemon.get(), given, peer, accepted.peerLength) != MHD_YES) {
    m_Connections.Remove(given);
  }
}

}  // namespace agent

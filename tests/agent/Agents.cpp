#include "tests/agent/Agents.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include "provider/host/WorldWideName.h"
#include "provider/remote/RemoteHost.h"

namespace agenttest {

using provider::FileDescriptor;
using provider::NetAddress;

namespace {

std::string WriteFabric(const Scratch& scratch, const Hosts& remote) {
  const json local = {{"name", "l"}, {"boards", json::array()}};
  return scratch.Write("fabric.json", json{{"local", local}, {"remote", remote}}.dump());
}

// False when there is nothing to wait for any more.
bool WaitFor(int descriptor, short events, int stopDescriptor) {
  pollfd descriptors[2] = {{descriptor, events, 0}, {stopDescriptor, POLLIN, 0}};
  poll(descriptors, 2, -1);
  return descriptors[1].revents == 0;
}

}  // namespace

agent::ServerOptions AnyPort() {
  agent::ServerOptions options;
  options.port = 0;
  return options;
}

NetAddress At(const std::string& address) {
  return NetAddress::Parse(address).value();
}

provider::Wwn Port(const std::string& digits) {
  return provider::ParseWwn(digits).value();
}

json RemoteHost(const json& address, const json& more) {
  json host = {{"address", address}, {"name", "r"}, {"boards", {FcBoard()}}};
  host.update(more);
  return host;
}

Background::Background(std::function<void(int)> body)
    : m_Stop(eventfd(0, EFD_CLOEXEC)), m_Thread([this, body = std::move(body)] { body(m_Stop.Get()); }) {}

Background::~Background() {
  EXPECT_EQ(eventfd_write(m_Stop.Get(), 1), 0);
  m_Thread.join();
}

Agent::Agent(const Hosts& remote, const agent::ServerOptions& options)
    : m_Server(agent::ServedHosts::OfFabric(WriteFabric(m_Scratch, remote), false), options),
      m_Thread([this](int stop) { m_Server.Run(stop); }) {}

std::unique_ptr<provider::Host> Agent::Remote(const std::string& address) const {
  return provider::MakeRemoteHost(At(address), Port());
}

RawServer::RawServer(Serve serve) : m_Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_storage address;
  socklen_t length = At("127.0.0.1").SocketAddress(0, address);
  auto* general = reinterpret_cast<sockaddr*>(&address);
  EXPECT_EQ(bind(m_Socket.Get(), general, length), 0);
  EXPECT_EQ(listen(m_Socket.Get(), 16), 0);
  EXPECT_EQ(getsockname(m_Socket.Get(), general, &length), 0);
  m_Port = ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
  m_Thread = std::make_unique<Background>([this, serve = std::move(serve)](int stop) {
    while (WaitFor(m_Socket.Get(), POLLIN, stop)) {
      const FileDescriptor connection(accept4(m_Socket.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
      serve(connection.Get(), stop);
    }
  });
}

bool SendAll(int socket, const std::string& bytes, int stopDescriptor) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    if (!WaitFor(socket, POLLOUT, stopDescriptor)) return false;
    const ssize_t count = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count < 0) return false;
    sent += static_cast<std::size_t>(count);
  }
  return true;
}

void ReadRequest(int socket, int stopDescriptor) {
  std::string request;
  while (request.find("\r\n\r\n") == std::string::npos && WaitFor(socket, POLLIN, stopDescriptor)) {
    char bytes[4096];
    const ssize_t count = recv(socket, bytes, sizeof(bytes), 0);
    if (count <= 0) return;
    request.append(bytes, static_cast<std::size_t>(count));
  }
}

bool HasIpv6() {
  const provider::FileDescriptor descriptor(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in6 self{};
  self.sin6_family = AF_INET6;
  self.sin6_addr = in6addr_loopback;
  return descriptor.IsOpen() &&
         bind(descriptor.Get(), reinterpret_cast<const sockaddr*>(&self), sizeof self) == 0;
}

}  // namespace agenttest

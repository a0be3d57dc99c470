#include "tests/agent/Agents.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include "provider/host/WorldWideName.h"
#include "provider/remote/RemoteHost.h"

namespace agenttest {

using provider::FileDescriptor;
using provider::NetAddress;

namespace {

constexpr int kPatienceMilliseconds = 10'000;

std::string WriteFabric(const Scratch& scratch, const Hosts& remote) {
  const json local = {{"name", "l"}, {"boards", json::array()}};
  return scratch.Write("fabric.json", json{{"local", local}, {"remote", remote}}.dump());
}

agent::ServerOptions AnyPort(agent::ServerOptions options) {
  options.port = 0;
  return options;
}

// False when there is nothing to wait for any more.
bool WaitFor(int descriptor, short events, int stopDescriptor) {
  pollfd descriptors[2] = {{descriptor, events, 0}, {stopDescriptor, POLLIN, 0}};
  poll(descriptors, 2, -1);
  return descriptors[1].revents == 0;
}

}  // namespace

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
    : m_Server(agent::ServedHosts::OfFabric(WriteFabric(m_Scratch, remote), !options.listen.empty()),
               AnyPort(options)),
      m_Thread([this](int stop) { m_Server.Run(stop); }) {}

void Agent::Rewrite(const Hosts& remote) {
  WriteFabric(m_Scratch, remote);
}

std::unique_ptr<provider::Host> Agent::Remote(const std::string& address) const {
  return provider::MakeRemoteHost(At(address), Port());
}

AgentProcess::AgentProcess(const Hosts& remote) {
  WriteFabric(m_Scratch, remote);
  Start();
}

AgentProcess::AgentProcess(const std::string& listen) : m_Listen(listen) {
  WriteFabric(m_Scratch, {});
  Start();
}

AgentProcess::~AgentProcess() {
  if (m_Process > 0) End(SIGKILL);
}

void AgentProcess::Start() {
  int pipe[2];
  ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
  const std::string file = m_Scratch.Path("fabric.json");
  const std::string port = std::to_string(m_Port);
  m_Process = fork();
  if (m_Process == 0) {
    dup2(pipe[1], STDERR_FILENO);
    const char* const none = nullptr;
    if (!m_Listen.empty() && unshare(CLONE_NEWNET) != 0) _exit(126);
    execl(AGENT_PROGRAM, AGENT_PROGRAM, "--fabric", file.c_str(), "--port", port.c_str(), "--user", "root",
          m_Listen.empty() ? none : "--listen", m_Listen.c_str(), none);
    _exit(127);
  }
  close(pipe[1]);
  m_Log = FileDescriptor(pipe[0]);
  const std::string line = NextLine();
  ASSERT_NE(line.find("listening on "), std::string::npos) << line;
  m_Port = static_cast<std::uint16_t>(std::stoul(line.substr(line.rfind(':') + 1)));
}

std::string AgentProcess::NextLine() const {
  std::string line;
  char c = 0;
  while (read(m_Log.Get(), &c, 1) == 1 && c != '\n') line += c;
  return line;
}

int AgentProcess::End(int signal) {
  int status = -1;
  kill(m_Process, signal);
  waitpid(m_Process, &status, 0);
  m_Process = -1;
  return status;
}

std::size_t AgentProcess::Threads() const {
  const std::filesystem::directory_iterator threads("/proc/" + std::to_string(m_Process) + "/task");
  return static_cast<std::size_t>(std::distance(begin(threads), end(threads)));
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

Client::Client(const std::string& address, std::uint16_t port)
    : m_Socket(socket(At(address).isIpv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_storage storage;
  const socklen_t length = At(address).SocketAddress(port, storage);
  EXPECT_EQ(connect(m_Socket.Get(), reinterpret_cast<sockaddr*>(&storage), length), 0);
  const timeval patience{kPatienceMilliseconds / 1000, 0};
  EXPECT_EQ(setsockopt(m_Socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)), 0);
}

void Client::Send(const std::string& bytes) const {
  EXPECT_EQ(send(m_Socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
}

std::string Client::Ask(const std::string& request) {
  Send(request);
  std::string answer;
  const auto isWhole = [&answer] {
    const std::size_t end = answer.find("\r\n\r\n");
    const std::size_t length = answer.find("Content-Length: ");
    if (end == std::string::npos || length == std::string::npos) return false;
    return answer.size() >= end + 4 + std::stoul(answer.substr(length + 16));
  };
  while (!isWhole()) {
    char bytes[4096];
    const ssize_t count = recv(m_Socket.Get(), bytes, sizeof(bytes), 0);
    if (count <= 0) return answer;
    answer.append(bytes, static_cast<std::size_t>(count));
  }
  return answer;
}

std::optional<std::string> Client::ReadToEnd() const {
  std::string said;
  char bytes[4096];
  ssize_t count = 0;
  while ((count = recv(m_Socket.Get(), bytes, sizeof(bytes), 0)) > 0)
    said.append(bytes, static_cast<std::size_t>(count));
  return count == 0 || errno == ECONNRESET ? std::optional(said) : std::nullopt;
}

bool Client::IsCutOffDribbling() const {
  constexpr int kPauseMilliseconds = 50;
  pollfd end{m_Socket.Get(), POLLRDHUP, 0};
  for (int i = 0; i < kPatienceMilliseconds / kPauseMilliseconds; ++i) {
    const bool isTaken = send(m_Socket.Get(), "x", 1, MSG_NOSIGNAL) == 1;
    if (!isTaken || poll(&end, 1, kPauseMilliseconds) != 0) return true;
  }
  return false;
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

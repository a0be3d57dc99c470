// Agents of a test's own, in this process and outside it, and servers that are none.
#ifndef TESTS_AGENT_AGENTS_H_
#define TESTS_AGENT_AGENTS_H_

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "agent/Server.h"
#include "provider/base/FileDescriptor.h"
#include "provider/host/Host.h"
#include "tests/provider/Boundary.h"

namespace agenttest {

inline constexpr char kPort[] = "0x1000000000000001";

provider::NetAddress At(const std::string& address);
provider::Wwn Port(const std::string& digits = providertest::kPort);

// The remote hosts of a fabric file.
using Hosts = std::vector<json>;

// A remote host of a fabric file, with one FC port.
json RemoteHost(const json& address, const json& more = json::object());

// A thread that is told by a descriptor when to end.
class Background {
 public:
  explicit Background(std::function<void(int stopDescriptor)> body);
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

 private:
  provider::FileDescriptor m_Stop;
  std::thread m_Thread;
};

// An agent in this process, at a port by chance.
class Agent {
 public:
  explicit Agent(const Hosts& remote, const agent::ServerOptions& options = {});

  void Rewrite(const Hosts& remote);
  std::string Path() const { return m_Scratch.Path("fabric.json"); }
  std::uint16_t Port() const { return m_Server.Port(); }
  std::string Addresses() const { return m_Server.Addresses(); }
  std::unique_ptr<provider::Host> Remote(const std::string& address) const;

 private:
  Scratch m_Scratch;
  agent::Server m_Server;
  Background m_Thread;
};

// The program, with any port at first and with the same one after a restart.
class AgentProcess {
 public:
  explicit AgentProcess(const Hosts& remote);
  // Serves the local host there, in a network of its own.
  explicit AgentProcess(const std::string& listen);
  ~AgentProcess();
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  void Start();
  // The next line on standard error, after the first.
  std::string NextLine() const;
  // Returns what waitpid says.
  int End(int signal);
  std::uint16_t Port() const { return m_Port; }
  // One for each connection, beside those that are always there.
  std::size_t Threads() const;

 private:
  Scratch m_Scratch;
  std::string m_Listen;
  std::uint16_t m_Port = 0;
  pid_t m_Process = -1;
  provider::FileDescriptor m_Log;
};

// Waits on a loopback port and does with each connection what the test wants, one after the other.
class RawServer {
 public:
  using Serve = std::function<void(int socket, int stopDescriptor)>;
  explicit RawServer(Serve serve);

  std::uint16_t Port() const { return m_Port; }

 private:
  provider::FileDescriptor m_Socket;
  std::uint16_t m_Port = 0;
  std::unique_ptr<Background> m_Thread;
};

// False when the other side has closed or the test ends.
bool SendAll(int socket, const std::string& bytes, int stopDescriptor);
// Reads up to the end of a request's headers.
void ReadRequest(int socket, int stopDescriptor);

// A connection on which a test writes HTTP by hand.
class Client {
 public:
  Client(const std::string& address, std::uint16_t port);

  // Sends, and returns the answer as far as its Content-Length says; empty when the connection is closed.
  std::string Ask(const std::string& request);
  std::string Get(const std::string& path) { return Ask(Request(path)); }
  static std::string Request(const std::string& path) {
    return "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
  }
  void Send(const std::string& bytes) const;
  // What the other side says until it closes; nothing when it does not.
  std::optional<std::string> ReadToEnd() const;
  // Sends a byte at a time for as long as the other side takes them; false when it takes them for ten seconds.
  bool IsCutOffDribbling() const;

 private:
  provider::FileDescriptor m_Socket;
};

// Whether this machine has the loopback address of IPv6, as containers may not.
bool HasIpv6();

}  // namespace agenttest

#endif  // TESTS_AGENT_AGENTS_H_

// Agents of a test's own, in this process and outside it, and servers that are none.
#ifndef TESTS_AGENT_AGENTS_H_
#define TESTS_AGENT_AGENTS_H_

#include <nlohmann/json.hpp>

#include "agent/Server.h"
#include "provider/base/FileDescriptor.h"
#include "provider/host/Host.h"
#include "tests/provider/Boundary.h"
#include "tests/support/Testing.h"

namespace agenttest {

inline constexpr char kPort[] = "0x1000000000000001";

provider::NetAddress At(const std::string& address);
provider::Wwn Port(const std::string& digits = providertest::kPort);

// The remote hosts of a fabric file.
using Hosts = std::vector<json>;

// A remote host of a fabric file, with one FC port.
json RemoteHost(const json& address, const json& more = json::object());

agent::ServerOptions AnyPort();

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

// An agent in this process, at a port by chance unless it is told another.
class Agent {
 public:
  explicit Agent(const Hosts& remote, const agent::ServerOptions& options = AnyPort());

  std::string Path() const { return m_Scratch.Path("fabric.json"); }
  std::uint16_t Port() const { return m_Server.Port(); }
  std::unique_ptr<provider::Host> Remote(const std::string& address) const;

 private:
  Scratch m_Scratch;
  agent::Server m_Server;
  Background m_Thread;
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

// Whether this machine has the loopback address of IPv6, as containers may not.
bool HasIpv6();

}  // namespace agenttest

#endif  // TESTS_AGENT_AGENTS_H_

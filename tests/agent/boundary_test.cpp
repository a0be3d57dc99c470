// Remote hosts through the boundary's functions, asked of the agent program.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>

#include "rmapi/rmapi.h"
#include "tests/agent/Agents.h"

namespace agenttest {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

// A host that is registered as long as the object lives.
class Registered {
 public:
  Registered(const std::string& address, std::uint16_t port) {
    EXPECT_EQ(RM_RemoteOOBHostAddrV2(address.c_str(), port, &m_Record), RM_STATUS_OK);
    EXPECT_EQ(RM_AddOOBAddressToLookupTable(&m_Record, m_Proxy), RM_STATUS_OK);
  }
  ~Registered() { RM_RemoveOOBAddrFromLookupTable(&m_Record); }
  Registered(const Registered&) = delete;
  Registered& operator=(const Registered&) = delete;

  const unsigned char* Proxy() const { return m_Proxy; }

  // With the given room, which is returned whole.
  struct Names {
    int status;
    RM_NodeAddrList list;
    std::vector<HBA_NAME> names;
  };
  Names AskNames(std::uint32_t room = 16) const {
    static_assert(sizeof(RM_NodeAddrList) == sizeof(HBA_NAME));
    std::vector<HBA_NAME> block(1 + room);
    auto* list = reinterpret_cast<RM_NodeAddrList*>(block.data());
    *list = {room, 99};
    const int status = RM_GetAllNodeAddr(&m_Record, list);
    return {status, *list, {block.begin() + 1, block.end()}};
  }

 private:
  _RM_IP_INFO m_Record{};
  unsigned char m_Proxy[8] = {};
};

// Or the status.
std::string HostName(const Registered& host) {
  const providertest::AttributesRead read(RM_GetServerAttributes, providertest::kPort, RM_ATTRIBUTE_ROOM,
                                          host.Proxy());
  return read.status == RM_STATUS_OK ? read.Text(257) : std::to_string(read.status);
}

TEST(Boundary, HostsByAddressAndProxy) {
  if (!HasIpv6()) GTEST_SKIP() << "no IPv6 here";
  const json boards = {FcBoard(), FcBoard(providertest::kOtherPort)};
  const AgentProcess agent(Hosts{
      RemoteHost(json{"127.0.2.1", "::1"}, {{"boards", boards}, {"name", "first"}}),
      RemoteHost("127.0.2.2", {{"name", "second"},
                               {"faults", {{{"call", "RM_GetAllNodeAddr"}, {"status", 303}, {"times", 2}}}}})});
  const Registered first("127.0.2.1", agent.Port());
  const Registered ipv6("::1", agent.Port());
  const Registered second("127.0.2.2", agent.Port());
  for (const Registered* host : {&first, &ipv6}) {
    const Registered::Names names = host->AskNames();
    EXPECT_EQ(names.status, RM_STATUS_OK);
    EXPECT_EQ(names.list.count, 2u);
    EXPECT_EQ(Digits(names.names[1].wwn), providertest::kOtherPort);
    EXPECT_EQ(HostName(*host), "first");
    const Registered::Names tooSmall = host->AskNames(1);
    EXPECT_EQ(tooSmall.status, RM_STATUS_MORE_DATA);
    EXPECT_EQ(tooSmall.list.capacity, 2u);
    EXPECT_EQ(tooSmall.list.count, 0u);
  }
  for (const int status : {303, 303, 0}) EXPECT_EQ(second.AskNames().status, status);
  EXPECT_EQ(HostName(second), "second");
}

// A connection that has died since is made again; a call under way ends with its agent.
TEST(Boundary, AnAgentThatDiesAndComesBack) {
  AgentProcess agent(Hosts{RemoteHost(
      "127.0.2.1",
      {{"faults", {{{"call", "RM_GetServerAttributes"}, {"skip", 1}, {"times", 1}, {"hang", true}}}}})});
  const Registered host("127.0.2.1", agent.Port());
  EXPECT_EQ(HostName(host), "r");
  const std::size_t withOneConnection = agent.Threads();
  std::thread asking([&] { EXPECT_EQ(HostName(host), "302"); });
  // A second connection is made only while the first one is in use.
  EXPECT_TRUE(Eventually(
      [&] { return host.AskNames().status == RM_STATUS_OK && agent.Threads() > withOneConnection; }));
  agent.End(SIGKILL);
  asking.join();
  EXPECT_EQ(host.AskNames().status, RM_STATUS_HOST_UNUSABLE);
  agent.Start();
  EXPECT_EQ(host.AskNames().status, RM_STATUS_OK);
  const int status = agent.End(SIGTERM);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// The calls about one host share a connection, and few of those that are not in use stay open.
TEST(Boundary, FewConnections) {
  constexpr int kHosts = 60;
  Hosts remote;
  for (int i = 1; i <= kHosts; ++i) remote.push_back(RemoteHost("127.0.3." + std::to_string(i)));
  const AgentProcess agent(remote);
  const std::size_t withoutConnection = agent.Threads();
  for (int i = 1; i <= kHosts; ++i) {
    const Registered host("127.0.3." + std::to_string(i), agent.Port());
    for (int calls = 0; calls < 5; ++calls) EXPECT_EQ(host.AskNames().status, RM_STATUS_OK);
    EXPECT_TRUE(i > 1 || agent.Threads() == withoutConnection + 1);
  }
  EXPECT_TRUE(Eventually([&] { return agent.Threads() <= withoutConnection + 32; }));
}

// Also on a connection that is there already.
TEST(Boundary, TheTimeOutIsKept) {
  const json hang = {{{"call", "*"}, {"skip", 1}, {"hang", true}}};
  const AgentProcess agent(Hosts{RemoteHost("127.0.2.1", {{"faults", hang}})});
  const Registered host("127.0.2.1", agent.Port());
  EXPECT_EQ(RM_SetOOBTimeout(1), RM_STATUS_OK);
  EXPECT_EQ(host.AskNames().status, RM_STATUS_OK);
  const auto start = steady_clock::now();
  EXPECT_EQ(host.AskNames().status, RM_STATUS_BUSY);
  EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(950));
  EXPECT_LT(steady_clock::now() - start, seconds(5));
}

}  // namespace
}  // namespace agenttest

// Remote hosts through the boundary's functions.
#include <gtest/gtest.h>

#include "rmapi/rmapi.h"
#include "tests/agent/Agents.h"

namespace agenttest {
namespace {

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
  // Or the status.
  std::string HostName() const {
    const providertest::AttributesRead read(RM_GetServerAttributes, providertest::kPort, RM_ATTRIBUTE_ROOM,
                                            m_Proxy);
    return read.status == RM_STATUS_OK ? read.Text(257) : std::to_string(read.status);
  }

 private:
  _RM_IP_INFO m_Record{};
  unsigned char m_Proxy[8] = {};
};

TEST(RemoteBoundary, HostsByAddressAndProxy) {
  if (!HasIpv6()) GTEST_SKIP() << "no IPv6 here";
  const json boards = {FcBoard(), FcBoard(providertest::kOtherPort)};
  const json busy = {{{"call", "RM_GetAllNodeAddr"}, {"status", 303}, {"times", 2}}};
  const Agent agent({RemoteHost(json{"127.0.2.1", "::1"}, {{"boards", boards}, {"name", "first"}}),
                     RemoteHost("127.0.2.2", {{"name", "second"}, {"faults", busy}})});
  for (const char* address : {"127.0.2.1", "::1"}) {
    const Registered host(address, agent.Port());
    const Registered::Names names = host.AskNames();
    EXPECT_EQ(names.status, RM_STATUS_OK);
    EXPECT_EQ(names.list.count, 2u);
    EXPECT_EQ(Digits(names.names[1].wwn), providertest::kOtherPort);
    EXPECT_EQ(host.HostName(), "first");
    const Registered::Names tooSmall = host.AskNames(1);
    EXPECT_EQ(tooSmall.status, RM_STATUS_MORE_DATA);
    EXPECT_EQ(tooSmall.list.capacity, 2u);
    EXPECT_EQ(tooSmall.list.count, 0u);
  }
  const Registered second("127.0.2.2", agent.Port());
  for (const int status : {303, 303, 0}) EXPECT_EQ(second.AskNames().status, status);
  EXPECT_EQ(second.HostName(), "second");
}

// A connection that has died since is made again.
TEST(RemoteBoundary, AnAgentThatDiesAndComesBack) {
  std::optional<Agent> agent(std::in_place, Hosts{RemoteHost("127.0.2.1")});
  agent::ServerOptions same;
  same.port = agent->Port();
  const Registered host("127.0.2.1", same.port);
  EXPECT_EQ(host.HostName(), "r");
  agent.reset();
  EXPECT_EQ(host.AskNames().status, RM_STATUS_HOST_UNUSABLE);
  agent.emplace(Hosts{RemoteHost("127.0.2.1")}, same);
  EXPECT_EQ(host.AskNames().status, RM_STATUS_OK);
}

}  // namespace
}  // namespace agenttest

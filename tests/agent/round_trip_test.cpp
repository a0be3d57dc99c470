// What a remote host answers is, byte for byte, what the host itself answers.

#include "provider/fabric/FabricHost.h"
#include "provider/host/WorldWideName.h"
#include "provider/remote/WireQuery.h"
#include "tests/agent/Agents.h"
#include "tests/support/Testing.h"

namespace agenttest {
namespace {

using provider::Answer;
using provider::Host;
using provider::ListAnswer;
using provider::Wwn;

bool HasValue(int status) {
  return status == RM_STATUS_OK || status == RM_STATUS_OVER_TEMPERATURE;
}

bool Same(const provider::Board& a, const provider::Board& b) {
  return std::memcmp(&a.info, &b.info, sizeof(a.info)) == 0 && a.linkStatus == b.linkStatus;
}

bool Same(const provider::IscsiNames& a, const provider::IscsiNames& b) {
  return a.initiatorName == b.initiatorName && a.defaultName == b.defaultName && a.alias == b.alias;
}

template <class T>
bool Same(const T& a, const T& b) {
  return a == b;
}

template <class T>
void ExpectSame(const Answer<T>& there, const Answer<T>& here) {
  EXPECT_EQ(there.status, here.status);
  EXPECT_TRUE(!HasValue(here.status) || Same(there.value, here.value));
}

template <class Record>
void ExpectSame(const ListAnswer<Record>& there, const ListAnswer<Record>& here) {
  EXPECT_EQ(there.status, here.status);
  EXPECT_EQ(there.claimedCount, here.claimedCount);
  if (here.status != RM_STATUS_OK) return;
  ASSERT_EQ(there.records.size(), here.records.size());
  if (here.records.empty()) return;
  EXPECT_EQ(std::memcmp(there.records.data(), here.records.data(), here.records.size() * sizeof(Record)), 0);
}

template <class... Question>
void ExpectSameAnswers(Host& there, Host& here, const Wwn& port, Question... questions) {
  (ExpectSame((there.*questions)(port), (here.*questions)(port)), ...);
}

// Every question about a port that there is.
void ExpectSamePort(Host& there, Host& here, const Wwn& port) {
  EXPECT_EQ(there.HasPort(port), here.HasPort(port));
  EXPECT_EQ(there.IsMakersPort(port), here.IsMakersPort(port));
  ExpectSameAnswers(there, here, port, &Host::DiscoveryAttributes, &Host::HbaAttributes, &Host::PortAttributes,
                    &Host::ServerAttributes, &Host::DriverType, &Host::BindType, &Host::InitiatorProperties,
                    &Host::Nodes, &Host::VirtualPorts, &Host::VirtualFunctions);
  for (const RM_VPortEntry& vport : here.VirtualPorts(port).records) {
    const Wwn name = provider::WwnFromBytes(vport.portWwn);
    ExpectSame(there.VirtualPortTargets(port, name), here.VirtualPortTargets(port, name));
  }
  for (const bool refresh : {false, true}) {
    ExpectSame(there.IscsiTargets(port, refresh), here.IscsiTargets(port, refresh));
  }
}

void ExpectSameHost(Host& there, Host& here) {
  ExpectSame(there.BoardInstances(), here.BoardInstances());
  ExpectSame(there.PortNames(), here.PortNames());
  ExpectSame(there.SecureManagement(), here.SecureManagement());
  for (const unsigned int instance : here.BoardInstances().records) {
    ExpectSame(there.ReadBoard(instance), here.ReadBoard(instance));
  }
  for (const HBA_NAME& name : here.PortNames().records) {
    SCOPED_TRACE(Digits(name.wwn));
    ExpectSamePort(there, here, provider::WwnFromBytes(name.wwn));
  }
}

// A host with every kind of port, as others see it.
TEST(RoundTrip, EveryQuestionOfALargeHost) {
  if (!HasIpv6()) GTEST_SKIP() << "no IPv6 here";
  json host = json::parse(ReadFile(EXAMPLES "/datacenter-host.json"))["local"];
  host["address"] = {"127.0.1.1", "::1"};
  const Agent agent(Hosts{host});
  provider::FabricHosts hosts(agent.Path());
  const auto here = hosts.At(At("::1"));
  EXPECT_GE(here->PortNames().records.size(), 8u);
  for (const char* address : {"127.0.1.1", "::1"}) ExpectSameHost(*agent.Remote(address), *here);
  ExpectSamePort(*agent.Remote("::1"), *here, Port("1000000000000099"));  // not there
}

// Texts that fill their fields, that are cut in the middle of a character, and values at their ends.
TEST(RoundTrip, ValuesAtTheirEnds) {
  std::string longName;
  while (longName.size() < 509) longName += "n\xC3\xA4";  // a character lies across byte 256
  json iscsi = R"({"kind": "iscsi", "wwpn": "1000000000000002"})"_json;
  iscsi["iscsi_targets"] = {{{"name", longName}}};
  iscsi["iscsi"] = {{"initiator_name", std::string(256, 'i')}};
  json fc = FcBoard();
  fc["serial_number"] = std::string(59, 's') + "\x7E";
  fc["sub_adapter_id"] = std::string(32, 'a');
  fc["overheated"] = true;
  fc["targets"] = R"([{"wwpn": "ffffffffffffffff", "fcp_lun": "0xffffffffffffffff", "lun": 4294967295,
                       "state": 4294967295, "lun_id": "\u20AC \"\\"}])"_json;
  fc["targets"][0]["device"] = std::string(255, 'd');
  fc["attributes"] = R"([{"id": 4294967295, "value": "\u20AC"},
                         {"id": 7, "value": {"name": "0000000000000001"}}])"_json;
  const Agent agent(Hosts{RemoteHost("127.0.1.1", {{"boards", {fc, iscsi}}, {"secure_management", true}})});
  provider::FabricHosts hosts(agent.Path());
  const auto there = agent.Remote("127.0.1.1");
  ExpectSameHost(*there, *hosts.At(At("127.0.1.1")));
  EXPECT_EQ(there->DiscoveryAttributes(Port()).status, RM_STATUS_OVER_TEMPERATURE);
  ASSERT_EQ(there->IscsiTargets(Port(providertest::kOtherPort), false).records.size(), 1u);
}

TEST(Paths, RoundTripAndNothingElse) {
  for (int i = 0; i <= static_cast<int>(provider::WireQuestion::kVirtualFunctions); ++i) {
    provider::WireQuery query;
    query.question = static_cast<provider::WireQuestion>(i);
    const auto parsed = provider::ParsePath(PathOf(query));
    ASSERT_TRUE(parsed.has_value()) << PathOf(query);
    EXPECT_EQ(PathOf(*parsed), PathOf(query));
    EXPECT_EQ(parsed->question, query.question);
  }
  const provider::WireQuery vport{provider::WireQuestion::kVirtualPortTargets, Port(), Port("1100000000000002"),
                                  0};
  EXPECT_EQ(provider::ParsePath(PathOf(vport)), vport);
  EXPECT_EQ(provider::ParsePath("/v1/boards/4294967295")->instance, 4294967295u);
  for (const char* path :
       {"", "/", "/v1", "/v1/", "/v1/boards/", "/v1/boards/00", "/v1/boards/-1", "/v1/boards/4294967296",
        "/v1/boards/1/x", "v1/boards", "//v1/boards", "/v1/ports/1000000000000001/nodes",
        "/v1/ports/0x10000000000001/nodes", "/v1/ports/0x100000000000000g/nodes",
        "/v1/ports/0x1000000000000001", "/v1/ports/0x1000000000000001/nodes/",
        "/v1/ports/0x1000000000000001/node", "/v1/ports/0x1000000000000001/virtual_ports/x/targets",
        "/v1/ports/0x1000000000000001/../../etc"}) {
    EXPECT_EQ(provider::ParsePath(path), std::nullopt) << path;
  }
}

}  // namespace
}  // namespace agenttest

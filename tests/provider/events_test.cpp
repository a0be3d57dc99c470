// Changes that a fabric file scripts for a time after it was loaded.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/provider/Boundary.h"

namespace providertest {
namespace {

constexpr char kNic[] = "1000000000000003";
constexpr char kIscsi[] = "1000000000000004";

const json kFourBoards = R"([
    {"kind": "fc", "wwpn": "1000000000000001", "targets": [{"wwpn": "5000000000000001", "count": 3, "luns": 2}]},
    {"kind": "fc", "wwpn": "1000000000000002"},
    {"kind": "nic", "wwpn": "1000000000000003"},
    {"kind": "iscsi", "wwpn": "1000000000000004", "iscsi": {"initiator_name": "iqn"}}])"_json;

// The boards with these events.
class Scripted : public Fabric {
 public:
  explicit Scripted(const char* events) : Fabric(kFourBoards, {{"events", json::parse(events)}}) {}
};

std::vector<std::string> TargetNames(const std::string& port) {
  std::vector<std::string> names;
  for (const RM_NodeInfoEntry& node : Nodes(port).records) names.push_back(Digits(node.portWwn));
  return names;
}

TEST(Events, AtTimeZeroTheyHaveHappened) {
  const Scripted fabric(R"([
      {"after_ms": 0, "port": "1000000000000001", "link": "down",
       "remove_targets": ["5000000000000002", {"wwpn": "5000000000000003", "count": 1}],
       "add_targets": [{"wwpn": "5000000000000009", "makers_port": true}],
       "virtual_ports": [{"wwpn": "1100000000000001"}]},
      {"after_ms": 0, "port": "1000000000000002", "overheated": true},
      {"after_ms": 0, "port": "1000000000000003", "virtual_functions": ["0100000000000001"]},
      {"after_ms": 0, "port": "1000000000000004", "iscsi_targets": [{"name": "iqn.t"}]}])");
  EXPECT_EQ(ReadBoard(0).board.linkStatus, 2u);
  EXPECT_THAT(TargetNames(kPort),
              testing::ElementsAre("5000000000000001", "5000000000000001", "5000000000000009"));
  EXPECT_NE(RM_IsVarnixPort(Name("5000000000000009").wwn), 0);
  EXPECT_NE(RM_IsVarnixPort(Name("1100000000000001").wwn), 0);
  EXPECT_EQ(VirtualPorts(kPort).count, 1u);
  EXPECT_EQ(ReadBoard(1).board.linkStatus, 0xEE000000u);
  EXPECT_EQ(AttributesRead(RM_GetDiscoveryAttributes, kOtherPort).status, RM_STATUS_OVER_TEMPERATURE);
  EXPECT_EQ(Functions(kNic).count, 1u);
  EXPECT_EQ(IscsiTargets(kIscsi).count, 1u);
}

// Given in another order than that of their times.
TEST(Events, HappenInTheOrderOfTheirTimes) {
  const Scripted fabric(R"([{"after_ms": 4000, "port": "1000000000000001", "link": "up", "targets": []},
                            {"after_ms": 1500, "port": "1000000000000001", "link": "down"},
                            {"after_ms": 1000000, "port": "1000000000000001", "link": 9}])");
  EXPECT_EQ(ReadBoard(0).board.linkStatus, 1u);
  EXPECT_TRUE(Eventually([] { return ReadBoard(0).board.linkStatus == 2; }));
  EXPECT_EQ(Nodes(kPort).count, 6u);
  EXPECT_TRUE(Eventually([] { return ReadBoard(0).board.linkStatus == 1; }));
  EXPECT_EQ(Nodes(kPort).count, 0u);
}

}  // namespace
}  // namespace providertest

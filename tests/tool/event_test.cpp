#include "tools/hbadisc/Event.h"

#include <gtest/gtest.h>

#include "include/hbadiscovery.h"

namespace hbadisc {
namespace {

constexpr char kFirst[] = "0x1000000000000001";
constexpr char kSecond[] = "0x1000000000000002";

Port MakePort(std::uint8_t number) {
  Port port;
  port.wwpn.bytes = {0x10, 0, 0, 0, 0, 0, 0, number};
  port.link = Link::Up;
  port.details.emplace();
  return port;
}

FcTarget MakeTarget(std::uint8_t number) {
  FcTarget target;
  target.wwpn.bytes = {0x50, 0, 0, 0, 0, 0, 0, number};
  target.ready = true;
  return target;
}

std::vector<Change> Compare(const std::vector<Port>& before, const std::vector<Port>& after) {
  return hbadisc::Compare(ToJson(before), ToJson(after));
}

// The part of a line that tells the changes.
std::string LineOf(const std::vector<Change>& changes) {
  const std::string line = EventLine({1, {}, HBADISC_REASON_CHANGED, 3, changes}, false);
  const std::string head = "  changed       3 ports";
  EXPECT_EQ(line.substr(19, head.size()), head);
  return line.substr(19 + head.size());
}

TEST(EventTest, SamePicturesDoNotDiffer) {
  EXPECT_TRUE(Compare({MakePort(1), MakePort(2)}, {MakePort(1), MakePort(2)}).empty());
  EXPECT_TRUE(Compare(std::vector<Port>{}, {}).empty());
  EXPECT_EQ(LineOf({}), "\n");
}

TEST(EventTest, PortsComeAndGo) {
  const auto changes = Compare({MakePort(1)}, {MakePort(2)});
  ASSERT_EQ(changes.size(), 2U);
  EXPECT_EQ(changes[0].kind, ChangeKind::Removed);
  EXPECT_EQ(changes[0].port, kFirst);
  EXPECT_TRUE(changes[0].path.empty());
  EXPECT_EQ(changes[0].before["wwpn"], kFirst);
  EXPECT_TRUE(changes[0].after.is_null());
  EXPECT_EQ(changes[1].kind, ChangeKind::Added);
  EXPECT_EQ(changes[1].port, kSecond);
  EXPECT_EQ(LineOf(changes),
            "  removed 10:00:00:00:00:00:00:01; added 10:00:00:00:00:00:00:02 (FC, link up)\n");
}

TEST(EventTest, AttributesOfAPort) {
  Port before = MakePort(1);
  Port after = before;
  after.link = Link::Down;
  after.targetCount = 2;
  after.vportCount = 1;
  after.vfCount = 3;
  after.serialNumber = "S1";
  after.via = Proxy{"10.0.0.5", 23333, false};
  EXPECT_EQ(LineOf(Compare({before}, {after})),
            "  10:00:00:00:00:00:00:01: link up -> down, serial number - -> S1, targets 0 -> 2, virtual ports "
            "0 -> 1, "
            "virtual functions 0 -> 3, via - -> address 10.0.0.5, port 23333, CIM no\n");
}

TEST(EventTest, TargetsBelowPortsAndVirtualPorts) {
  Port before = MakePort(1);
  before.details->fcTargets = {MakeTarget(1), MakeTarget(2)};
  before.details->virtualPorts = {{{{0x30}}, std::nullopt, 0, {MakeTarget(3)}}};
  Port after = before;
  after.details->fcTargets = {MakeTarget(2), MakeTarget(4)};
  after.details->fcTargets[0].ready = false;
  after.details->virtualPorts[0].targets.clear();
  after.details->virtualFunctions = {Wwn{{2}}};
  after.details->iscsiNames = IscsiNames{"a", "", ""};
  const auto changes = Compare({before}, {after});
  EXPECT_EQ(LineOf(changes),
            "  10:00:00:00:00:00:00:01: iSCSI names - -> initiator name a, default name -, alias -, "
            "target 50:00:00:00:00:00:00:01 removed, target 50:00:00:00:00:00:00:02 ready yes -> no, "
            "target 50:00:00:00:00:00:00:04 added, "
            "virtual port 30:00:00:00:00:00:00:00 target 50:00:00:00:00:00:00:03 removed, "
            "virtual function 02:00:00:00:00:00:00:00 added\n");
  EXPECT_EQ(changes[2].path, (std::vector<std::string>{"targets", "0x5000000000000002", "ready"}));
}

TEST(EventTest, ManyOfAKindAreToldInOne) {
  Port before = MakePort(2);
  Port after = before;
  for (std::uint8_t i = 1; i <= 6; ++i) before.details->fcTargets.push_back(MakeTarget(i));
  after.details->fcTargets = {MakeTarget(3), MakeTarget(7), MakeTarget(8)};
  EXPECT_EQ(LineOf(Compare({before}, {MakePort(1), after, MakePort(3), MakePort(4)})),
            "  added 10:00:00:00:00:00:00:01 (FC, link up); "
            "10:00:00:00:00:00:00:02: targets 50:00:00:00:00:00:00:01, 50:00:00:00:00:00:00:02, "
            "50:00:00:00:00:00:00:04, 50:00:00:00:00:00:00:05 and 1 more removed, "
            "targets 50:00:00:00:00:00:00:07, 50:00:00:00:00:00:00:08 added; "
            "added 10:00:00:00:00:00:00:03 (FC, link up), 10:00:00:00:00:00:00:04 (FC, link up)\n");
}

TEST(EventTest, TextsOfPortsCannotWriteToTheTerminal) {
  Port before = MakePort(1);
  Port after = before;
  before.model = "a\nb";
  after.model = "\x1b[2J";
  EXPECT_EQ(LineOf(Compare({before}, {after})), "  10:00:00:00:00:00:00:01: model a\\x0ab -> \\x1b[2J\n");
}

TEST(EventTest, ReasonsAreNamed) {
  const std::pair<unsigned int, std::string> rows[] = {{1, "no change   "}, {3, "forced      "},
                                                       {7, "forced      "}, {5, "changed     "},
                                                       {8, "directed    "}, {20, "intermediate"}};
  for (const auto& [reason, word] : rows) {
    EXPECT_EQ(EventLine({1, {}, reason, 1, {}}, false).substr(21), word + "  1 port\n") << reason;
  }
  EXPECT_EQ(ReasonNames(7), (std::vector<std::string>{"every_cycle", "forced", "changed"}));
}

TEST(EventTest, EventsAsJson) {
  const auto changes = Compare({MakePort(1)}, std::vector<Port>{});
  const auto time = std::chrono::system_clock::from_time_t(1700000000);
  const Json json = ToJson(Event{4, time, 20, 0, changes});
  EXPECT_EQ(json["event"], 4);
  EXPECT_EQ(json["time"], "2023-11-14T22:13:20Z");
  EXPECT_EQ(json["reason"], 20);
  EXPECT_EQ(json["reasons"], Json({"changed", "intermediate"}));
  EXPECT_EQ(json["port_count"], 0);
  EXPECT_EQ(json["changes"][0]["port"], kFirst);
  EXPECT_EQ(json["changes"][0]["change"], "removed");
  EXPECT_EQ(json["changes"][0]["path"], Json::array());
  EXPECT_TRUE(json["changes"][0]["after"].is_null());
}

}  // namespace
}  // namespace hbadisc

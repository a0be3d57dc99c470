// In-band cycles: which kind runs, what makes a lite one full, what is pruned, and what the application is
// told.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/system/Fabric.h"

namespace systemtest {
namespace {

using testing::ElementsAre;

constexpr unsigned int kLong = 3600;  // seconds: no cycle comes by itself
constexpr char kFc[] = "1000000000000001";
constexpr char kNic[] = "1000000000000002";
constexpr char kIscsi[] = "1000000000000003";
constexpr char kFull[] = "In-Band Discovery: Doing full discovery cycle";
constexpr char kLite[] = "In-Band Discovery: Doing Lite discovery cycle";
constexpr char kDone[] = "** DISCOVERY CYCLE DONE Adapter Ports=";

class Cycles : public testing::Test {
 protected:
  // Starts discovery and waits for the first cycle.
  void Start(unsigned int eventMask = HBADISC_EVENT_EVERY_CYCLE) {
    m_Library = std::make_unique<Library>(m_Fabric.Path());
    m_CallBacks = std::make_unique<CallBacks>(*m_Library, eventMask);
    m_Library->Start(kLong);
    ASSERT_TRUE(AwaitCycles(1));
  }

  bool AwaitCycles(std::size_t count) {
    return Eventually([&] { return m_Log.Count(kDone) == count; });
  }

  // Runs one more cycle that nobody forced.
  bool RunPeriodicCycle() {
    const std::size_t before = m_Log.Count(kDone);
    m_Library->ChangeDiscoveryInterval(kLong);
    return AwaitCycles(before + 1);
  }

  bool RunForcedCycle() {
    const std::size_t before = m_Log.Count(kDone);
    return m_Library->StartDiscoveryCycle() == 1 && AwaitCycles(before + 1);
  }

  std::vector<json> Boards() {
    json fc = FcBoard(kFc);
    fc["targets"] = {{{"wwpn", "5000000000000001"}, {"count", 3}}};
    json nic = NicBoard(kNic);
    nic["virtual_functions"] = {{{"address", "0000020000000001"}, {"count", 2}}};
    json iscsi = IscsiBoard(kIscsi);
    iscsi["iscsi_targets"] = {{{"name", "iqn.2020-01.example:disk"}, {"sessions", true}, {"connected", true}}};
    return {fc, nic, iscsi};
  }

  Log m_Log;
  Fabric m_Fabric{Boards()};
  std::unique_ptr<Library> m_Library;
  std::unique_ptr<CallBacks> m_CallBacks;
};

TEST_F(Cycles, FirstIsFullAndForcedThenLite) {
  Start();
  EXPECT_EQ(m_Log.Count(kFull), 1u);
  ASSERT_TRUE(RunPeriodicCycle());
  EXPECT_EQ(m_Log.Count(kLite), 1u);
  EXPECT_EQ(m_Log.Count(kFull), 1u);
  ASSERT_TRUE(RunForcedCycle());
  EXPECT_EQ(m_Log.Count(kFull), 2u);
  EXPECT_THAT(m_CallBacks->Await(3), ElementsAre(7, 1, 3));
  const auto ports = m_Library->Ports();
  ASSERT_EQ(ports.size(), 3u);
  EXPECT_EQ(ports.at(kFc).base.base.targetCount, 3u);
  EXPECT_EQ(ports.at(kNic).vfCount, 2u);
  EXPECT_EQ(ports.at(kIscsi).base.base.targetCount, 1u);
}

// What turns a lite cycle into a full one, and the port that then shows it.
struct Escalation {
  const char* name;
  const char* text;
  void (*change)(Fabric&);
  bool (*shows)(const std::map<std::string, hba_discovery_info_V3>&);
};

class Escalations : public Cycles, public testing::WithParamInterface<Escalation> {};

TEST_P(Escalations, LiteCycleBecomesFull) {
  Start();
  ASSERT_TRUE(RunPeriodicCycle());
  GetParam().change(m_Fabric);
  ASSERT_TRUE(m_Fabric.Replace(*m_Library));
  ASSERT_TRUE(RunPeriodicCycle());
  EXPECT_EQ(m_Log.Count(GetParam().text), 1u);
  EXPECT_EQ(m_Log.Count(kLite), 2u);
  EXPECT_THAT(m_CallBacks->Await(3), ElementsAre(7, 1, 5));
  EXPECT_TRUE(GetParam().shows(m_Library->Ports()));
}

INSTANTIATE_TEST_SUITE_P(
    Changes, Escalations,
    testing::Values(
        Escalation{"LinkState", "Local HBA port state change - DOING FULL DISCOVERY CYCLE!",
                   [](Fabric& fabric) { fabric.Board(0)["link"] = "down"; },
                   [](const auto& ports) { return ports.at(kFc).base.base.linkStatus == 2; }},
        Escalation{"FunctionCount", "Local HBA port VFCount change - DOING FULL DISCOVERY CYCLE!",
                   [](Fabric& fabric) { fabric.Board(1)["virtual_functions"][0]["count"] = 1; },
                   [](const auto& ports) { return ports.at(kNic).vfCount == 1; }},
        Escalation{
            "MakersTarget", "Target info change - DOING FULL DISCOVERY CYCLE!",
            [](Fabric& fabric) {
              fabric.Board(0)["targets"].push_back({{"wwpn", "5000000000000009"}, {"makers_port", true}});
            },
            [](const auto& ports) { return ports.at(kFc).base.base.targetCount == 4; }}),
    [](const auto& test) { return test.param.name; });

TEST_F(Cycles, LiteCycleTakesInWhatNeedsNoFullOne) {
  Start();
  // A new board, and an iSCSI target that lost its connection.
  json added = FcBoard("1000000000000004");
  added["targets"] = {{{"wwpn", "5000000000000007"}, {"count", 2}}};
  m_Fabric.Local()["boards"].push_back(added);
  m_Fabric.Board(2)["iscsi_targets"][0]["connected"] = false;
  ASSERT_TRUE(m_Fabric.Replace(*m_Library));
  ASSERT_TRUE(RunPeriodicCycle());
  EXPECT_EQ(m_Log.Count(kFull), 1u);
  EXPECT_THAT(m_CallBacks->Await(2), ElementsAre(7, 5));
  const auto ports = m_Library->Ports();
  ASSERT_EQ(ports.size(), 4u);
  EXPECT_EQ(ports.at("1000000000000004").base.base.targetCount, 2u);
  RM_NodeInfoEntry target{};
  unsigned int count = 1;
  EXPECT_EQ(m_Library->GetiSCSITargets(Name(kIscsi), &target, &count), 0);
  EXPECT_EQ(reinterpret_cast<const _RM_ISCSI_TARGET*>(&target)->flags[0], RM_ISCSI_HAS_SESSIONS);
}

TEST_F(Cycles, VanishedBoardGoesWithTheNextFullCycle) {
  Start();
  m_Fabric.Board(1)["present"] = false;
  ASSERT_TRUE(m_Fabric.Replace(*m_Library));
  ASSERT_TRUE(RunPeriodicCycle());
  EXPECT_EQ(m_Library->Ports().size(), 3u);
  ASSERT_TRUE(RunForcedCycle());
  EXPECT_EQ(m_Library->Ports().count(kNic), 0u);
  EXPECT_THAT(m_CallBacks->Await(3), ElementsAre(7, 1, 7));
  EXPECT_TRUE(m_Log.Has("MergeLists: No longer discovered on system testhost -- removed from discovery list"));
}

TEST_F(Cycles, OverheatedBoardStaysWhenItVanishes) {
  Start();
  m_Fabric.Board(1)["overheated"] = true;
  ASSERT_TRUE(m_Fabric.Replace(*m_Library));
  ASSERT_TRUE(RunPeriodicCycle());
  EXPECT_EQ(m_Library->Ports().at(kNic).base.base.linkStatus, HBADISC_LINK_OVER_TEMPERATURE);
  EXPECT_EQ(m_Library->Ports().at(kNic).vfCount, 2u);
  m_Fabric.Board(1)["present"] = false;
  ASSERT_TRUE(m_Fabric.Replace(*m_Library));
  ASSERT_TRUE(RunForcedCycle());
  EXPECT_EQ(m_Library->Ports().size(), 3u);
  EXPECT_TRUE(m_Log.Has("MergeLists: Keeping local adapter with above operating temperature"));
  ASSERT_TRUE(RunPeriodicCycle());
  EXPECT_TRUE(m_Log.Has("In-Band Discovery: Keeping local adapter with above operating temperature"));
}

// One port's target read hangs: the others reach the application while the forced cycle still waits.
TEST_F(Cycles, IntermediateCallbackShowsPortsOfALongForcedCycle) {
  // The first read is the enumeration's own.
  m_Fabric.AddFault({{"call", "RM_GetAllNodeInfo"}, {"port", kFc}, {"skip", 1}, {"hang", true}});
  m_Fabric.Write();
  m_Library = std::make_unique<Library>(m_Fabric.Path());
  m_CallBacks = std::make_unique<CallBacks>(*m_Library, HBADISC_EVENT_CHANGED);
  m_Library->Start(kLong);
  EXPECT_THAT(m_CallBacks->Await(1), ElementsAre(20));
  EXPECT_EQ(m_Library->InDiscoveryCycle(), 1);
  EXPECT_EQ(m_Library->Ports().size(), 3u);
}

class FullCyclesOnly : public Cycles {
 protected:
  Log m_FullOnly{0x3FF, "DISCO_FULL_DISCOVERY:1\n"};
};

TEST_F(FullCyclesOnly, EveryCycleIsFull) {
  Start();
  ASSERT_TRUE(RunPeriodicCycle());
  EXPECT_EQ(m_Log.Count(kFull), 2u);
  EXPECT_EQ(m_Log.Count(kLite), 0u);
}

}  // namespace
}  // namespace systemtest

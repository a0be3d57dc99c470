// Moments in which ports cannot be read: what is listed of them stays, and is looked at again.
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
constexpr char kDone[] = "** DISCOVERY CYCLE DONE";

class BusyPorts : public testing::Test {
 protected:
  // Starts discovery with this trouble, of which the first cycle sees nothing, and waits for that cycle.
  void Start(const std::vector<json>& faults) {
    for (const json& fault : faults) m_Fabric.AddFault(fault);
    m_Fabric.Write();
    m_Library = std::make_unique<Library>(m_Fabric.Path());
    m_CallBacks = std::make_unique<CallBacks>(*m_Library, HBADISC_EVENT_EVERY_CYCLE);
    m_Library->Start(kLong);
    ASSERT_TRUE(AwaitCycles(1));
    ExpectEverything();
  }
  bool AwaitCycles(std::size_t count) {
    return Eventually([&] { return m_Log.Count(kDone) == count; });
  }
  bool RunPeriodicCycle() {
    const std::size_t before = m_Log.Count(kDone);
    m_Library->ChangeDiscoveryInterval(kLong);
    return AwaitCycles(before + 1);
  }
  // What hangs off each port, as the first cycle has found it.
  void ExpectEverything(unsigned int targets = 3) {
    const auto ports = m_Library->Ports();
    ASSERT_EQ(ports.size(), 3u);
    EXPECT_EQ(ports.at(kFc).base.base.targetCount, targets);
    EXPECT_EQ(ports.at(kFc).base.vportCount, 2u);
    EXPECT_EQ(ports.at(kNic).vfCount, 2u);
    EXPECT_EQ(ports.at(kIscsi).base.base.targetCount, 1u);
  }

  static std::vector<json> Boards() {
    json fc = FcBoard(kFc);
    fc["targets"] = {{{"wwpn", "5000000000000001"}, {"count", 3}}};
    fc["virtual_ports"] = {{{"wwpn", "2100000000000001"}, {"count", 2}}};
    json nic = NicBoard(kNic);
    nic["virtual_functions"] = {{{"address", "0000020000000001"}, {"count", 2}}};
    json iscsi = IscsiBoard(kIscsi);
    iscsi["iscsi_targets"] = {{{"name", "iqn.2020-01.example:disk"}}};
    return {fc, nic, iscsi};
  }

  Log m_Log;
  Fabric m_Fabric{Boards()};
  std::unique_ptr<Library> m_Library;
  std::unique_ptr<CallBacks> m_CallBacks;
};

// Target reads: the first cycle makes two, its enumeration's and its worker's; the forced one's worker comes
// fourth.
constexpr int kBeforeForcedRead = 3;

TEST_F(BusyPorts, PortKeepsWhatAFullCycleCannotRead) {
  Start({{{"call", "RM_GetAllNodeInfo"},
          {"port", kFc},
          {"status", 64},
          {"skip", kBeforeForcedRead},
          {"times", 6}},
         {{"call", "RM_VPList"}, {"port", kFc}, {"status", 253}, {"skip", 2}, {"times", 1}},
         {{"call", "RM_GetVirtualFunctionList"}, {"port", kNic}, {"status", 64}, {"skip", 1}, {"times", 1}}});
  ASSERT_EQ(m_Library->StartDiscoveryCycle(), 1);
  ASSERT_TRUE(AwaitCycles(2));
  EXPECT_TRUE(m_Log.Has("RM_GetVirtualFunctionList status = 64"));
  ExpectEverything();
  const std::size_t reads = m_Log.Count("AddTargetInfo: got 3 targets");
  // The next cycle's enumeration takes the last busy answer, its worker reads.
  ASSERT_TRUE(RunPeriodicCycle());
  EXPECT_EQ(m_Log.Count("AddTargetInfo: got 3 targets"), reads + 1) << "visited to make up for it";
  ASSERT_TRUE(RunPeriodicCycle());
  EXPECT_EQ(m_Log.Count("AddTargetInfo: got 3 targets"), reads + 1) << "and then no more";
  EXPECT_THAT(m_CallBacks->Await(4), ElementsAre(7, 3, 1, 1)) << "nothing has changed";
  ExpectEverything();
}

}  // namespace
}  // namespace systemtest

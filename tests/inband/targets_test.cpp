#include "inband/PortTargets.h"
#include "inband/PortVPorts.h"
#include "tests/support/RecordedLog.h"
#include "tests/support/ScriptedProvider.h"
#include "tests/support/Testing.h"
#include "tests/support/Waiting.h"

namespace {

constexpr char kNodeCall[] = "RM_GetAllNodeInfo";

class Targets : public testing::Test {
 protected:
  Targets() { m_Worker.Enable(); }

  unsigned int Read(int verbose = 1) { return AddTargetInfo(&m_Entry, &m_Worker, 1, verbose); }
  void ExpectTargets(unsigned int count, const std::vector<Step>& steps, int verbose = 1) {
    m_Provider.Script(kNodeCall, steps);
    EXPECT_EQ(Read(verbose), count);
    EXPECT_EQ(m_Entry.GetTargetCount(), count);
  }
  void GiveNodes(unsigned int count) {
    m_Port.nodes.clear();
    for (unsigned int i = 0; i < count; ++i) m_Port.nodes.push_back(Node(kTarget + i));
  }
  // The room of the next node list is one number for all ports.
  void SetRoom(unsigned int room) {
    GiveNodes(room - 1);
    Read();
    ASSERT_EQ(m_Entry.GetTargetCount(), room - 1);
  }

  RecordedLog m_Log;
  ScriptedProvider m_Provider;
  ScriptedPort& m_Port = m_Provider.ports[kPort];
  CHbaEntry m_Entry = MakePort(Info(kPort));
  CZylTpThread m_Worker;
};

TEST_F(Targets, ListGrowsOnceToWhatThePortHas) {
  for (const int status : {7, 0}) {  // an answer that was cut may be said to be one or not
    SetRoom(16);
    GiveNodes(40);
    ExpectTargets(40, {{status, 40}});
    Read();
    EXPECT_EQ(m_Provider.Rooms(kNodeCall), (std::vector<std::uint32_t>{16, 40, 41}));
  }
  EXPECT_EQ(m_Log.Count("AddTargetInfo, increased target count to 40"), 2);
  EXPECT_EQ(m_Log.Find("AddTargetInfo, last target count=41").wwn, kPort);
  GiveNodes(0);
  EXPECT_EQ(Read(), 0U);
  Read();
  EXPECT_EQ(m_Provider.Rooms(kNodeCall).back(), 1U);
  EXPECT_EQ(m_Log.Count("AddTargetInfo, no targets"), 2);
}

TEST_F(Targets, AbsurdCountsAreNotBelieved) {
  for (const std::uint32_t count : {0xFFFFFFFFU, 1048577U}) {
    SetRoom(4);
    ExpectTargets(0, {{7, count}}, 0);
  }
  EXPECT_EQ(m_Log.Find("AddTargetInfo, unable to allocate memory for -1 targets 1").mask, 32U);
  EXPECT_EQ(m_Log.Find("AddTargetInfo, error getting targets 1").mask, 32U);

  SetRoom(4);                                   // more records claimed than there was room for, twice
  ExpectTargets(0, {{0, 5}, {0, 0xFFFFFFFF}});  // five records of zeros, none of which exists
  Read();
  EXPECT_EQ(m_Provider.Rooms(kNodeCall).back(), 1048576U);
  SetRoom(4);
}

TEST_F(Targets, OnlyALockedPortKeepsItsTargets) {
  const struct {
    int status;
    unsigned int tries, targets;
  } rows[] = {{64, 5, 3}, {253, 5, 3}, {303, 5, 0}, {1, 1, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.status);
    SetRoom(4);
    m_Entry.SetNothingRead();
    ExpectTargets(row.targets, std::vector<Step>(5, {row.status}));
    EXPECT_EQ(m_Entry.AreTargetsRead(), row.targets == 0);
    EXPECT_EQ(m_Provider.Rooms(kNodeCall), std::vector<std::uint32_t>(row.tries, 4)) << "each as the first";
    m_Provider.Script(kNodeCall, {});
  }
}

TEST_F(Targets, NodesThatAreNotReadyAreLoggedAndNotStored) {
  m_Port.nodes = {Node(kTarget, 0x20), Node(kTarget + 1, 0x2), Node(kTarget + 2, 0x22)};
  m_Port.nodes[0].bindType = 0x1F;
  m_Port.nodes[0].bus = 1;
  m_Port.nodes[0].target = 2;
  m_Port.nodes[0].lun = 3;
  EXPECT_EQ(Read(), 1U);
  EXPECT_EQ(
      m_Log.Count(
          "Target 0 (NOT READY - not added to list!): WWPN=50:00:00:00:00:00:00:00, "
          "WWNN=50:00:00:00:00:00:01:00,\n           BindType=0x1f, NodeState=20, Bus=1, Target=2, LUN=3"),
      1);
  EXPECT_EQ(m_Log.Find("Target 1").mask, 0U);
  EXPECT_EQ(m_Log.Find("Target 2: WWPN").wwn, kPort);
}

TEST_F(Targets, SomeDriversMapEveryNode) {
  m_Port.nodes = {Node(kTarget, 0x20)};
  for (unsigned int type = 0; type < 40; ++type) {
    m_Port.driverType = type;
    const bool maps = (type >= 3 && type <= 8) || type == 13;
    ASSERT_EQ(Read(), maps ? 1U : 0U) << type;
    if (maps) {
      ASSERT_EQ(m_Entry.GetTargetList().GetEntry(0).GetTargetEntry()->nodeState, 0x22U);
    }
  }
  m_Port.driverType = 3;
  m_Provider.Script("RM_GetDriverType", {{5}});
  EXPECT_EQ(Read(), 0U);
}

TEST_F(Targets, OtherKindsOfPorts) {
  m_Entry = MakePort(Info(kPort, RM_FEATURE_NIC));
  m_Entry.SetNothingRead();
  EXPECT_EQ(Read(), 0U);
  EXPECT_TRUE(m_Entry.AreTargetsRead()) << "it has none";
  EXPECT_EQ(m_Entry.GetTargetBindType(), 0U);
  EXPECT_EQ(m_Provider.Calls("RM_GetDriverType"), 0);

  m_Entry = MakePort(Info(kPort, RM_FEATURE_ISCSI));
  m_Port.iscsiTargets = {ISCSITarget("iqn.b", 0xC0), ISCSITarget("iqn.a")};
  EXPECT_EQ(Read(), 2U);
  EXPECT_EQ(m_Provider.lastRefresh, 1);
  EXPECT_EQ(m_Entry.GetTargetBindType(), 0U);
  EXPECT_EQ(m_Log.Count("iSCSI AddTarget iqn.b - has sessions"), 1);
  EXPECT_EQ(m_Log.Count("iSCSI AddTarget iqn.b - connected"), 1);
  EXPECT_EQ(m_Log.Find("iSCSI AddTargetInfo (refresh targets=true)").mask, 2U);
}

}  // namespace

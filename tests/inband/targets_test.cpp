#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "inband/PortTargets.h"
#include "tests/inband/recorded_log.h"
#include "tests/inband/scripted_provider.h"
#include "tests/thread/wait_until.h"

namespace {

constexpr std::uint64_t kPort = 0x1000025DC9000001;
constexpr std::uint64_t kTarget = 0x5000000000000000;

CHbaEntry LocalPort(std::uint64_t wwpn, std::uint32_t features = 0) {
  const HBA_info_v4 info = Info(wwpn, features);
  CHbaEntry entry(&info, nullptr, 1, nullptr, 0, nullptr);
  entry.SetSpecialFeatures(features);
  return entry;
}

class Targets : public testing::Test {
 protected:
  Targets() { m_Worker.Enable(); }

  unsigned int Read(int verbose = 1) { return AddTargetInfo(&m_Entry, &m_Worker, 1, verbose); }
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
  CHbaEntry m_Entry = LocalPort(kPort);
  CZylTpThread m_Worker;
};

TEST_F(Targets, ListGrowsOnceToWhatThePortHas) {
  for (const bool success : {false, true}) {
    SetRoom(16);
    m_Provider.overfullIsSuccess = success;
    GiveNodes(40);
    EXPECT_EQ(Read(), 40U);
    EXPECT_EQ(m_Entry.GetTargetCount(), 40U);
    Read();
    const auto rooms = m_Provider.Rooms("RM_GetAllNodeInfo");
    EXPECT_EQ(std::vector<std::uint32_t>(rooms.end() - 3, rooms.end()),
              (std::vector<std::uint32_t>{16, 40, 41}));
  }
  EXPECT_EQ(m_Log.Count("AddTargetInfo, increased target count to 40"), 2);
  EXPECT_EQ(m_Log.Find("AddTargetInfo, last target count=41").wwn, kPort);
  GiveNodes(0);
  EXPECT_EQ(Read(), 0U);
  Read();
  EXPECT_EQ(m_Provider.Rooms("RM_GetAllNodeInfo").back(), 1U);
  EXPECT_EQ(m_Log.Count("AddTargetInfo, no targets"), 2);
}

TEST_F(Targets, MoreDataGrowsTooButNotWhenTheCountFits) {
  SetRoom(4);
  m_Provider.Script("RM_GetAllNodeInfo", {{191, 6}});
  GiveNodes(6);
  EXPECT_EQ(Read(), 6U);
  m_Provider.Script("RM_GetAllNodeInfo", {{191, 2}});
  EXPECT_EQ(Read(), 0U);
  EXPECT_EQ(m_Entry.GetTargetCount(), 0U);
  EXPECT_EQ(m_Log.Find("AddTargetInfo, error getting targets 191").mask, 1U);
}

TEST_F(Targets, AbsurdCountsAreNotBelieved) {
  for (const std::uint32_t count : {0xFFFFFFFFU, 1048577U}) {
    SetRoom(4);
    m_Provider.Script("RM_GetAllNodeInfo", {{7, count}});
    EXPECT_EQ(Read(0), 0U);
    EXPECT_EQ(m_Entry.GetTargetCount(), 0U);
  }
  EXPECT_EQ(m_Log.Find("AddTargetInfo, unable to allocate memory for -1 targets 1").mask, 32U);
  EXPECT_EQ(m_Log.Find("AddTargetInfo, error getting targets 1").mask, 32U);

  SetRoom(4);  // more records claimed than there was room for, twice
  m_Provider.Script("RM_GetAllNodeInfo", {{0, 5}, {0, 0xFFFFFFFF}});
  EXPECT_EQ(Read(), 0U) << "five records of zeros, none of which exists";
  Read();
  EXPECT_EQ(m_Provider.Rooms("RM_GetAllNodeInfo").back(), 1048576U);
  SetRoom(4);
}

TEST_F(Targets, ABusyPortKeepsItsTargets) {
  SetRoom(4);
  for (const int status : {64, 253}) {
    m_Provider.Script("RM_GetAllNodeInfo", std::vector<Step>(5, {status}));
    const int before = m_Provider.Calls("RM_GetAllNodeInfo");
    EXPECT_EQ(Read(), 3U);
    EXPECT_EQ(m_Provider.Calls("RM_GetAllNodeInfo"), before + 5);
    EXPECT_EQ(m_Provider.Rooms("RM_GetAllNodeInfo").back(), 4U) << "each try has the room of the first";
    EXPECT_EQ(m_Entry.GetTargetCount(), 3U);
  }
  m_Provider.Script("RM_GetAllNodeInfo", std::vector<Step>(5, {303}));
  EXPECT_EQ(Read(), 0U);
  EXPECT_EQ(m_Entry.GetTargetCount(), 0U);
}

TEST_F(Targets, AnyOtherFailureClearsAtOnce) {
  SetRoom(4);
  m_Provider.Script("RM_GetAllNodeInfo", {{1}});
  const int before = m_Provider.Calls("RM_GetAllNodeInfo");
  EXPECT_EQ(Read(), 0U);
  EXPECT_EQ(m_Provider.Calls("RM_GetAllNodeInfo"), before + 1);
  EXPECT_EQ(m_Entry.GetTargetCount(), 0U);
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

TEST_F(Targets, DriverAndBindTypeAreAskedForPatiently) {
  m_Port.nodes = {Node(kTarget, 0x20)};
  m_Port.driverType = 4;
  m_Port.bindType = 9;
  m_Provider.Script("RM_GetDriverType", {{303}});
  m_Provider.Script("RM_GetBindingSupport", {{64}, {253}, {303}, {64}});
  EXPECT_EQ(Read(), 1U);
  EXPECT_EQ(m_Provider.Calls("RM_GetDriverType"), 2);
  EXPECT_EQ(m_Provider.Calls("RM_GetBindingSupport"), 5);
  EXPECT_EQ(m_Entry.GetTargetBindType(), 9U);
  m_Port.bindType = 10;
  m_Provider.Script("RM_GetBindingSupport", {{1}});
  EXPECT_EQ(Read(), 1U);
  EXPECT_EQ(m_Entry.GetTargetBindType(), 9U);
}

TEST_F(Targets, EveryAcceptedNodeCountsThoughLunsOfOneTargetCollapse) {
  m_Port.nodes = {Node(kTarget), Node(kTarget), Node(kTarget + 1)};
  EXPECT_EQ(Read(), 3U);
  EXPECT_EQ(m_Entry.GetTargetCount(), 2U);
}

TEST_F(Targets, AStoppedWorkerLeavesTheTargets) {
  SetRoom(4);
  GiveNodes(10);
  for (const char* call : {"RM_GetDriverType", "RM_GetBindingSupport", "RM_GetAllNodeInfo"}) {
    m_Worker.Enable();
    m_Provider.OnCall(call, [&] { m_Worker.Disable(); });
    EXPECT_EQ(Read(), 3U);
    EXPECT_EQ(m_Entry.GetTargetCount(), 3U);
    EXPECT_EQ(m_Entry.GetTargetBindType(), 1U);
    m_Provider.OnCall(call, nullptr);
  }
}

TEST_F(Targets, OtherKindsOfPorts) {
  m_Entry = LocalPort(kPort, RM_FEATURE_NIC);
  EXPECT_EQ(Read(), 0U);
  EXPECT_EQ(m_Entry.GetTargetBindType(), 0U);
  EXPECT_EQ(m_Provider.Calls("RM_GetDriverType"), 0);

  m_Entry = LocalPort(kPort, RM_FEATURE_ISCSI);
  m_Port.iscsiTargets = {ISCSITarget("iqn.b", 0xC0), ISCSITarget("iqn.a")};
  EXPECT_EQ(Read(), 2U);
  EXPECT_EQ(m_Provider.lastRefresh, 1);
  EXPECT_EQ(m_Entry.GetTargetBindType(), 0U);
  EXPECT_EQ(m_Log.Count("iSCSI AddTarget iqn.b - has sessions"), 1);
  EXPECT_EQ(m_Log.Count("iSCSI AddTarget iqn.b - connected"), 1);
  EXPECT_EQ(m_Log.Find("iSCSI AddTargetInfo (refresh targets=true)").mask, 2U);
}

TEST_F(Targets, ISCSIListIsAskedForAgainAndGrows) {
  m_Entry = LocalPort(kPort, RM_FEATURE_ISCSI);
  for (int i = 0; i < 200; ++i) m_Port.iscsiTargets.push_back(ISCSITarget("iqn." + std::to_string(i)));
  m_Port.iscsiTargets.push_back(ISCSITarget(std::string(511, 'n'), 0x40));
  m_Provider.Script("RM_iSCSI_GetTargets", {{1, 0}});
  EXPECT_EQ(iSCSI_AddTargetInfo(&m_Entry, nullptr, 0), 201U);
  EXPECT_EQ(m_Provider.Rooms("RM_iSCSI_GetTargets"), (std::vector<std::uint32_t>{128, 128, 201}));
  EXPECT_EQ(m_Log.Count("iSCSI AddTarget " + std::string(511, 'n') + " - has sessions"), 1);
  EXPECT_EQ(m_Provider.lastRefresh, 0);
}

TEST_F(Targets, FailedISCSIReadsClear) {
  m_Entry = LocalPort(kPort, RM_FEATURE_ISCSI);
  const struct {
    std::vector<Step> steps;
    int calls;
    const char* text;
  } cases[] = {{{{64}}, 1, "iSCSI AddTargetInfo: get targets error 64"},
               {{{1}, {1}}, 2, "iSCSI AddTargetInfo: get targets error 1"},
               {{{7, 300}, {7, 400}}, 2, "iSCSI AddTargetInfo: get targets error 7"},
               {{{7, 0xFFFFFFFF}}, 1, "iSCSI AddTargetInfo: failed to allocate target list"}};
  for (const auto& c : cases) {
    const _RM_ISCSI_TARGET old = ISCSITarget("iqn.old");
    m_Entry.AddTarget(&old);
    m_Provider.Script("RM_iSCSI_GetTargets", c.steps);
    const int before = m_Provider.Calls("RM_iSCSI_GetTargets");
    EXPECT_EQ(iSCSI_AddTargetInfo(&m_Entry, &m_Worker, 1), 0U);
    EXPECT_EQ(m_Entry.GetTargetCount(), 0U);
    EXPECT_EQ(m_Provider.Calls("RM_iSCSI_GetTargets"), before + c.calls);
    EXPECT_EQ(m_Log.Find(c.text).mask, 1U);
  }
  m_Provider.Script("RM_iSCSI_GetTargets", {{1}});
  m_Provider.OnCall("RM_iSCSI_GetTargets", [&] { m_Worker.Disable(); });
  const int before = m_Provider.Calls("RM_iSCSI_GetTargets");
  EXPECT_EQ(iSCSI_AddTargetInfo(&m_Entry, &m_Worker, 1), 0U);
  EXPECT_EQ(m_Provider.Calls("RM_iSCSI_GetTargets"), before + 1) << "a stopped worker asks no more";
}

// The driver of this host sees one such request at a time, other hosts are asked at once.
TEST_F(Targets, LocalPortsAreReadOneAtATime) {
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  std::chrono::milliseconds patience(20);
  m_Provider.OnCall("RM_GetAllNodeInfo", [&] {
    if (++inside > 1) overlapped = true;
    const Stopwatch watch;
    WaitUntil([&] { return overlapped || watch.Elapsed() >= patience; });
    --inside;
  });
  const auto readAll = [](int isLocal) {
    std::vector<std::thread> readers;
    for (std::uint64_t i = 0; i < 4; ++i) {
      readers.emplace_back([=] {
        const HBA_info_v4 info = Info(kPort + i);
        CHbaEntry port(&info, nullptr, isLocal, nullptr, 0, nullptr);
        AddTargetInfo(&port, nullptr, 1, 1);
      });
    }
    for (std::thread& reader : readers) reader.join();
  };
  readAll(1);
  EXPECT_FALSE(overlapped);
  patience = std::chrono::seconds(10);
  readAll(0);
  EXPECT_TRUE(overlapped);
}

}  // namespace

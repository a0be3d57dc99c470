#include <cstring>
#include <string>

#include "tests/inband/enumeration_fixture.h"

namespace {

class Lite : public Enumeration {
 protected:
  void MakeISCSIBoard() {
    AddBoard(0, RM_FEATURE_ISCSI);
    m_Provider.ports[kPort].initiatorName = "iqn.me";
    m_Provider.ports[kPort].iscsiTargets = {ISCSITarget("iqn.a"), ISCSITarget("iqn.b")};
    Settle();
    EXPECT_EQ(LiteCycle(), 0);  // the first one finds the targets
    EXPECT_EQ(m_Current->IsModified(), 1);
    EXPECT_EQ(LiteCycle(), 0);
    EXPECT_EQ(m_Current->IsModified(), 0);
  }
};

TEST_F(Lite, AChangedLinkEndsItAtOnce) {
  for (std::uint64_t i = 0; i < 3; ++i) AddBoard(i);
  Settle();
  m_Provider.boards[1].linkStatus = 2;
  const int before = m_Provider.Calls("RM_GetLocalHBAInfoV4");
  EXPECT_EQ(LiteCycle(5), CPortInfo::kPortStateChanged);
  EXPECT_EQ(m_Provider.Calls("RM_GetLocalHBAInfoV4"), before + 2);
  EXPECT_EQ(m_Ports.GetDiscoPortsList(), nullptr);
  EXPECT_EQ(m_Ports.GetNumberOfLocalHbas(), 3U) << "settled by a whole run only";
  EXPECT_EQ(Listed(m_Current, kPort).GetDiscoveryMark(), 5U);
  EXPECT_EQ(Listed(m_Current, kPort).GetTargetMapRetries(), 2U);
  EXPECT_EQ(Listed(m_Current, kPort + 1).GetDiscoveryMark(), 5U);
  EXPECT_EQ(Listed(m_Current, kPort + 1).GetTargetMapRetries(), 3U);
  EXPECT_EQ(Listed(m_Current, kPort + 2).GetDiscoveryMark(), 0U);
  EXPECT_EQ(m_Log.Find("Local HBA port state changed").wwn, kPort + 1);
}

TEST_F(Lite, AChangedNumberOfFunctionsAsksForAFullCycle) {
  AddBoard(0, RM_FEATURE_NIC);
  Settle();
  EXPECT_EQ(LiteCycle(), 0);
  for (std::uint64_t i = 0; i < 70; ++i) m_Provider.ports[kPort].functions.push_back(Name(i));
  EXPECT_EQ(LiteCycle(), CPortInfo::kVFCountChanged);
  EXPECT_EQ(m_Log.Count("Port VFCount changed. Doing full rediscovery"), 1);
  EXPECT_EQ(m_Provider.Rooms("RM_GetVirtualFunctionList").back(), 70U);
  m_Provider.Script("RM_GetVirtualFunctionList", {{64}, {7, 0xFFFFFFFF}});
  EXPECT_EQ(LiteCycle(), 0) << "unknown is not changed";
  EXPECT_EQ(LiteCycle(), 0);
  m_Provider.boards[0].linkStatus = 3;
  EXPECT_EQ(LiteCycle(), CPortInfo::kPortStateChanged) << "the link comes first";
}

TEST_F(Lite, AKnownPortIsVisitedWhileItsRetriesLast) {
  AddBoard(0);
  AddBoard(1, RM_FEATURE_NIC);
  Settle();
  Change(m_Current, kPort, [](CHbaEntry& port) {
    const RM_NodeInfoEntry node = Node(kTarget);
    port.AddTarget(&node);
    port.SetOldTargetCount(9);
  });
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(LiteCycle(), 0);
    EXPECT_EQ(ToVisit(), List{kPort});
    EXPECT_EQ(Listed(m_Ports.GetDiscoPortsList(), kPort).GetOldTargetCount(), 1U);
    EXPECT_NE(Listed(m_Ports.GetDiscoPortsList(), kPort).IsHbaInfoValid(), 0);
  }
  EXPECT_EQ(Listed(m_Current, kPort).GetOldTargetCount(), 9U);
  EXPECT_EQ(Listed(m_Current, kPort + 1).GetTargetMapRetries(), 0U) << "used up without a visit";
  ASSERT_EQ(LiteCycle(), 0);
  EXPECT_EQ(ToVisit(), List{});
  EXPECT_EQ(m_Current->IsModified(), 0);
}

TEST_F(Lite, ANewBoardGoesStraightIntoTheCurrentList) {
  AddBoard(0);
  Settle();
  Change(m_Current, kPort, [](CHbaEntry& port) { port.ResetTargetMapRetries(); });
  AddBoard(1);
  ASSERT_EQ(LiteCycle(7), 0);
  EXPECT_EQ(Names(m_Current), (List{kPort, kPort + 1}));
  EXPECT_EQ(ToVisit(), List{kPort + 1});
  EXPECT_EQ(m_Current->IsModified(), 1);
  EXPECT_EQ(Listed(m_Current, kPort + 1).GetDiscoveryMark(), 7U);
}

TEST_F(Lite, AVanishedBoardStaysListed) {
  AddBoard(0);
  AddBoard(1);
  Settle();
  m_Provider.boards.pop_back();
  EXPECT_EQ(LiteCycle(), 0);
  EXPECT_EQ(Names(m_Current), (List{kPort, kPort + 1}));
}

// A new name asks for a full cycle when it is added and in the next lite cycle, then the flags rest.
TEST_F(Lite, ANewTargetNameReportsAChangeTwice) {
  AddBoard(0);
  m_Provider.ports[kPort].nodes = {Node(kTarget)};
  m_Provider.varnixPorts = {kTarget, kTarget + 1};
  Settle();
  EXPECT_EQ(LiteCycle(), CPortInfo::kTargetsChanged) << "added by the full cycle";
  EXPECT_EQ(m_Ports.GetDiscoPortsList(), nullptr);
  EXPECT_EQ(FullCycle(), 0);
  EXPECT_EQ(LiteCycle(), 0);

  m_Provider.ports[kPort].nodes.push_back(Node(kTarget + 1));
  EXPECT_EQ(LiteCycle(), CPortInfo::kTargetsChanged);
  EXPECT_EQ(LiteCycle(), CPortInfo::kTargetsChanged);
  EXPECT_EQ(LiteCycle(), 0);
  m_Provider.ports[kPort].nodes.clear();
  EXPECT_EQ(LiteCycle(), 0) << "a name is never taken out";
}

TEST_F(Lite, ChangedISCSINamesAreStored) {
  MakeISCSIBoard();
  const auto changes = [&](auto&& change) {
    change(m_Provider.ports[kPort]);
    EXPECT_EQ(LiteCycle(), 0);
    return m_Current->IsModified();
  };
  EXPECT_EQ(changes([](ScriptedPort& port) { port.alias = "b"; }), 1);
  EXPECT_STREQ(Listed(m_Current, kPort).GetISCSINames()->GetAlias(), "b");
  EXPECT_EQ(changes([](ScriptedPort& port) { port.defaultName = std::string(256, 'd'); }), 1);
  EXPECT_EQ(changes([](ScriptedPort& port) { port.initiatorName = "iqn.other"; }), 1);
  EXPECT_EQ(changes([](ScriptedPort&) {}), 0);
  Change(m_Current, kPort, [](CHbaEntry& port) { port.GetISCSINames()->SetNames("iqn.other", nullptr, "b"); });
  EXPECT_EQ(changes([](ScriptedPort&) {}), 1);
}

TEST_F(Lite, ChangedISCSITargetsAreTakenOver) {
  MakeISCSIBoard();
  auto& targets = m_Provider.ports[kPort].iscsiTargets;
  const auto reports = [&](const std::string& text) {
    const int before = m_Log.Count(text);
    EXPECT_EQ(LiteCycle(), 0) << "never a reason for a full cycle";
    EXPECT_EQ(m_Current->IsModified(), 1);
    EXPECT_EQ(Listed(m_Current, kPort).GetTargetCount(), targets.size());
    return m_Log.Count(text) == before + 1;
  };
  targets[0].flags[0] = 0xC0;  // sessions are looked at first, and one change is enough
  EXPECT_TRUE(reports("Target iqn.a sessions value changed - new sessions=has sessions"));
  EXPECT_EQ(m_Log.Find("Target iqn.a state changed").mask, 0U);
  targets[0].flags[0] = 0x40;
  EXPECT_TRUE(reports("Target iqn.a state changed - new state=disconnected"));
  targets[0].flags[0] = 0;
  EXPECT_TRUE(reports("Target iqn.a sessions value changed - new sessions=no sessions"));
  targets[1] = ISCSITarget("iqn.c");
  EXPECT_TRUE(reports("New iSCSI target iqn.c found on local port"));
  targets.push_back(ISCSITarget("iqn.d"));
  EXPECT_TRUE(reports("Local port iSCSI target list changed"));
  m_Provider.Script("RM_iSCSI_GetTargets", {{64}});
  EXPECT_EQ(LiteCycle(), 0);
  EXPECT_EQ(m_Current->IsModified(), 1) << "a failed read leaves none";
  EXPECT_EQ(Listed(m_Current, kPort).GetTargetCount(), 0U);
  EXPECT_EQ(m_Provider.lastRefresh, 0);
}

// The current list is free during provider calls, and may have lost the port when they return.
TEST_F(Lite, SlowCallsAreMadeWithoutTheLock) {
  MakeISCSIBoard();
  AddBoard(1, RM_FEATURE_NIC);
  LiteCycle();
  m_Provider.ports[kPort].iscsiTargets.clear();
  m_Provider.ports[kPort + 1].functions.push_back(Name(1));
  const auto removal = [&](std::uint64_t wwpn) {
    return [this, wwpn] {
      CHbaListGuard guard(*m_Current);
      const CHbaEntry port(Name(wwpn).wwn);
      m_Current->RemoveEntry(&port);
    };
  };
  m_Provider.OnCall("RM_iSCSI_GetTargets", removal(kPort));
  m_Provider.OnCall("RM_GetVirtualFunctionList", removal(kPort + 1));
  EXPECT_EQ(LiteCycle(), 0);
  EXPECT_EQ(m_Current->IsModified(), 0);
  EXPECT_EQ(m_Current->GetCount(), 0U);
}

// Ports to visit that this host does not own, as a list of another origin would have them.
TEST_F(Lite, PortsOfOtherHostsAreVisitedWhileTheirRetriesLast) {
  AddBoard(0);
  ASSERT_EQ(LiteCycle(3), 0);
  const auto ports = m_Ports.GetDiscoPortsList();
  const auto add = [](const std::shared_ptr<CHbaList>& list, std::uint64_t wwpn) {
    const HBA_info_v4 info = Info(wwpn);
    const CHbaEntry port(&info, nullptr, 0, nullptr, 0, nullptr);
    CHbaListGuard guard(*list);
    list->AddEntry(&port);
  };
  const std::uint64_t known = kPort + 1, slow = kPort + 2, unknown = kPort + 3;
  m_Slow = std::make_shared<CHbaList>(ListRank::kGathered);
  add(m_Current, known);
  add(m_Slow, slow);
  for (const std::uint64_t port : {known, slow, unknown}) add(ports, port);

  m_Ports.ProcessLiteDiscovery(m_Slow.get());
  EXPECT_EQ(ToVisit(), (List{kPort, known, unknown}));
  EXPECT_NE(Listed(ports, known).IsHbaInfoValid(), 0);
  EXPECT_EQ(Listed(ports, unknown).IsHbaInfoValid(), 0);
  EXPECT_EQ(Listed(ports, unknown).GetDiscoveryMark(), 3U);
  EXPECT_EQ(Listed(m_Current, known).GetDiscoveryMark(), 3U);
  EXPECT_EQ(Listed(m_Slow, slow).GetDiscoveryMark(), 3U);
  EXPECT_EQ(m_Log.Find("found on slow discovery list").wwn, slow);
  EXPECT_EQ(m_Log.Count("Found in main discovery list for system host"), 3) << "the board's own line included";

  for (int i = 0; i < 3; ++i) m_Ports.ProcessLiteDiscovery(nullptr);
  EXPECT_EQ(ToVisit(), (List{kPort, unknown}));
  EXPECT_EQ(Listed(m_Current, kPort).GetTargetMapRetries(), 3U) << "local ports use none up";
}

}  // namespace

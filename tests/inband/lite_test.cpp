#include "inband/PortTargets.h"
#include "tests/inband/enumeration_fixture.h"
#include "tests/support/Testing.h"
#include "tests/support/Waiting.h"

namespace {

class Lite : public Enumeration {
 protected:
  void MakeISCSIBoard() {
    AddBoard(0, RM_FEATURE_ISCSI);
    m_Provider.ports[kPort].initiatorName = "iqn.me";
    m_Provider.ports[kPort].iscsiTargets = {ISCSITarget("iqn.a"), ISCSITarget("iqn.b")};
    Settle();
    EXPECT_EQ(Changes(), 1) << "the first one finds the targets";
    EXPECT_EQ(Changes(), 0);
  }
  // Whether a lite cycle changes the current list, which for an iSCSI port is never a reason for a full one.
  int Changes() {
    EXPECT_EQ(LiteCycle(), 0);
    return m_Current->IsModified();
  }
};

TEST_F(Lite, AKnownPortIsVisitedWhileItsRetriesLast) {
  AddBoard(0);
  AddBoard(1, RM_FEATURE_NIC);
  Settle();
  ChangeListed(kPort, [](CHbaEntry& port) {
    const RM_NodeInfoEntry node = Node(kTarget);
    port.AddTarget(&node);
    port.SetOldTargetCount(9);
  });
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(LiteCycle(), 0);
    EXPECT_EQ(ToVisit(), List{kPort});
    EXPECT_EQ(Listed(*m_Ports.GetDiscoPortsList(), kPort).GetOldTargetCount(), 1U);
    EXPECT_NE(Listed(*m_Ports.GetDiscoPortsList(), kPort).IsHbaInfoValid(), 0);
  }
  EXPECT_EQ(ListedPort(kPort).GetOldTargetCount(), 9U);
  EXPECT_EQ(ListedPort(kPort + 1).GetTargetMapRetries(), 0U) << "used up without a visit";
  AddBoard(2);
  ASSERT_EQ(LiteCycle(7), 0);
  EXPECT_EQ(ToVisit(), List{kPort + 2});
  EXPECT_EQ(m_Current->IsModified(), 1) << "a new board goes straight into the current list";
  EXPECT_EQ(ListedPort(kPort + 2).GetDiscoveryMark(), 7U);
  for (int i = 0; i < 3; ++i) ASSERT_EQ(LiteCycle(), 0);
  EXPECT_EQ(m_Current->IsModified(), 0);
}

TEST_F(Lite, APortThatDidNotAnswerIsVisitedUntilItDoes) {
  AddBoard(0);
  AddBoard(1).info.modelId = RM_MODEL_TARGET_MODE;
  for (std::uint64_t number = 0; number < 2; ++number) {
    ASSERT_EQ(FullCycle(), 0);
    m_Current->MergeLists(m_New.get(), 1, 1);
  }
  ChangeListed(kPort, [](CHbaEntry& port) { port.ResetTargetMapRetries(); });
  ChangeListed(kPort + 1, [](CHbaEntry& port) { port.ResetTargetMapRetries(); });
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(LiteCycle(), 0);
    EXPECT_EQ(ToVisit(), List{kPort}) << "a port in target mode has no targets to wait for";
  }
  ChangeListed(kPort, [](CHbaEntry& port) { port.ClearTargets(); });
  ASSERT_EQ(LiteCycle(), 0);
  EXPECT_EQ(ToVisit(), List{});

  ChangeListed(kPort, [](CHbaEntry& port) { port = MakePort(Info(kPort)), port.SetNothingRead(); });
  ChangeListed(kPort, [](CHbaEntry& port) { port.SetLinkStatus(1); });
  for (int i = 0; i < 5; ++i) ASSERT_EQ(LiteCycle(), 0);
  EXPECT_EQ(ListedPort(kPort).GetTargetMapRetries(), 3U) << "no answer uses none up";
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
  ScriptedPort& port = m_Provider.ports[kPort];
  port.alias = "b";
  EXPECT_EQ(Changes(), 1);
  EXPECT_STREQ(ListedPort(kPort).GetISCSINames()->GetAlias(), "b");
  port.defaultName = std::string(256, 'd');
  EXPECT_EQ(Changes(), 1);
  port.initiatorName = "iqn.other";
  EXPECT_EQ(Changes(), 1);
  EXPECT_EQ(Changes(), 0);
  ChangeListed(kPort, [](CHbaEntry& listed) { listed.GetISCSINames()->SetNames("iqn.other", nullptr, "b"); });
  EXPECT_EQ(Changes(), 1);
}

TEST_F(Lite, ChangedISCSITargetsAreTakenOver) {
  MakeISCSIBoard();
  auto& targets = m_Provider.ports[kPort].iscsiTargets;
  const auto expectChange = [&](const std::string& text) {
    const int before = m_Log.Count(text);
    EXPECT_EQ(Changes(), 1) << text;
    EXPECT_EQ(ListedPort(kPort).GetTargetCount(), targets.size());
    EXPECT_EQ(m_Log.Count(text), before + 1) << text;
  };
  targets[0].flags[0] = 0xC0;  // sessions are looked at first, and one change is enough
  expectChange("Target iqn.a sessions value changed - new sessions=has sessions");
  EXPECT_EQ(m_Log.Find("Target iqn.a state changed").mask, 0U);
  targets[0].flags[0] = 0x40;
  expectChange("Target iqn.a state changed - new state=disconnected");
  targets[0].flags[0] = 0;
  expectChange("Target iqn.a sessions value changed - new sessions=no sessions");
  targets[1] = ISCSITarget("iqn.c");
  expectChange("New iSCSI target iqn.c found on local port");
  targets.push_back(ISCSITarget("iqn.d"));
  expectChange("Local port iSCSI target list changed");
  m_Provider.Script("RM_iSCSI_GetTargets", {{64}});
  EXPECT_EQ(Changes(), 1) << "a failed read leaves none";
  EXPECT_EQ(ListedPort(kPort).GetTargetCount(), 0U);
  EXPECT_EQ(m_Provider.lastRefresh, 0);
}

// The worker of a killed cycle hangs in its read of a port: the lite cycle's own read waits until it is
// stopped.
TEST_F(Lite, AHangingISCSIReadIsNotWaitedForOnceItIsStopped) {
  MakeISCSIBoard();
  Gate gate;
  gate.Close();
  m_Provider.OnCall("RM_iSCSI_GetTargets", [&] { gate.Pass(); });
  std::jthread killed([] {
    CHbaEntry port = MakePort(Info(kPort, RM_FEATURE_ISCSI));
    iSCSI_AddTargetInfo(&port, nullptr, 1);
  });
  ASSERT_TRUE(gate.WaitForCalls(1));
  const int before = m_Provider.Calls("RM_iSCSI_GetTargets");
  std::atomic<int> asked{0};
  m_Ports.SetStopQuery([&] { return ++asked > 2; });
  EXPECT_EQ(Changes(), 0);
  EXPECT_EQ(ListedPort(kPort).GetTargetCount(), 2U);
  EXPECT_EQ(m_Provider.Calls("RM_iSCSI_GetTargets"), before);
  gate.Open();
}

// A port of another host that the slow list has is left to slow discovery, and kept there.
TEST_F(Lite, PortsOfTheSlowListAreMarkedAndNotVisited) {
  AddBoard(0);
  ASSERT_EQ(LiteCycle(3), 0);
  CHbaList slow(ListRank::kGathered);
  for (CHbaList* list : {&slow, m_Ports.GetDiscoPortsList().get()}) Add(*list, MakePort(Info(kPort + 2), 0));
  m_Ports.ProcessLiteDiscovery(&slow);
  EXPECT_EQ(ToVisit(), List{kPort});
  EXPECT_EQ(Listed(slow, kPort + 2).GetDiscoveryMark(), 3U);
}

}  // namespace

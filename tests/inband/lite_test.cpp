#include <atomic>
#include <string>
#include <thread>

#include "inband/PortTargets.h"
#include "tests/inband/enumeration_fixture.h"
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

TEST_F(Lite, AChangedLinkEndsItAtOnce) {
  for (std::uint64_t i = 0; i < 3; ++i) AddBoard(i);
  Settle();
  m_Provider.boards[1].linkStatus = 2;
  const int before = m_Provider.Calls("RM_GetLocalHBAInfoV4");
  EXPECT_EQ(LiteCycle(5), CPortInfo::kPortStateChanged);
  EXPECT_EQ(m_Provider.Calls("RM_GetLocalHBAInfoV4"), before + 2);
  EXPECT_EQ(m_Ports.GetDiscoPortsList(), nullptr);
  EXPECT_EQ(m_Ports.GetNumberOfLocalHbas(), 3U) << "settled by a whole run only";
  const unsigned int marks[] = {5, 5, 0};
  const unsigned int retries[] = {2, 3, 3};
  for (unsigned int i = 0; i < 3; ++i) {
    EXPECT_EQ(ListedPort(kPort + i).GetDiscoveryMark(), marks[i]) << i;
    EXPECT_EQ(ListedPort(kPort + i).GetTargetMapRetries(), retries[i]) << i;
  }
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

// The current list is free during provider calls, and may have lost the port when they return.
TEST_F(Lite, SlowCallsAreMadeWithoutTheLock) {
  MakeISCSIBoard();
  AddBoard(1, RM_FEATURE_NIC);
  LiteCycle();
  m_Provider.ports[kPort].iscsiTargets.clear();
  m_Provider.ports[kPort + 1].functions.push_back(Name(1));
  m_Provider.OnCall("RM_iSCSI_GetTargets", [&] { Remove(*m_Current, kPort); });
  m_Provider.OnCall("RM_GetVirtualFunctionList", [&] { Remove(*m_Current, kPort + 1); });
  EXPECT_EQ(Changes(), 0);
  EXPECT_EQ(m_Current->GetCount(), 0U);
}

// Ports to visit that this host does not own, as a list of another origin would have them.
TEST_F(Lite, PortsOfOtherHostsAreVisitedWhileTheirRetriesLast) {
  AddBoard(0);
  ASSERT_EQ(LiteCycle(3), 0);
  CHbaList& ports = *m_Ports.GetDiscoPortsList();
  const std::uint64_t known = kPort + 1, slow = kPort + 2, unknown = kPort + 3;
  m_Slow = std::make_shared<CHbaList>(ListRank::kGathered);
  Add(*m_Current, MakePort(Info(known), 0));
  Add(*m_Slow, MakePort(Info(slow), 0));
  for (const std::uint64_t port : {known, slow, unknown}) Add(ports, MakePort(Info(port), 0));

  m_Ports.ProcessLiteDiscovery(m_Slow.get());
  EXPECT_EQ(ToVisit(), (List{kPort, known, unknown}));
  EXPECT_NE(Listed(ports, known).IsHbaInfoValid(), 0);
  EXPECT_EQ(Listed(ports, unknown).IsHbaInfoValid(), 0);
  EXPECT_EQ(Listed(ports, unknown).GetDiscoveryMark(), 3U);
  EXPECT_EQ(ListedPort(known).GetDiscoveryMark(), 3U);
  EXPECT_EQ(Listed(*m_Slow, slow).GetDiscoveryMark(), 3U);
  EXPECT_EQ(m_Log.Find("found on slow discovery list").wwn, slow);
  EXPECT_EQ(m_Log.Count("Found in main discovery list for system host"), 3) << "the board's own line included";

  for (int i = 0; i < 3; ++i) m_Ports.ProcessLiteDiscovery(nullptr);
  EXPECT_EQ(ToVisit(), (List{kPort, unknown}));
  EXPECT_EQ(ListedPort(kPort).GetTargetMapRetries(), 3U) << "local ports use none up";
}

}  // namespace

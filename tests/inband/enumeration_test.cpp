#include "tests/inband/enumeration_fixture.h"
#include "tests/support/Testing.h"

namespace {

TEST_F(Enumeration, WithoutBoardsThereIsNoList) {
  for (const bool lite : {false, true}) {
    EXPECT_EQ(lite ? LiteCycle() : FullCycle(), 0);
    EXPECT_EQ(m_Ports.GetDiscoPortsList(), nullptr);
    EXPECT_EQ(m_Ports.GetNumberOfDiscoPorts(), 0U);
  }
  EXPECT_EQ(m_Log.Count("Getting local HBA info (0 local HBAs)"), 2);
  EXPECT_EQ(m_Log.Count("Building disco port list done"), 2);
}

TEST_F(Enumeration, InstanceCallFailuresMeanNoBoards) {
  AddBoard(0);
  const struct {
    std::vector<Step> steps;
    const char* text;
  } rows[] = {{{{64}}, "Error 64 getting local board instances"},
              {{{7, 300}, {7, 400}}, "Error 7 getting local board instances"},
              {{{7, 1048577}}, "Failed to allocate memory for 1048577 board instances"}};
  for (const auto& row : rows) {
    m_Provider.Script("RM_GetAllLocalHBAInstances", row.steps);
    EXPECT_EQ(FullCycle(), 0);
    EXPECT_EQ(m_Ports.GetDiscoPortsList(), nullptr);
    EXPECT_EQ(m_Log.Find(row.text).mask, 1U) << row.text;
  }
  m_Provider.Script("RM_GetAllLocalHBAInstances", {{0, 100000}});
  EXPECT_EQ(FullCycle(), 0);
  EXPECT_EQ(m_Provider.Calls("RM_GetLocalHBAInfoV4"), 256) << "no more than there was room for";
}

TEST_F(Enumeration, InstanceListGrows) {
  for (std::uint64_t i = 0; i < 300; ++i) AddBoard(i, RM_FEATURE_NIC);
  EXPECT_EQ(FullCycle(), 0);
  EXPECT_EQ(m_Ports.GetNumberOfDiscoPorts(), 300U);
  EXPECT_EQ(m_Provider.Rooms("RM_GetAllLocalHBAInstances"), (std::vector<std::uint32_t>{256, 300}));
}

TEST_F(Enumeration, FullCycleAddsEveryBoardToBothLists) {
  AddBoard(0).linkStatus = 0xEE000000;
  ScriptedBoard& roce = AddBoard(1, RM_FEATURE_NIC | RM_FEATURE_ROCE);
  std::memcpy(roce.info.vpdPortNumber, "12345678", 8);
  std::memset(roce.info.model, 'm', sizeof(roce.info.model));
  roce.info.physicalPort = 4;
  AddBoard(2, RM_FEATURE_ISCSI);
  m_Provider.ports[kPort + 2].initiatorName = "iqn.x";
  AddBoard(3, RM_FEATURE_FCOE);
  AddBoard(4, RM_FEATURE_NIC);
  AddBoard(0);  // twice the same name

  Settle();
  EXPECT_EQ(Names(*m_New), (List{kPort, kPort + 1, kPort + 2, kPort + 3, kPort + 4}));
  EXPECT_EQ(ToVisit(), Names(*m_New));
  EXPECT_EQ(m_Ports.GetNumberOfLocalHbas(), 6U);
  const CHbaEntry first = Listed(*m_New, kPort);
  EXPECT_NE(first.IsLocalPort(), 0);
  EXPECT_NE(first.IsHbaInfoValid(), 0);
  EXPECT_EQ(first.GetLinkStatus(), 0xEE000000U);
  EXPECT_EQ(Listed(*m_New, kPort + 1).GetSpecialFeatures(), 0x408U);
  EXPECT_STREQ(Listed(*m_New, kPort + 2).GetISCSINames()->GetInitiatorName(), "iqn.x");
  const std::string adding = "Adding local adapter to discovery list: vpdport#=";
  EXPECT_EQ(m_Log.Count(adding + "n/a, phyport#=0, type=FC, model="), 2);
  EXPECT_EQ(m_Log.Count(adding + "12345678, phyport#=4, type=NIC+RoCE, model=" + std::string(80, 'm')), 1);
  for (const char* type : {"iSCSI", "FCoE", "NIC"}) {
    EXPECT_EQ(m_Log.Count(adding + "n/a, phyport#=0, type=" + type + ", model="), 1) << type;
  }

  ChangeListed(kPort, [](CHbaEntry& port) {
    for (std::uint64_t i = 0; i < 3; ++i) {
      const RM_NodeInfoEntry node = Node(kTarget + i);
      port.AddTarget(&node);
    }
    port.SetOldTargetCount(77);
  });
  m_Provider.boards[0].linkStatus = 9;
  ASSERT_EQ(FullCycle(), 0) << "link states matter to lite cycles only";
  EXPECT_EQ(Listed(*m_New, kPort).GetOldTargetCount(), 3U);
  EXPECT_EQ(Listed(*m_Ports.GetDiscoPortsList(), kPort).GetOldTargetCount(), 3U);
}

TEST_F(Enumeration, TargetNamesAreCollectedFromFCBoardsOnly) {
  AddBoard(0);
  AddBoard(1, RM_FEATURE_NIC);
  AddBoard(2).info.modelId = RM_MODEL_TARGET_MODE;
  AddBoard(3, RM_FEATURE_ISCSI);
  m_Provider.ports[kPort].nodes = {Node(kTarget, 0x20), Node(kTarget + 1, 0x2), Node(kTarget + 2),
                                   Node(kTarget)};
  m_Provider.varnixPorts = {kTarget, kTarget + 1};
  ASSERT_EQ(FullCycle(), 0);
  EXPECT_EQ(m_Provider.Calls("RM_GetAllNodeInfo"), 1);
  EXPECT_EQ(m_Log.Count("Adding non-Varnix port discovered ports list"), 1);
  DiscoWWPNListGuard guard(CPortInfo::m_AllDiscoPorts);
  EXPECT_EQ(CPortInfo::m_AllDiscoPorts.GetCount(), 1U);
  EXPECT_NE(CPortInfo::m_AllDiscoPorts.FindEntry(Name(kTarget).wwn), nullptr);
}

}  // namespace

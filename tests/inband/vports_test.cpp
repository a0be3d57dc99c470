#include "inband/PortVPorts.h"
#include "tests/support/RecordedLog.h"
#include "tests/support/ScriptedProvider.h"
#include "tests/support/Testing.h"

namespace {

constexpr std::uint64_t kVPort = 0x2100000000000000;
const std::string kVPort0 = "NPIVDISC: VPORT 0 - 21:00:00:00:00:00:00:00";
const std::string kVPort1 = "NPIVDISC: VPORT 1 - 21:00:00:00:00:00:00:01";

RM_VPortTargetEntry VPortTarget(std::uint64_t wwpn) {
  RM_VPortTargetEntry target{};
  std::memset(target.unused, 0xAA, sizeof(target.unused));
  std::memcpy(target.osDeviceName, "/dev/sdv", 9);
  target.bus = 1;
  target.target = 2;
  target.lun = 3;
  target.fcAddressId = 4;
  std::memcpy(target.nodeWwn, Name(wwpn + 0x100).wwn, 8);
  std::memcpy(target.portWwn, Name(wwpn).wwn, 8);
  target.fcpLun = 5;
  return target;
}

class VPorts : public testing::Test {
 protected:
  VPorts() {
    for (std::uint64_t i = 0; i < 3; ++i) {
      m_Port.vports.push_back({kVPort + i, kVPort + 0x100 + i, {}});
      for (std::uint64_t t = 0; t <= i; ++t) m_Port.vports.back().targets.push_back(VPortTarget(kTarget + t));
    }
  }

  int Read(int verbose = 1) { return AddVPortInfo(&m_Entry, nullptr, verbose); }
  // Whether the last read says something of what a listed port has: it is marked as read.
  bool VPortsAnswered() const {
    CHbaEntry listed;
    const CVPortEntry vport(Name(99).wwn);
    listed.AddVPort(&vport);
    listed.TakeVPorts(m_Entry);
    return listed.GetVPortList().FindEntry(Name(99).wwn) == nullptr;
  }
  std::vector<unsigned int> TargetCounts() const {
    std::vector<unsigned int> counts;
    const CVPortList list = m_Entry.GetVPortList();
    for (unsigned int i = 0; i < list.GetCount(); ++i) counts.push_back(list.GetEntry(i).GetTargetCount());
    return counts;
  }

  RecordedLog m_Log;
  ScriptedProvider m_Provider;
  ScriptedPort& m_Port = m_Provider.ports[kPort];
  CHbaEntry m_Entry = MakePort(Info(kPort));
};

TEST_F(VPorts, AreReadWithTheirTargets) {
  EXPECT_EQ(Read(), 0);
  EXPECT_EQ(TargetCounts(), (std::vector<unsigned int>{1, 2, 3}));
  EXPECT_EQ(m_Provider.Rooms("RM_VPList"), (std::vector<std::uint32_t>{1, 3}));
  EXPECT_EQ(m_Provider.Rooms("RM_VPListTargets"), (std::vector<std::uint32_t>{1, 1, 2, 1, 3}));
  EXPECT_EQ(m_Log.Find(kVPort1).mask, 2U);
  EXPECT_EQ(m_Log.Count(kVPort1 + ", add 2 targets"), 1);

  const CVPortList list = m_Entry.GetVPortList();
  HBA_info_v2 info{};
  std::memcpy(info.portWwn, Name(kVPort).wwn, 8);
  std::memcpy(info.nodeWwn, Name(kVPort + 0x100).wwn, 8);
  EXPECT_EQ(std::memcmp(list.GetEntry(0).GetHbaInfo(), &info, sizeof(info)), 0);
  RM_NodeInfoEntry node = Node(kTarget, 2);
  std::memcpy(node.osDeviceName, "/dev/sdv", 9);
  node.bus = 1;
  node.target = 2;
  node.lun = 3;
  node.fcAddressId = 4;
  node.fcpLun = 5;
  const CTargetList targets = list.GetEntry(0).GetTargetList();
  EXPECT_EQ(std::memcmp(targets.GetEntry(0).GetTargetEntry(), &node, sizeof(node)), 0);
}

TEST_F(VPorts, AFailedListLeavesThem) {
  ASSERT_EQ(Read(), 0);
  const struct {
    Step step;
    int result;
    bool answered;
  } rows[] = {{{64}, 64, false},
              {{253}, 253, false},
              {{303}, 303, true},
              {{191, 5}, 191, true},
              {{7, 0xFFFFFFFF}, 35, true}};
  for (const auto& row : rows) {
    m_Entry.SetNothingRead();
    m_Provider.Script("RM_VPList", {row.step});
    EXPECT_EQ(Read(), row.result);
    EXPECT_EQ(m_Provider.Calls("RM_VPList"), 1);
    EXPECT_EQ(m_Entry.GetVPortCount(), 3U);
    EXPECT_EQ(VPortsAnswered(), row.answered) << row.result;
  }
  m_Port.vports.clear();
  m_Entry.SetNothingRead();
  EXPECT_EQ(Read(), 0);
  EXPECT_TRUE(VPortsAnswered()) << "none is an answer";
  EXPECT_EQ(m_Entry.GetVPortCount(), 0U);
}

TEST_F(VPorts, WithoutReadableTargetsAreAddedAllTheSame) {
  m_Provider.Script("RM_VPListTargets", {{64}, {7, 2000000}});
  EXPECT_EQ(Read(0), 0) << "the status of the last one";
  EXPECT_EQ(TargetCounts(), (std::vector<unsigned int>{0, 0, 3}));
  EXPECT_EQ(m_Log.Find(kVPort0 + ", Get targets failed 64").mask, 32U);
  EXPECT_EQ(m_Log.Find(kVPort1 + ", No memory to get 2000000 targets").mask, 32U);
  EXPECT_EQ(m_Log.Find(kVPort0).mask, 16U);

  m_Provider.Script("RM_VPListTargets", {{0, 1}, {0, 1}, {9}});
  EXPECT_EQ(Read(), 9);
  EXPECT_EQ(m_Entry.GetVPortCount(), 3U);
}

TEST_F(VPorts, AreNotAskedForByAStoppedWorkerNorOfAnISCSIPort) {
  CZylTpThread disabled;
  EXPECT_EQ(AddVPortInfo(&m_Entry, &disabled, 1), 0);
  m_Entry = MakePort(Info(kPort, RM_FEATURE_ISCSI));
  EXPECT_EQ(Read(), 0);
  EXPECT_EQ(m_Provider.Calls("RM_VPList"), 0);
}

TEST_F(VPorts, FunctionsOfANICAreCollected) {
  m_Entry = MakePort(Info(kPort, RM_FEATURE_NIC));
  for (std::uint64_t i = 1; i <= 70; ++i) m_Port.functions.push_back(Name(i));
  m_Entry.AddVF(Name(500));
  EXPECT_EQ(Read(0), 0);
  EXPECT_EQ(m_Entry.GetVFCount(), 71U) << "one that went away stays";
  EXPECT_EQ(m_Provider.Rooms("RM_GetVirtualFunctionList"), (std::vector<std::uint32_t>{64, 70}));
  EXPECT_EQ(m_Log.Count("RM_GetVirtualFunctionList status = 7"), 1);
  EXPECT_EQ(m_Log.Find("VFAddr").wwn, 1U);
  EXPECT_EQ(m_Log.Count("VFAddr"), 70);
  EXPECT_EQ(m_Log.Find("VFs count:71").mask, 2U);
  EXPECT_EQ(m_Provider.Calls("RM_VPList"), 0);

  m_Provider.Script("RM_GetVirtualFunctionList", {{7, 0xFFFFFFFF}, {64}});
  Read();
  EXPECT_EQ(m_Log.Count("VFs count:71"), 1);
  Read();
  EXPECT_EQ(m_Log.Count("VFs count:71"), 2);
}

}  // namespace

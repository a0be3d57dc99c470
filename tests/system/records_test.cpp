// Every record of the exported interface, byte by byte.

#include <gmock/gmock.h>

#include "tests/support/RecordBytes.h"
#include "tests/support/Testing.h"
#include "tests/system/Fabric.h"

namespace systemtest {
namespace {

using testing::ElementsAreArray;

constexpr char kFc[] = "1000000000000001";
constexpr char kFcoe[] = "1000000000000002";
constexpr char kSubAdapter[] = "1000000000000003";
constexpr char kNic[] = "1000000000000004";
constexpr char kIscsi[] = "1000000000000005";

json DescribedBoard(const char* kind, const char* wwpn) {
  return {{"kind", kind},
          {"wwpn", wwpn},
          {"wwnn", "2000000000000abc"},
          {"model_id", 0x6A01},
          {"manufacturer", "Mfg"},
          {"model", "Model"},
          {"serial_number", "SN123"},
          {"physical_port", 3},
          {"pci_function", 5},
          {"vpd_port_number", "7"},
          {"pci_bus", 9}};
}

std::vector<json> DescribedBoards() {
  json fc = DescribedBoard("fc", kFc);
  fc["fabric_name"] = "1000aabbccdd0001";
  fc["bind_type"] = 4;
  fc["targets"] = {{{"wwpn", "5000000000000001"},
                    {"wwnn", "5100000000000001"},
                    {"bus", 1},
                    {"target", 2},
                    {"lun", 3},
                    {"fcp_lun", 0x4001000000000000},
                    {"fc_id", 0x010203},
                    {"device", "/dev/sda"},
                    {"lun_id", "id"}}};
  fc["virtual_ports"] = {
      {{"wwpn", "1100000000000001"},
       {"wwnn", "2100000000000001"},
       {"targets", {{{"wwpn", "5000000000000001"}, {"wwnn", "5100000000000001"}, {"lun", 6}}}}}};
  json fcoe = DescribedBoard("fcoe", kFcoe);
  json subAdapter = DescribedBoard("fc", kSubAdapter);
  subAdapter["sub_adapter_id"] = "1A2b";
  json nic = DescribedBoard("nic", kNic);
  nic["sub_adapter_id"] = "12";
  nic["virtual_functions"] = {{{"address", "0000020000000001"}, {"count", 2}}};
  json iscsi = IscsiBoard(kIscsi);
  iscsi["iscsi_targets"] = {{{"name", "iqn.2020-01.example:disk"},
                             {"second_name", "second"},
                             {"sessions", true},
                             {"connected", true}}};
  return {fc, fcoe, subAdapter, nic, iscsi};
}

class Records : public testing::Test {
 protected:
  void SetUp() override {
    m_Library.Start(3600);
    ASSERT_EQ(m_CallBacks.Await(1).size(), 1u);
  }

  Log m_Log;
  Fabric m_Fabric{DescribedBoards()};
  Library m_Library{m_Fabric.Path()};
  CallBacks m_CallBacks{m_Library, HBADISC_EVENT_FORCED};
};

// What the record of a described board has in common with the others.
RecordBytes DescribedRecord(const char* wwpn, std::uint32_t link, std::uint32_t features) {
  RecordBytes bytes(340);
  bytes.U32(0, 1).Wwn(4, wwpn).Wwn(12, "2000000000000abc").U32(28, 0x6A01).Text(32, "testhost").Text(64, "Mfg");
  bytes.Text(96, "Model").U32(232, link).Text(236, "SN123").U32(308, features);
  return bytes;
}

TEST_F(Records, PortsInAllThreeForms) {
  const auto ports = m_Library.Ports();
  ASSERT_EQ(ports.size(), 5u);

  RecordBytes fc = DescribedRecord(kFc, 1, 0);
  fc.Wwn(20, "1000aabbccdd0001").U32(212, 1).U32(216, 4).Text(296, "7").U32(304, 1);
  EXPECT_THAT(BytesOf(ports.at(kFc)), ElementsAreArray(fc.Get()));

  RecordBytes fcoe = DescribedRecord(kFcoe, 0x0101, 0x12);
  fcoe.U32(216, 1).U16(296, 3).U16(298, 5).U16(300, 9).U16(302, 0xFFFF);
  EXPECT_THAT(BytesOf(ports.at(kFcoe)), ElementsAreArray(fcoe.Get()));

  // Without a kind that is numbered the port number is the first character's; the id has letters, so it is
  // hexadecimal.
  RecordBytes subAdapter = DescribedRecord(kSubAdapter, 1, 0x200);
  subAdapter.U32(216, 1).U16(296, 7).U16(298, 5).U16(300, 9).U16(302, 0x1A2B);
  EXPECT_THAT(BytesOf(ports.at(kSubAdapter)), ElementsAreArray(subAdapter.Get()));

  RecordBytes nic = DescribedRecord(kNic, 0x0101, 0x20A);
  nic.U16(296, 3).U16(298, 5).U16(300, 9).U16(302, 12).U32(336, 2);
  EXPECT_THAT(BytesOf(ports.at(kNic)), ElementsAreArray(nic.Get()));

  hba_discovery_info first{};
  hba_discovery_info_V2 firstV2{};
  ASSERT_EQ(m_Library.GetFirstHba(&first), 5);
  EXPECT_EQ(std::memcmp(&first, fc.Get().data(), sizeof first), 0);
  ASSERT_EQ(m_Library.GetFirstHbaV2(&firstV2), 5);
  EXPECT_EQ(std::memcmp(&firstV2, fc.Get().data(), sizeof firstV2), 0);
  while (m_Library.GetNextHbaV2(&firstV2) != 0) {
  }
}

TEST_F(Records, Targets) {
  RecordBytes expected(568);
  expected.U32(0, 4).Text(4, "/dev/sda").U32(260, 1).U32(264, 2).U32(268, 3).U32(272, 0x010203);
  expected.Wwn(276, "5100000000000001").Wwn(284, "5000000000000001").U64(296, 0x4001000000000000);
  expected.Text(304, "id").U32(560, 0x22);
  RM_NodeInfoEntry target{};
  unsigned int count = 1;
  EXPECT_EQ(m_Library.GetTargetMappings(Name(kFc), &target, &count), 0);
  EXPECT_EQ(count, 1u);
  EXPECT_THAT(BytesOf(target), ElementsAreArray(expected.Get()));

  count = 0;
  EXPECT_EQ(m_Library.GetTargetMappings(Name(kFc), nullptr, &count), 1);
  EXPECT_EQ(count, 0u);
}

TEST_F(Records, VirtualPortsAndTheirTargets) {
  discovery_vport_info vport{};
  unsigned int count = 1;
  EXPECT_EQ(m_Library.GetVPorts(Name(kFc), &vport, &count), 0);
  EXPECT_THAT(
      BytesOf(vport),
      ElementsAreArray(RecordBytes(20).Wwn(0, "1100000000000001").Wwn(8, "2100000000000001").U32(16, 1).Get()));

  // Not all of a node is reported for a virtual port: no bind type, no LUN identifier, and always ready.
  RecordBytes expected(568);
  expected.U32(268, 6).Wwn(276, "5100000000000001").Wwn(284, "5000000000000001").U64(296, 6).U32(560, 2);
  RM_NodeInfoEntry target{};
  EXPECT_EQ(m_Library.GetVPortTargets(Name(kFc), vport.portWwn, &target, &count), 0);
  EXPECT_EQ(count, 1u);
  EXPECT_THAT(BytesOf(target), ElementsAreArray(expected.Get()));
  EXPECT_EQ(m_Library.GetVPortTargets(Name(kFc), Name(kFcoe), &target, &count), 0);
  EXPECT_EQ(count, 0u);
}

TEST_F(Records, IscsiTargetsAndNames) {
  RecordBytes expected(568);
  expected.Text(0, "iqn.2020-01.example:disk").Text(256, "second").U8(512, 0xC0);
  RM_NodeInfoEntry target{};
  std::memset(&target, 0xEE, sizeof target);
  unsigned int count = 1;
  EXPECT_EQ(m_Library.GetiSCSITargets(Name(kIscsi), &target, &count), 0);
  EXPECT_THAT(BytesOf(target), ElementsAreArray(expected.Get()));

  RecordBytes names(768);
  names.Text(0, std::string("iqn.2020-01.example:") + kIscsi).Text(256, "iqn.2020-01.example:default");
  names.Text(512, std::string("port ") + kIscsi);
  discovery_iscsi_names record;
  std::memset(&record, 0xEE, sizeof record);
  EXPECT_EQ(m_Library.GetiSCSINames(Name(kIscsi), &record), 1);
  EXPECT_THAT(BytesOf(record), ElementsAreArray(names.Get()));
  EXPECT_EQ(m_Library.GetiSCSINames(Name(kFc), &record), 0);
  EXPECT_THAT(BytesOf(record), ElementsAreArray(RecordBytes(768).Get()));
}

TEST_F(Records, VirtualFunctions) {
  struct {
    discovery_vf_addrs header;
    HBA_NAME addresses[2];
  } record{};
  EXPECT_EQ(m_Library.GetVirtualFunctionAddrs(Name(kNic), &record.header), 1);
  EXPECT_THAT(BytesOf(record), ElementsAreArray(RecordBytes(20).U32(0, 2).Get()));
  EXPECT_EQ(m_Library.GetVirtualFunctionAddrs(Name(kNic), &record.header), 0);
  EXPECT_THAT(
      BytesOf(record),
      ElementsAreArray(RecordBytes(20).U32(0, 2).Wwn(4, "0000020000000001").Wwn(12, "0000020000000002").Get()));
  EXPECT_EQ(m_Library.GetVirtualFunctionAddrs(Name("00000000000000ff"), &record.header), 2);
}

// Management of local ports through this host's own agent, except for NIC and iSCSI ports.
TEST_F(Records, SecureManagementPointsToTheLocalAgent) {
  m_Fabric.Local()["secure_management"] = true;
  ASSERT_TRUE(m_Fabric.Replace(m_Library));
  const auto ports = m_Library.Ports();
  ASSERT_EQ(ports.size(), 5u);
  RecordBytes address(20);
  address.Text(0, std::string("\x7f\0\0\x01", 4)).U16(16, 23333);
  for (const auto& [name, port] : ports) {
    const bool managed = name != kNic && name != kIscsi;
    EXPECT_EQ(port.hasProxyIpInfo, managed ? 1u : 0u) << name;
    EXPECT_EQ(port.base.base.proxyOnly, managed ? 1u : 0u) << name;
    EXPECT_EQ(port.base.base.isLocal, 1u) << name;
    EXPECT_EQ(port.base.base.proxyAddress[0], 0) << name;
    EXPECT_THAT(BytesOf(port.proxyIpInfo), ElementsAreArray(managed ? address.Get() : RecordBytes(20).Get()))
        << name;
  }
}

}  // namespace
}  // namespace systemtest

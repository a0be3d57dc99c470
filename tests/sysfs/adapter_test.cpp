// How an adapter's record and attributes come from what the kernel and the driver tell.

#include <unistd.h>

#include "provider/host/WorldWideName.h"
#include "provider/sysfs/SysfsHost.h"
#include "tests/support/Testing.h"
#include "tests/sysfs/Describe.h"
#include "tests/sysfs/Tree.h"

namespace sysfs_test {

using provider::Attributes;
using provider::Board;
using provider::Host;
using provider::Wwn;

namespace {

constexpr std::uint64_t kHbaName = 0x2000025dfa000007;
const std::string kHbaPci = "devices/pci0000:3a/0000:3a:02.0/0000:3b:00.1/";

// An adapter that is an FC port in hardware: no network device, its SCSI host right under the PCI function.
class Hba : public Tree {
 public:
  Hba() {
    Link("class/fc_host/host7", "../../" + kHbaPci + "host7/fc_host/host7");
    SetPort("port_name", "0x2000025dfa000007\n");
    SetPort("node_name", "0x1000025dfa000007\n");
    SetPort("fabric_name", "0xffffffffffffffff\n");
    SetPort("port_state", "Online\n");
    SetPort("symbolic_name", "HBA FV1.2 DV3.4\n");
    Link(kHbaPci + "host7/fc_host/host7/device", "../../../host7");
    Set("host7/scsi_host/host7/proc_name", "hbadrv\n");
    Set("host7/scsi_host/host7/active_mode", "Initiator\n");
    Set("vendor", "0x0bad\n");
    Set("device", "0x1e30\n");
    Set("subsystem_vendor", "0x0bad\n");
    Set("subsystem_device", "0xe331\n");
    Link(kHbaPci + "driver", "../../../../bus/pci/drivers/hbadrv");
  }

  void Set(const std::string& attribute, const std::string& value) { Write(kHbaPci + attribute, value); }
  void SetPort(const std::string& attribute, const std::string& value) {
    Set("host7/fc_host/host7/" + attribute, value);
  }
};

Board ReadBoard(const Tree& tree, unsigned int instance) {
  const provider::Answer<Board> answer = provider::MakeSysfsHost(tree.Root(), "tester")->ReadBoard(instance);
  EXPECT_EQ(answer.status, RM_STATUS_OK);
  return answer.value;
}

template <std::size_t Size>
std::string Text(const char (&field)[Size]) {
  return std::string(field, strnlen(field, Size));
}

// The record as the reader of attributes fills it, who keeps no field of an earlier record but the port name.
Board FromAttributes(const Wwn& wwn, const Attributes& attributes) {
  Board board;
  HBA_info_v4& info = board.info;
  const auto number = [&](unsigned int id) { return std::get<std::uint32_t>(attributes.at(id)); };
  const auto copyText = [&](unsigned int id, char* field, std::size_t most) {
    const std::string text = std::get<std::string>(attributes.at(id));
    std::copy_n(text.begin(), std::min(text.size(), most), field);
  };
  const auto copyName = [&](unsigned int id, std::uint8_t* field) {
    std::ranges::copy(std::get<Wwn>(attributes.at(id)), field);
  };
  const bool isFcoe = number(556) == 2;
  std::ranges::copy(wwn, info.portWwn);
  copyName(518, info.nodeWwn);
  copyName(535, info.fabricName);
  copyText(513, info.hostName, sizeof(info.hostName) - 1);
  copyText(514, info.manufacturer, sizeof(info.manufacturer) - 1);
  copyText(515, info.serialNumber, sizeof(info.serialNumber));
  copyText(537, info.model, sizeof(info.model));
  copyText(553, info.vpdPortNumber, sizeof(info.vpdPortNumber));
  info.modelId = number(527) | (number(554) != 0 ? RM_MODEL_TARGET_MODE : 0);
  info.functionNumber = static_cast<std::uint16_t>(number(560));
  info.busNumber = static_cast<std::uint16_t>(number(555));
  if (isFcoe) info.physicalPort = static_cast<std::uint16_t>(number(559));
  if (isFcoe) info.specialFeatures = RM_FEATURE_FCOE | RM_FEATURE_CONVERGED;
  if (number(527) == 0xFE05 || number(527) == 0xFED5) info.specialFeatures |= RM_FEATURE_MARDEL;
  if (number(561) == 0x103C && (number(557) == 0x3391 || number(557) == 0x3392)) {
    info.specialFeatures |= RM_FEATURE_SORTANE;
  }
  board.linkStatus = number(774) | (isFcoe ? number(802) << 8 : 0);
  return board;
}

// The whole record, padding too.
void ExpectRefreshChangesNothing(const Tree& tree, const std::string& hostName = "tester") {
  const std::unique_ptr<Host> host = provider::MakeSysfsHost(tree.Root(), hostName);
  const auto boards = host->BoardInstances();
  ASSERT_FALSE(boards.records.empty());
  for (const unsigned int instance : boards.records) {
    const Board board = host->ReadBoard(instance).value;
    const Wwn wwn = provider::WwnFromBytes(board.info.portWwn);
    const provider::Answer<Attributes> attributes = host->DiscoveryAttributes(wwn);
    ASSERT_EQ(attributes.status, RM_STATUS_OK);
    const Board refreshed = FromAttributes(wwn, attributes.value);
    EXPECT_EQ(std::memcmp(&refreshed.info, &board.info, sizeof(board.info)), 0) << "board " << instance;
    EXPECT_EQ(refreshed.linkStatus, board.linkStatus) << "board " << instance;
  }
}

}  // namespace

// "maker, model, serial number; model id; VPD port; physical port; function; bus; features", numbers in
// hexadecimal.
std::string Summary(const HBA_info_v4& info) {
  std::ostringstream text;
  text << std::hex << Text(info.manufacturer) << ", " << Text(info.model) << ", " << Text(info.serialNumber)
       << "; " << info.modelId << "; " << Text(info.vpdPortNumber) << "; " << info.physicalPort << "; "
       << info.functionNumber << "; " << info.busNumber << "; " << info.specialFeatures;
  return text.str();
}

TEST(Adapter, FcoePortOfAPciAdapter) {
  const Tree tree("pci-04-npiv-active");
  const HBA_info_v4 info = ReadBoard(tree, 1).info;
  EXPECT_EQ(provider::WwnFromBytes(info.portWwn), Name(0x2000525400fc0011));
  EXPECT_EQ(provider::WwnFromBytes(info.nodeWwn), Name(0x1000525400fc0011));
  EXPECT_EQ(Text(info.hostName), "tester");
  EXPECT_EQ(Summary(info),
            "PCI vendor 8086, fcoe over eth1 (igb 8086:10c9), 52:54:00:fc:00:11; 10c9; 1; 1; 1; 1; 12");
  EXPECT_EQ(Text(info.subAdapterId), "");
}

TEST(Adapter, FcoePortWithoutHardware) {
  EXPECT_EQ(Summary(ReadBoard(Tree("veth-01-up"), 0).info),
            "Linux, fcoe over veth0, 02:00:00:00:0a:01; ffff; ; 0; ffff; ffff; 12");
}

TEST(Adapter, FcPortInHardware) {
  Hba tree;
  const Board board = ReadBoard(tree, 7);
  EXPECT_EQ(board.linkStatus, 1u);
  EXPECT_EQ(provider::WwnFromBytes(board.info.fabricName), Wwn{});
  EXPECT_EQ(Summary(board.info), "PCI vendor 0bad, hbadrv 0bad:1e30, ; 1e30; 1; 0; 1; 3b; 0");
  tree.SetPort("port_state", "Linkdown\n");
  EXPECT_EQ(ReadBoard(tree, 7).linkStatus, 2u);
}

TEST(Adapter, DriversTextsComeFirst) {
  Hba tree;
  tree.SetPort("manufacturer", "Maker \xC3\xA9 Corp \t\n");
  tree.SetPort("model_description", "A long description\n");
  tree.SetPort("serial_number", std::string(80, '7') + '\n');
  const HBA_info_v4 described = ReadBoard(tree, 7).info;
  EXPECT_EQ(Text(described.manufacturer), "Maker ?? Corp");
  EXPECT_EQ(Text(described.model), "A long description");
  EXPECT_EQ(Text(described.serialNumber), std::string(60, '7'));

  tree.SetPort("model", "M1000\n");
  EXPECT_EQ(Text(ReadBoard(tree, 7).info.model), "M1000");
}

TEST(Adapter, WithoutIdsTheDriversWordsAreLeft) {
  Hba tree;
  tree.Set("device", "");
  EXPECT_EQ(Text(ReadBoard(tree, 7).info.model), "HBA FV1.2 DV3.4");
  tree.SetPort("symbolic_name", "\n");
  EXPECT_EQ(Text(ReadBoard(tree, 7).info.model), "hbadrv");
  tree.Set("host7/scsi_host/host7/proc_name", "(null)\n");
  EXPECT_EQ(Summary(ReadBoard(tree, 7).info), "unknown, unknown, ; ffff; 1; 0; 1; 3b; 0");
}

// FCoE mostly runs on a VLAN device, which has no hardware in its path; the adapter is one or more layers down.
TEST(Adapter, FcoeOnAVlanFindsItsAdapter) {
  Tree tree("pci-04-npiv-active");
  const std::string vlan = "devices/virtual/net/fcoe.100/";
  const std::string fcHost = vlan + "ctlr_2/host5/fc_host/host5";
  tree.Link("class/fc_host/host5", "../../" + fcHost);
  tree.Write(fcHost + "/port_name", "0x2000525400fc0100\n");
  tree.Write(vlan + "address", "52:54:00:fc:01:00\n");
  tree.Write(vlan + "carrier", "1\n");
  tree.Link(vlan + "lower_team0", "../team0");
  tree.Link("devices/virtual/net/team0/lower_eth1", "../../../pci0000:00/0000:00:03.0/0000:01:00.1/net/eth1");
  const HBA_info_v4 info = ReadBoard(tree, 5).info;
  EXPECT_EQ(Text(info.model), "fcoe over fcoe.100 (igb 8086:10c9)");
  EXPECT_EQ(info.busNumber, 1u);
  EXPECT_EQ(info.functionNumber, 1u);

  // Of two ports at once neither is the adapter.
  tree.Link("devices/virtual/net/team0/lower_eth0", "../../../pci0000:00/0000:00:03.0/0000:01:00.0/net/eth0");
  EXPECT_EQ(ReadBoard(tree, 5).info.busNumber, 0xFFFFu);

  tree.Link(vlan + "lower_team0", "../fcoe.100");
  EXPECT_EQ(ReadBoard(tree, 5).info.busNumber, 0xFFFFu);
}

TEST(Adapter, RefreshByAttributesChangesNothing) {
  for (const char* const name : {"pci-04-npiv-active", "pci-10-initiator-port-linkdown", "pci-13-sriov",
                                 "veth-01-up", "veth-09-target-devloss"}) {
    SCOPED_TRACE(name);
    ExpectRefreshChangesNothing(Tree(name));
  }
  Hba hba;
  ExpectRefreshChangesNothing(hba);
  ExpectRefreshChangesNothing(hba, "a-host-name-that-is-longer-than-its-field");
  hba.Set("device", "0xfe05\n");
  hba.Set("subsystem_vendor", "0x103c\n");
  hba.Set("subsystem_device", "0x3392\n");
  hba.Set("host7/scsi_host/host7/active_mode", "Target\n");
  hba.SetPort("model", std::string(300, 'm') + '\n');
  hba.SetPort("manufacturer", std::string(300, 'f') + '\n');
  ExpectRefreshChangesNothing(hba);
  const HBA_info_v4 info = ReadBoard(hba, 7).info;
  EXPECT_EQ(info.modelId, 0xFE05u | RM_MODEL_TARGET_MODE);
  EXPECT_EQ(info.specialFeatures, std::uint32_t{RM_FEATURE_MARDEL} | RM_FEATURE_SORTANE);
}

}  // namespace sysfs_test

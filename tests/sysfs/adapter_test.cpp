// How an adapter's record and attributes come from what the kernel and the driver tell.

#include <unistd.h>

#include "provider/host/WorldWideName.h"
#include "provider/sysfs/SysfsHost.h"
#include "rmapi/PortDetails.h"
#include "tests/support/Testing.h"
#include "tests/sysfs/Describe.h"
#include "tests/sysfs/Tree.h"

namespace sysfs_test {

using provider::Board;
using provider::Wwn;

namespace {

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
  tree.Set("host7/scsi_host/host7/active_mode", "Target\n");
  EXPECT_EQ(ReadBoard(tree, 7).linkStatus, 2u);
  EXPECT_EQ(ReadBoard(tree, 7).info.modelId, 0x1e30u | RM_MODEL_TARGET_MODE);
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

// "key value" of each detail that is told, in their order.
std::string Details(const Tree& tree) {
  const provider::Answer<provider::Attributes> answer =
      provider::MakeSysfsHost(tree.Root(), "tester")->DiscoveryAttributes(Name(0x2000025dfa000007));
  std::ostringstream text;
  for (const PortDetailKey& detail : kPortDetailKeys) {
    const auto value = answer.value.find(detail.id);
    if (value == answer.value.end()) continue;
    text << detail.key << ' ';
    std::visit(
        [&text](const auto& known) {
          if constexpr (!std::is_same_v<std::decay_t<decltype(known)>, Wwn>) text << known << '\n';
        },
        value->second);
  }
  return text.str();
}

TEST(Adapter, TellsSpeedsVersionsAndStorage) {
  Hba tree;
  const std::string bare = Details(tree);
  EXPECT_EQ(bare, "driver_name hbadrv\npci_address 0000:3b:00.1\nlun_count 0\nblock_device_count 0\n");
  tree.SetPort("speed", "16 Gbit\n");
  tree.SetPort("supported_speeds", "32 Gbit, 8 Gbit, Unknown, 16 Gbit\n");
  tree.Set("host7/scsi_host/host7/fwrev", "12.8.0, sli-4\n");
  tree.Set("host7/scsi_host/host7/option_rom_version", "12.8.1\n");
  tree.Write("module/hbadrv/version", "14.2\n");
  const std::string rport = "host7/rport-7:0-2/";
  for (const char* attribute :
       {"port_state Online", "roles FCP Target", "scsi_target_id 0", "port_name 0x5000000000000001"}) {
    const std::string line = attribute;
    const std::size_t blank = line.find(' ');
    tree.Set(rport + "fc_remote_ports/rport-7:0-2/" + line.substr(0, blank), line.substr(blank + 1) + '\n');
  }
  tree.MakeFolder(kHbaPci + rport + "target7:0:0/7:0:0:0/block/sdb");
  tree.MakeFolder(kHbaPci + rport + "target7:0:0/7:0:0:1/scsi_generic/sg3");
  tree.MakeFolder(kHbaPci + rport + "target7:0:0/7:0:0:2/block/sda");
  EXPECT_EQ(Details(tree),
            "link_speed 16000\nsupported_speeds 8000 16000 32000\nfirmware_version 12.8.0, sli-4\n"
            "driver_name hbadrv\ndriver_version 14.2\nboot_version 12.8.1\npci_address 0000:3b:00.1\n"
            "lun_count 3\nblock_device_count 2\nblock_devices sda sdb\n");
  tree.SetPort("port_state", "Linkdown\n");
  EXPECT_EQ(Details(tree).substr(0, 13), "link_speed 0\n");
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

}  // namespace sysfs_test

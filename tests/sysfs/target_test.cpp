// Targets, LUNs and virtual ports beyond what the kernel-made trees hold.

#include "provider/host/WorldWideName.h"
#include "provider/sysfs/SysfsHost.h"
#include "tests/support/Testing.h"
#include "tests/sysfs/Describe.h"
#include "tests/sysfs/Tree.h"

namespace sysfs_test {

using provider::Host;
using provider::ListAnswer;

const provider::Wwn kPort = Name(0x2000525400fc0010);

class Targets : public testing::Test {
 protected:
  // A remote port of host0.
  void AddRemotePort(const std::string& name, const std::string& wwn, const std::string& state,
                     const std::string& roles, const std::string& targetId) {
    const std::string port = kHost0 + name + "/fc_remote_ports/" + name + '/';
    m_Tree.Write(port + "port_name", wwn + '\n');
    m_Tree.Write(port + "node_name", "0x500000000000abcd\n");
    m_Tree.Write(port + "port_id", "0x010300\n");
    m_Tree.Write(port + "port_state", state + '\n');
    m_Tree.Write(port + "roles", roles + '\n');
    m_Tree.Write(port + "scsi_target_id", targetId + '\n');
  }

  void AddVirtualPort(const std::string& name, const std::string& wwn) {
    m_Tree.Write(kHost0 + name + "/fc_vports/" + name + "/port_name", wwn + '\n');
  }

  std::string Lun(const std::string& lun) const {
    return kHost0 + "rport-0:0-1/target0:0:0/0:0:0:" + lun + '/';
  }
  ListAnswer<RM_NodeInfoEntry> Nodes() { return m_Host->Nodes(kPort); }

  Tree m_Tree{"pci-04-npiv-active"};
  const std::unique_ptr<Host> m_Host = provider::MakeSysfsHost(m_Tree.Root(), "tester");
};

TEST_F(Targets, RecordIsFilledWhole) {
  ASSERT_EQ(Nodes().records.size(), 1u);
  const RM_NodeInfoEntry node = Nodes().records[0];
  EXPECT_EQ(node.bindType, 0x1002u);
  EXPECT_STREQ(node.osDeviceName, "/dev/sda");
  EXPECT_EQ(node.fcAddressId, 0x010200u);
  EXPECT_EQ(provider::WwnFromBytes(node.nodeWwn), Name(0x1000525400fc0011));
  EXPECT_EQ(provider::WwnFromBytes(node.portWwn), Name(0x2000525400fc0011));
  EXPECT_EQ(node.fcpLun, 0u);
  EXPECT_STREQ(reinterpret_cast<const char*>(node.lunId), "naa.6001405fc0ffee000004000800000000");
  EXPECT_EQ(node.nodeState, std::uint32_t{RM_NODE_EXISTS} | RM_NODE_READY);
}

// A look asks twice for the targets of a port; what is asked outside of one is read.
TEST_F(Targets, AreReadOnceForALook) {
  const std::string late = "0x5000000000000077";
  m_Host->BeginLook();
  ASSERT_EQ(Nodes().records.size(), 1u);
  AddRemotePort("rport-0:0-9", late, "Online", "FCP Target", "9");
  EXPECT_EQ(Nodes().records.size(), 1u) << "as they were read";
  EXPECT_EQ(Nodes().records.size(), 2u) << "a third time nobody asks for the same reason";
  m_Host->EndLook();
  m_Tree.Remove(kHost0 + "rport-0:0-9");
  EXPECT_EQ(Nodes().records.size(), 1u);
}

// Names are read once for a look, and yet no port answers under another's name.
TEST_F(Targets, PortsThatSwapTheirNamesAreToldApart) {
  const provider::Wwn second = Name(0x2000525400fc0077);
  const std::string host7 = "devices/pci0000:00/0000:00:05.0/host7/";
  m_Tree.Write(host7 + "fc_host/host7/port_name", "0x2000525400fc0077\n");
  m_Tree.Link(host7 + "fc_host/host7/device", "../../../host7");
  m_Tree.Link("class/fc_host/host7", "../../" + host7 + "fc_host/host7");
  ASSERT_EQ(m_Host->BoardInstances().status, RM_STATUS_OK);
  EXPECT_EQ(Nodes().records.size(), 1u);
  EXPECT_EQ(m_Host->Nodes(second).records.size(), 0u);
  m_Tree.Write(kFcHost0 + "port_name", "0x2000525400fc0077\n");
  m_Tree.Write(host7 + "fc_host/host7/port_name", "0x2000525400fc0010\n");
  EXPECT_EQ(Nodes().records.size(), 0u);
  EXPECT_EQ(m_Host->Nodes(second).records.size(), 1u);
}

TEST_F(Targets, EachLunHasItsRecordInOrder) {
  m_Tree.MakeFolder(Lun("16385"));
  m_Tree.MakeFolder(Lun("4294967297"));
  m_Tree.Write(Lun("10") + "wwid", "");
  m_Tree.MakeFolder(Lun("10") + "scsi_generic/sg7");
  m_Tree.Write(Lun("2") + "wwid", std::string(600, 'w'));
  m_Tree.MakeFolder(Lun("2") + "block/" + std::string(255, 'b'));
  m_Tree.MakeFolder(kHost0 + "rport-0:0-1/target0:0:0/0:0:1:0");
  m_Tree.MakeFolder(kHost0 + "rport-0:0-1/target0:0:0/0:0:0:007");
  const std::vector<RM_NodeInfoEntry> nodes = Nodes().records;
  ASSERT_EQ(nodes.size(), 5u);
  EXPECT_EQ(nodes[0].lun, 0u);
  EXPECT_EQ(nodes[1].lun, 2u);
  EXPECT_EQ(nodes[1].fcpLun, 0x0002000000000000u);
  EXPECT_EQ(std::string(nodes[1].osDeviceName, 256), "/dev/" + std::string(251, 'b'));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(nodes[1].lunId), 256), std::string(256, 'w'));
  EXPECT_EQ(nodes[2].lun, 10u);
  EXPECT_STREQ(nodes[2].osDeviceName, "/dev/sg7");
  EXPECT_EQ(nodes[2].lunId[0], 0u);
  EXPECT_EQ(nodes[3].lun, 16385u);
  EXPECT_EQ(nodes[3].fcpLun, 0x4001000000000000u);
  EXPECT_STREQ(nodes[3].osDeviceName, "");
  // A LUN of more than 32 bits has only its eight-byte form.
  EXPECT_EQ(nodes[4].lun, 0xFFFFFFFFu);
  EXPECT_EQ(nodes[4].fcpLun, 0x0001000000010000u);
}

TEST_F(Targets, OnlyScsiTargetsThatAreThereAreListed) {
  AddRemotePort("rport-0:0-10", "0x5000000000000010", "Online", "FCP Target", "3");
  AddRemotePort("rport-0:0-11", "0x5000000000000011", "Marginal", "FCP Target, NVMe Target", "2");
  AddRemotePort("rport-0:1-12", "0x5000000000000012", "Offline", "FCP Initiator, FCP Target", "1");
  AddRemotePort("rport-0:0-13", "0x5000000000000013", "Online", "NVMe Target", "-1");
  AddRemotePort("rport-0:0-14", "0x5000000000000014", "Not Present", "FCP Target", "4");
  AddRemotePort("rport-0:0-15", "0x5000000000000015", "Deleted", "FCP Target", "5");
  AddRemotePort("rport-0:0-16", "0x0", "Online", "FCP Target", "6");
  AddRemotePort("rport-0:0-17", "0x5000000000000017", "Online", "FCP Target", "-1");
  AddRemotePort("rport-9:0-18", "0x5000000000000018", "Online", "FCP Target", "7");
  EXPECT_EQ(DescribeNodes(Nodes()),
            "  node 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sda ready\n"
            "  node 0:2:0 50:00:00:00:00:00:00:11 0x10300 ready\n"
            "  node 0:3:0 50:00:00:00:00:00:00:10 0x10300 ready\n"
            "  node 1:1:0 50:00:00:00:00:00:00:12 0x10300 not ready\n");
}

TEST_F(Targets, ATargetThatCameBackIsListedOnce) {
  AddRemotePort("rport-0:0-10", "0x5000000000000010", "Blocked", "FCP Target", "3");
  AddRemotePort("rport-0:0-11", "0x5000000000000010", "Online", "FCP Target", "4");
  AddRemotePort("rport-0:0-12", "0x5000000000000010", "Blocked", "FCP Target", "5");
  EXPECT_EQ(DescribeNodes(Nodes()),
            "  node 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sda ready\n"
            "  node 0:4:0 50:00:00:00:00:00:00:10 0x10300 ready\n");
}

TEST_F(Targets, BindTypes) {
  const std::pair<const char*, std::uint32_t> rows[] = {
      {"none\n", 0x1000}, {"port_id (FC Address)\n", 0x1001}, {"wwnn (World Wide Node Name)\n", 0x1004}};
  for (const auto& [text, type] : rows) {
    m_Tree.Write(kFcHost0 + "tgtid_bind_type", text);
    EXPECT_EQ(m_Host->BindType(kPort).value, type);
    EXPECT_EQ(Nodes().records.at(0).bindType, type);
  }
  m_Tree.Remove(kFcHost0 + "tgtid_bind_type");
  EXPECT_EQ(m_Host->BindType(kPort).status, RM_STATUS_NOT_SUPPORTED);
}

TEST_F(Targets, VirtualPortsAreListedOnceAndWithoutTheirHostToo) {
  AddVirtualPort("vport-0:0-3", "0x2200525400fc0010");
  AddVirtualPort("vport-0:0-4", "0x2200525400fc0010");
  AddVirtualPort("vport-1:0-5", "0x2300525400fc0010");
  const ListAnswer<RM_VPortEntry> ports = m_Host->VirtualPorts(kPort);
  ASSERT_EQ(ports.records.size(), 2u);
  EXPECT_EQ(provider::WwnFromBytes(ports.records[1].portWwn), Name(0x2200525400fc0010));
  EXPECT_EQ(provider::WwnFromBytes(ports.records[1].nodeWwn), provider::Wwn{});
  const ListAnswer<RM_VPortTargetEntry> targets = m_Host->VirtualPortTargets(kPort, Name(0x2200525400fc0010));
  EXPECT_EQ(targets.status, RM_STATUS_OK);
  EXPECT_TRUE(targets.records.empty());
}

}  // namespace sysfs_test

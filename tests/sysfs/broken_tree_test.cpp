// Trees that no healthy kernel shows: broken on purpose, changing under the reader, or read with too little.
#include <gmock/gmock.h>
#include <unistd.h>

#include "provider/sysfs/SysfsHost.h"
#include "tests/support/Testing.h"
#include "tests/sysfs/Describe.h"
#include "tests/sysfs/Tree.h"

namespace sysfs_test {

using provider::Host;
using provider::Wwn;

namespace {

const Wwn kBoard0 = Name(0x2000525400fc0010);
const Wwn kBoard1 = Name(0x2000525400fc0011);

const std::pair<const char*, std::function<void(Tree&, const std::string&)>> kBreakages[] = {
    {"removed", [](Tree& tree, const std::string& path) { tree.Remove(path); }},
    {"empty", [](Tree& tree, const std::string& path) { tree.Write(path, ""); }},
    {"newline", [](Tree& tree, const std::string& path) { tree.Write(path, "\n"); }},
    {"zeros", [](Tree& tree, const std::string& path) { tree.Write(path, std::string(64, '\0')); }},
    {"garbage", [](Tree& tree, const std::string& path) { tree.Write(path, "\xFF\x01%s%n\x7F-1\n\n"); }},
    {"huge", [](Tree& tree, const std::string& path) { tree.Write(path, std::string(1 << 20, '9')); }},
    {"folder", [](Tree& tree, const std::string& path) { tree.MakeFolder(path); }},
    {"pipe", [](Tree& tree, const std::string& path) { tree.MakePipe(path); }},
    {"dangling", [](Tree& tree, const std::string& path) { tree.Link(path, "nowhere/at/all"); }},
    {"loop", [](Tree& tree, const std::string& path) { tree.Link(path, "."); }},
    {"itself", [](Tree& tree, const std::string& path) {
       tree.Link(path, std::filesystem::path(path).filename().string());
     }}};

// What is read for board 0 and what leads there: beginnings of paths and their ends.
const std::pair<std::string, std::vector<const char*>> kReadPaths[] = {
    {"class/fc_host/", {"host0"}},
    {kFcHost0, {"device", "port_name", "node_name", "fabric_name", "port_state", "model", "tgtid_bind_type"}},
    {kEth0, {"carrier", "dev_port"}},
    {"devices/pci0000:00/0000:00:03.0/0000:01:00.0/", {"vendor", "driver"}},
    {kHost0 + "scsi_host/host0", {"", "/proc_name"}},
    {kHost0 + "rport-0:0-1/fc_remote_ports/rport-0:0-1", {"", "/port_name", "/port_state", "/scsi_target_id"}},
    {kHost0 + "rport-0:0-1/target0:0:0", {"", "/0:0:0:0", "/0:0:0:0/block", "/0:0:0:0/wwid"}},
    {kHost0,
     {"rport-0:0-1", "vport-0:0-0", "vport-0:0-0/fc_vports/vport-0:0-0/port_name", "vport-0:0-0/host2"}},
};

// Asks everything, and fails the test on a status that no caller expects.
void AskEverything(Host& host, const Wwn& wwn) {
  std::set<int> statuses = StatusesOf(host, wwn);
  const provider::ListAnswer<unsigned int> boards = host.BoardInstances();
  statuses.insert(boards.status);
  for (const unsigned int instance : boards.records) statuses.insert(host.ReadBoard(instance).status);
  host.HasPort(wwn);
  host.IsMakersPort(wwn);
  EXPECT_THAT(statuses, testing::Each(testing::AnyOf(RM_STATUS_OK, RM_STATUS_NOT_SUPPORTED, RM_STATUS_LOCKED,
                                                     RM_STATUS_NOT_FOUND)));
}

}  // namespace

class Broken : public testing::Test {
 protected:
  Tree m_Tree{"pci-04-npiv-active"};
  const std::unique_ptr<Host> m_Host = provider::MakeSysfsHost(m_Tree.Root(), "tester");
};

// Whatever is wrong with one port: every call comes back with a status, and the other port is as it was.
TEST_F(Broken, AnyFileInAnyWay) {
  const std::string board1 = DescribeBoard(*m_Host, 1);
  const auto breakInAnyWay = [&](const std::string& path) {
    std::filesystem::rename(m_Tree.Path(path), m_Tree.Path("aside"));
    for (const auto& [name, apply] : kBreakages) {
      SCOPED_TRACE(path + ' ' + name);
      apply(m_Tree, path);
      AskEverything(*m_Host, kBoard0);
      EXPECT_EQ(DescribeBoard(*m_Host, 1), board1);
    }
    m_Tree.Remove(path);
    std::filesystem::rename(m_Tree.Path("aside"), m_Tree.Path(path));
  };
  for (const auto& [begin, ends] : kReadPaths) {
    for (const char* const end : ends) breakInAnyWay(begin + end);
  }
  EXPECT_EQ(m_Host->Nodes(kBoard0).records.size(), 1u);
}

TEST_F(Broken, NameThatCannotBeReadIsTryAgain) {
  m_Tree.Write(kFcHost0 + "port_name", "");
  EXPECT_EQ(m_Host->BoardInstances().records, (std::vector<unsigned int>{0, 1}));
  EXPECT_EQ(m_Host->ReadBoard(0).status, RM_STATUS_LOCKED);
  EXPECT_EQ(m_Host->Nodes(kBoard0).status, RM_STATUS_LOCKED);
  EXPECT_FALSE(m_Host->HasPort(kBoard0));
  EXPECT_EQ(m_Host->Nodes(kBoard1).status, RM_STATUS_OK);
}

TEST_F(Broken, PortWithoutANameIsNone) {
  for (const char* const name : {"0x0\n", "0xffffffffffffffff\n", "\n", "unknown\n"}) {
    m_Tree.Write(kFcHost0 + "port_name", name);
    EXPECT_EQ(m_Host->ReadBoard(0).status, RM_STATUS_NOT_FOUND);
    EXPECT_EQ(m_Host->Nodes(kBoard0).status, RM_STATUS_NOT_FOUND);
  }
}

TEST_F(Broken, VanishedPort) {
  m_Tree.Remove(kHost0);
  EXPECT_EQ(m_Host->BoardInstances().records, (std::vector<unsigned int>{1}));
  EXPECT_EQ(m_Host->ReadBoard(0).status, RM_STATUS_NOT_FOUND);
  EXPECT_EQ(m_Host->Nodes(kBoard0).status, RM_STATUS_NOT_FOUND);
  m_Tree.Remove("class/fc_host");
  EXPECT_EQ(m_Host->BoardInstances().status, RM_STATUS_OK);
  EXPECT_TRUE(m_Host->BoardInstances().records.empty());
  m_Tree.RemoveAll();
  EXPECT_EQ(m_Host->Nodes(kBoard1).status, RM_STATUS_NOT_FOUND);
}

TEST(BrokenRoot, ThatIsNotThere) {
  for (const char* const root : {"/nonexistent/sys", "/dev/null", ""}) {
    const std::unique_ptr<Host> host = provider::MakeSysfsHost(root, "tester");
    EXPECT_EQ(host->BoardInstances().status, RM_STATUS_NOT_FOUND) << root;
    AskEverything(*host, kBoard0);
  }
}

// A port that comes and goes is either whole or not there.
TEST_F(Broken, PortThatComesAndGoesWhileItIsRead) {
  const std::string nodes = DescribeNodes(m_Host->Nodes(kBoard0));
  std::atomic<bool> done = false;
  std::thread kernel([this, &done]() {
    const std::filesystem::path there = m_Tree.Path(kEth0 + "ctlr_0/host0");
    const std::filesystem::path gone = m_Tree.Path(kEth0 + "ctlr_0/gone");
    while (!done) {
      std::filesystem::rename(there, gone);
      std::this_thread::yield();
      std::filesystem::rename(gone, there);
      std::this_thread::yield();
    }
  });
  for (int i = 0; i < 300; ++i) {
    const provider::ListAnswer<RM_NodeInfoEntry> answer = m_Host->Nodes(kBoard0);
    EXPECT_EQ(DescribeNodes(answer), answer.status == RM_STATUS_OK ? nodes : "  nodes status 192\n");
    const provider::Answer<provider::Board> board = m_Host->ReadBoard(0);
    if (board.status == RM_STATUS_NOT_FOUND) continue;
    EXPECT_EQ(board.status, RM_STATUS_OK);
    EXPECT_EQ(board.value.linkStatus, 0x101u);
    EXPECT_EQ(board.value.info.busNumber, 1u);
  }
  done = true;
  kernel.join();
}

}  // namespace sysfs_test

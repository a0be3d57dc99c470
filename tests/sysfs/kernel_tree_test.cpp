// What a running kernel showed, state by state.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <thread>

#include "provider/sysfs/SysfsHost.h"
#include "tests/sysfs/Describe.h"
#include "tests/sysfs/Tree.h"

namespace sysfs_test {

struct State {
  const char* tree;
  const char* description;
};

void PrintTo(const State& state, std::ostream* stream) {
  *stream << state.tree;
}

std::string TestName(const testing::TestParamInfo<State>& info) {
  std::string name = info.param.tree;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

class KernelTree : public testing::TestWithParam<State> {};

TEST_P(KernelTree, ShowsBoardsTargetsAndVirtualPorts) {
  const Tree tree(GetParam().tree);
  const std::unique_ptr<provider::Host> host = provider::MakeSysfsHost(tree.Root(), "tester");
  EXPECT_EQ(Describe(*host), std::string("boards 0\n") + GetParam().description);
}

// Link words: the network device's link, above it the FC login.
constexpr State kStates[] = {
    {"pci-00-nics", ""},
    {"iscsi-01-logged-in", ""},
    {"pci-01-fcoe-created",
     "board 0 20:00:52:54:00:fc:00:10 link 0x201 fabric 00:00:00:00:00:00:00:00\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x201 fabric 00:00:00:00:00:00:00:00\n"},
    {"pci-02-fabric-one-port-up",
     "board 0 20:00:52:54:00:fc:00:10 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x201 fabric 00:00:00:00:00:00:00:00\n"},
    // The ports see each other: port 1 is a target to port 0, port 0 only an initiator to port 1.
    {"pci-03-fabric-target-lun",
     "board 0 20:00:52:54:00:fc:00:10 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"
     "  node 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sda ready\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"},
    {"pci-04-npiv-active",
     "board 0 20:00:52:54:00:fc:00:10 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"
     "  node 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sda ready\n"
     "  vport 21:00:52:54:00:fc:00:10 node 10:00:52:54:00:fc:00:10\n"
     "    target 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sdb\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"},
    {"pci-07-target-port-linkdown-rscn",
     "board 0 20:00:52:54:00:fc:00:10 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"
     "  node 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sda not ready\n"
     "  vport 21:00:52:54:00:fc:00:10 node 10:00:52:54:00:fc:00:10\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x202 fabric 00:00:00:00:00:00:00:00\n"},
    {"pci-08-target-port-devloss",
     "board 0 20:00:52:54:00:fc:00:10 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"
     "  vport 21:00:52:54:00:fc:00:10 node 10:00:52:54:00:fc:00:10\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x202 fabric 00:00:00:00:00:00:00:00\n"},
    {"pci-10-initiator-port-linkdown",
     "board 0 20:00:52:54:00:fc:00:10 link 0x202 fabric 00:00:00:00:00:00:00:00\n"
     "  node 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sdb not ready\n"
     "  vport 21:00:52:54:00:fc:00:10 node 10:00:52:54:00:fc:00:10\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"},
    {"pci-13-sriov",
     "board 0 20:00:52:54:00:fc:00:10 link 0x201 fabric 00:00:00:00:00:00:00:00\n"
     "  node 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sdb not ready\n"
     "  vport 21:00:52:54:00:fc:00:10 node 10:00:52:54:00:fc:00:10\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x201 fabric 00:00:00:00:00:00:00:00\n"},
    {"veth-01-up",
     "board 0 20:00:02:00:00:00:0a:01 link 0x101 fabric 00:00:00:00:00:00:00:00\n"
     "board 1 20:00:02:00:00:00:0a:02 link 0x101 fabric 00:00:00:00:00:00:00:00\n"},
    {"veth-02-linkdown",
     "board 0 20:00:02:00:00:00:0a:01 link 0x202 fabric 00:00:00:00:00:00:00:00\n"
     "board 1 20:00:02:00:00:00:0a:02 link 0x202 fabric 00:00:00:00:00:00:00:00\n"},
    {"veth-07-target-lun",
     "board 0 20:00:02:00:00:00:0a:01 link 0x101 fabric 00:00:00:00:00:00:00:00\n"
     "  node 0:0:0 20:00:02:00:00:00:0a:02 0xa02 /dev/sda ready\n"
     "board 1 20:00:02:00:00:00:0a:02 link 0x101 fabric 00:00:00:00:00:00:00:00\n"},
    {"veth-09-target-devloss",
     "board 0 20:00:02:00:00:00:0a:01 link 0x202 fabric 00:00:00:00:00:00:00:00\n"
     "board 1 20:00:02:00:00:00:0a:02 link 0x202 fabric 00:00:00:00:00:00:00:00\n"},
};

INSTANTIATE_TEST_SUITE_P(States, KernelTree, testing::ValuesIn(kStates), TestName);

class KernelTreeQuestions : public testing::Test {
 protected:
  const Tree m_Tree{"pci-04-npiv-active"};
  const std::unique_ptr<provider::Host> m_Host = provider::MakeSysfsHost(m_Tree.Root(), "tester");
};

TEST_F(KernelTreeQuestions, KnowsItsOwnPorts) {
  const provider::Wwn board = Name(0x2000525400fc0011);
  const provider::Wwn virtualPort = Name(0x2100525400fc0010);
  const provider::Wwn directoryServer = Name(0x1000aabbcddd00fd);
  EXPECT_TRUE(m_Host->HasPort(board));
  EXPECT_FALSE(m_Host->HasPort(virtualPort));
  EXPECT_FALSE(m_Host->HasPort(directoryServer));
  EXPECT_TRUE(m_Host->IsMakersPort(board));
  EXPECT_TRUE(m_Host->IsMakersPort(virtualPort));
  EXPECT_FALSE(m_Host->IsMakersPort(directoryServer));
}

TEST_F(KernelTreeQuestions, AnswersTheRestOfAPort) {
  const provider::Wwn board = Name(0x2000525400fc0010);
  EXPECT_EQ(m_Host->BindType(board).status, RM_STATUS_OK);
  EXPECT_EQ(m_Host->BindType(board).value, 0x1002u);
  EXPECT_EQ(m_Host->DriverType(board).status, RM_STATUS_OK);
  EXPECT_EQ(m_Host->DriverType(board).value, 0u);
  EXPECT_EQ(m_Host->VirtualFunctions(board).status, RM_STATUS_OK);
  EXPECT_TRUE(m_Host->VirtualFunctions(board).records.empty());
  EXPECT_EQ(m_Host->HbaAttributes(board).status, RM_STATUS_NOT_SUPPORTED);
  EXPECT_EQ(m_Host->InitiatorProperties(board).status, RM_STATUS_NOT_SUPPORTED);
  EXPECT_EQ(m_Host->IscsiTargets(board, true).status, RM_STATUS_NOT_SUPPORTED);
  EXPECT_FALSE(m_Host->SecureManagement().value);
  EXPECT_EQ(m_Host->VirtualPortTargets(board, Name(0x2100525400fc00ff)).status, RM_STATUS_NOT_FOUND);
}

// A virtual port is no port of its own: its name is as unknown as a foreign one.
TEST_F(KernelTreeQuestions, KnowsNothingOfOtherNames) {
  for (const unsigned int instance : {2u, 3u}) {
    EXPECT_EQ(m_Host->ReadBoard(instance).status, RM_STATUS_NOT_FOUND);
  }
  const provider::Wwn virtualPort = Name(0x2100525400fc0010);
  for (const provider::Wwn& name : {virtualPort, Name(1), Name(0)}) {
    EXPECT_EQ(StatusesOf(*m_Host, name), std::set<int>{RM_STATUS_NOT_FOUND});
    EXPECT_EQ(m_Host->VirtualPortTargets(name, virtualPort).status, RM_STATUS_NOT_FOUND);
  }
}

TEST_F(KernelTreeQuestions, AnswersSeveralCallersAtOnce) {
  const std::string alone = Describe(*m_Host);
  std::array<std::thread, 4> callers;
  for (std::thread& caller : callers) {
    caller = std::thread([&] {
      for (int round = 0; round < 5; ++round) EXPECT_EQ(Describe(*m_Host), alone);
    });
  }
  for (std::thread& caller : callers) caller.join();
}

}  // namespace sysfs_test

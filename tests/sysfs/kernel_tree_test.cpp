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
  EXPECT_EQ(Describe(*host), GetParam().description);
}

// Link words: the network device's link, above it the FC login.
constexpr State kStates[] = {
    {"pci-00-nics", "boards 0\n"},
    {"iscsi-01-logged-in", "boards 0\n"},
    {"pci-01-fcoe-created",
     "boards 0\n"
     "board 0 20:00:52:54:00:fc:00:10 link 0x201 fabric 00:00:00:00:00:00:00:00\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x201 fabric 00:00:00:00:00:00:00:00\n"},
    {"pci-02-fabric-one-port-up",
     "boards 0\n"
     "board 0 20:00:52:54:00:fc:00:10 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x201 fabric 00:00:00:00:00:00:00:00\n"},
    // The ports see each other: port 1 is a target to port 0, port 0 only an initiator to port 1.
    {"pci-03-fabric-target-lun",
     "boards 0\n"
     "board 0 20:00:52:54:00:fc:00:10 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"
     "  node 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sda ready\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"},
    {"pci-04-npiv-active",
     "boards 0\n"
     "board 0 20:00:52:54:00:fc:00:10 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"
     "  node 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sda ready\n"
     "  vport 21:00:52:54:00:fc:00:10 node 10:00:52:54:00:fc:00:10\n"
     "    target 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sdb\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"},
    {"pci-07-target-port-linkdown-rscn",
     "boards 0\n"
     "board 0 20:00:52:54:00:fc:00:10 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"
     "  node 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sda not ready\n"
     "  vport 21:00:52:54:00:fc:00:10 node 10:00:52:54:00:fc:00:10\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x202 fabric 00:00:00:00:00:00:00:00\n"},
    {"pci-08-target-port-devloss",
     "boards 0\n"
     "board 0 20:00:52:54:00:fc:00:10 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"
     "  vport 21:00:52:54:00:fc:00:10 node 10:00:52:54:00:fc:00:10\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x202 fabric 00:00:00:00:00:00:00:00\n"},
    {"pci-10-initiator-port-linkdown",
     "boards 0\n"
     "board 0 20:00:52:54:00:fc:00:10 link 0x202 fabric 00:00:00:00:00:00:00:00\n"
     "  node 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sdb not ready\n"
     "  vport 21:00:52:54:00:fc:00:10 node 10:00:52:54:00:fc:00:10\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x101 fabric 10:00:aa:bb:cc:dd:00:00\n"},
    {"pci-13-sriov",
     "boards 0\n"
     "board 0 20:00:52:54:00:fc:00:10 link 0x201 fabric 00:00:00:00:00:00:00:00\n"
     "  node 0:0:0 20:00:52:54:00:fc:00:11 0x10200 /dev/sdb not ready\n"
     "  vport 21:00:52:54:00:fc:00:10 node 10:00:52:54:00:fc:00:10\n"
     "board 1 20:00:52:54:00:fc:00:11 link 0x201 fabric 00:00:00:00:00:00:00:00\n"},
    {"veth-01-up",
     "boards 0\n"
     "board 0 20:00:02:00:00:00:0a:01 link 0x101 fabric 00:00:00:00:00:00:00:00\n"
     "board 1 20:00:02:00:00:00:0a:02 link 0x101 fabric 00:00:00:00:00:00:00:00\n"},
    {"veth-02-linkdown",
     "boards 0\n"
     "board 0 20:00:02:00:00:00:0a:01 link 0x202 fabric 00:00:00:00:00:00:00:00\n"
     "board 1 20:00:02:00:00:00:0a:02 link 0x202 fabric 00:00:00:00:00:00:00:00\n"},
    {"veth-07-target-lun",
     "boards 0\n"
     "board 0 20:00:02:00:00:00:0a:01 link 0x101 fabric 00:00:00:00:00:00:00:00\n"
     "  node 0:0:0 20:00:02:00:00:00:0a:02 0xa02 /dev/sda ready\n"
     "board 1 20:00:02:00:00:00:0a:02 link 0x101 fabric 00:00:00:00:00:00:00:00\n"},
    {"veth-09-target-devloss",
     "boards 0\n"
     "board 0 20:00:02:00:00:00:0a:01 link 0x202 fabric 00:00:00:00:00:00:00:00\n"
     "board 1 20:00:02:00:00:00:0a:02 link 0x202 fabric 00:00:00:00:00:00:00:00\n"},
};

INSTANTIATE_TEST_SUITE_P(States, KernelTree, testing::ValuesIn(kStates), TestName);

TEST(KernelTreeQuestions, KnowsItsOwnPorts) {
  const Tree tree("pci-04-npiv-active");
  const std::unique_ptr<provider::Host> host = provider::MakeSysfsHost(tree.Root(), "tester");
  const provider::Wwn board = Name(0x2000525400fc0011);
  const provider::Wwn virtualPort = Name(0x2100525400fc0010);
  const provider::Wwn directoryServer = Name(0x1000aabbcddd00fd);
  EXPECT_TRUE(host->HasPort(board));
  EXPECT_FALSE(host->HasPort(virtualPort));
  EXPECT_FALSE(host->HasPort(directoryServer));
  EXPECT_TRUE(host->IsMakersPort(board));
  EXPECT_TRUE(host->IsMakersPort(virtualPort));
  EXPECT_FALSE(host->IsMakersPort(directoryServer));
}

TEST(KernelTreeQuestions, AnswersTheRestOfAPort) {
  const Tree tree("pci-04-npiv-active");
  const std::unique_ptr<provider::Host> host = provider::MakeSysfsHost(tree.Root(), "tester");
  const provider::Wwn board = Name(0x2000525400fc0010);
  EXPECT_EQ(host->BindType(board).status, RM_STATUS_OK);
  EXPECT_EQ(host->BindType(board).value, 0x1002u);
  EXPECT_EQ(host->DriverType(board).status, RM_STATUS_OK);
  EXPECT_EQ(host->DriverType(board).value, 0u);
  EXPECT_EQ(host->VirtualFunctions(board).status, RM_STATUS_OK);
  EXPECT_TRUE(host->VirtualFunctions(board).records.empty());
  EXPECT_EQ(host->HbaAttributes(board).status, RM_STATUS_NOT_SUPPORTED);
  EXPECT_EQ(host->InitiatorProperties(board).status, RM_STATUS_NOT_SUPPORTED);
  EXPECT_EQ(host->IscsiTargets(board, true).status, RM_STATUS_NOT_SUPPORTED);
  EXPECT_FALSE(host->SecureManagement().value);
  EXPECT_EQ(host->VirtualPortTargets(board, Name(0x2100525400fc00ff)).status, RM_STATUS_NOT_FOUND);
}

// A virtual port is no port of its own: its name is as unknown as a foreign one.
TEST(KernelTreeQuestions, KnowsNothingOfOtherNames) {
  const Tree tree("pci-04-npiv-active");
  const std::unique_ptr<provider::Host> host = provider::MakeSysfsHost(tree.Root(), "tester");
  EXPECT_EQ(host->ReadBoard(2).status, RM_STATUS_NOT_FOUND);
  EXPECT_EQ(host->ReadBoard(3).status, RM_STATUS_NOT_FOUND);
  for (const std::uint64_t number : {std::uint64_t{0x2100525400fc0010}, std::uint64_t{0x1}, std::uint64_t{0}}) {
    const provider::Wwn name = Name(number);
    EXPECT_EQ(host->DiscoveryAttributes(name).status, RM_STATUS_NOT_FOUND);
    EXPECT_EQ(host->HbaAttributes(name).status, RM_STATUS_NOT_FOUND);
    EXPECT_EQ(host->PortAttributes(name).status, RM_STATUS_NOT_FOUND);
    EXPECT_EQ(host->ServerAttributes(name).status, RM_STATUS_NOT_FOUND);
    EXPECT_EQ(host->DriverType(name).status, RM_STATUS_NOT_FOUND);
    EXPECT_EQ(host->BindType(name).status, RM_STATUS_NOT_FOUND);
    EXPECT_EQ(host->InitiatorProperties(name).status, RM_STATUS_NOT_FOUND);
    EXPECT_EQ(host->Nodes(name).status, RM_STATUS_NOT_FOUND);
    EXPECT_EQ(host->VirtualPorts(name).status, RM_STATUS_NOT_FOUND);
    EXPECT_EQ(host->VirtualPortTargets(name, Name(0x2100525400fc0010)).status, RM_STATUS_NOT_FOUND);
    EXPECT_EQ(host->IscsiTargets(name, false).status, RM_STATUS_NOT_FOUND);
    EXPECT_EQ(host->VirtualFunctions(name).status, RM_STATUS_NOT_FOUND);
  }
}

TEST(KernelTreeQuestions, AnswersSeveralCallersAtOnce) {
  const Tree tree("pci-04-npiv-active");
  const std::unique_ptr<provider::Host> host = provider::MakeSysfsHost(tree.Root(), "tester");
  const std::string alone = Describe(*host);
  const auto ask = [&host, &alone]() {
    for (int round = 0; round < 5; ++round) EXPECT_EQ(Describe(*host), alone);
  };
  std::array<std::thread, 4> callers;
  for (std::thread& caller : callers) caller = std::thread(ask);
  for (std::thread& caller : callers) caller.join();
}

}  // namespace sysfs_test

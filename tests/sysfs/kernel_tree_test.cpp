// What a running kernel showed, state by state.

#include "provider/sysfs/SysfsHost.h"
#include "tests/support/Files.h"
#include "tests/support/Testing.h"
#include "tests/sysfs/Describe.h"
#include "tests/sysfs/Tree.h"

namespace sysfs_test {

// What is beside a tree as text. Link words: the network device's link, above it the FC login. The ports of
// pci-03 and later see each other: port 1 is a target to port 0, port 0 only an initiator to port 1.
TEST(KernelTree, ShowsBoardsTargetsAndVirtualPorts) {
  int trees = 0;
  for (const auto& file : std::filesystem::directory_iterator(SYSFS_TREES)) {
    if (file.path().extension() != ".txt") continue;
    SCOPED_TRACE(file.path().stem());
    const Tree tree(file.path().stem());
    EXPECT_EQ(Describe(*provider::MakeSysfsHost(tree.Root(), "tester")), ReadFile(file.path()));
    ++trees;
  }
  EXPECT_EQ(trees, 14);
}

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

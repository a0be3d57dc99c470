// The walk over the ports: its lock, what per-port queries see meanwhile, and what it bears.

#include "tests/support/Testing.h"
#include "tests/system/Fabric.h"

namespace systemtest {
namespace {

constexpr unsigned int kLong = 3600;
const char* const kPorts[] = {"1000000000000001", "1000000000000002", "1000000000000003"};

std::vector<json> ThreeBoards() {
  std::vector<json> boards;
  for (const char* port : kPorts) {
    boards.push_back(FcBoard(port));
    boards.back()["targets"] = {{{"wwpn", "5000000000000001"}, {"count", 8}}};
  }
  return boards;
}

class WalkOverPorts : public testing::Test {
 protected:
  void Start() {
    m_Library.Start(kLong);
    ASSERT_EQ(m_CallBacks.Await(1).size(), 1u);
  }

  Log m_Log;
  Fabric m_Fabric{ThreeBoards()};
  Library m_Library{m_Fabric.Path()};
  CallBacks m_CallBacks{m_Library, HBADISC_EVENT_FORCED};
};

TEST_F(WalkOverPorts, OtherThreadsWaitForTheEndOfAWalk) {
  Start();
  hba_discovery_info record;
  ASSERT_EQ(m_Library.GetFirstHba(&record), 3);
  std::atomic<bool> entered{false};
  std::atomic<int> found{0};
  std::jthread other([&] {
    hba_discovery_info theirs;
    entered = true;
    found = m_Library.GetFirstHba(&theirs);
    while (m_Library.GetNextHba(&theirs) != 0) {
    }
  });
  ASSERT_TRUE(Eventually([&] { return entered.load(); }));
  EXPECT_EQ(m_Library.GetNextHba(&record), 1);
  EXPECT_EQ(m_Library.GetNextHba(&record), 1);
  EXPECT_EQ(found, 0);
  EXPECT_EQ(m_Library.GetNextHba(&record), 0);
  EXPECT_TRUE(Eventually([&] { return found == 3; }));
}

TEST_F(WalkOverPorts, AnotherThreadMayFinishAWalkButNotDisturbOne) {
  Start();
  hba_discovery_info record;
  std::jthread([&] {
    hba_discovery_info theirs;
    EXPECT_EQ(m_Library.GetNextHba(&theirs), 0);  // no walk anywhere
    EXPECT_EQ(m_Library.GetFirstHba(&theirs), 3);
  }).join();
  EXPECT_EQ(m_Library.GetNextHba(&record), 1);
  EXPECT_EQ(m_Library.GetNextHba(&record), 1);
  EXPECT_EQ(m_Library.GetNextHba(&record), 0);
  EXPECT_EQ(m_Library.GetFirstHba(&record), 3);  // the lock is free: the walker itself has gone
  EXPECT_EQ(m_Library.GetFirstHba(&record), 3);  // and a walk starts over on its own thread
  while (m_Library.GetNextHba(&record) != 0) {
  }
}

TEST_F(WalkOverPorts, QueriesSeeTheCursorsPortDuringAWalk) {
  Start();
  hba_discovery_info record;
  unsigned int count = 77;
  ASSERT_EQ(m_Library.GetFirstHba(&record), 3);
  EXPECT_EQ(m_Library.GetTargetMappings(Name(kPorts[0]), nullptr, &(count = 0)), 8);
  count = 77;
  RM_NodeInfoEntry target;
  EXPECT_EQ(m_Library.GetTargetMappings(Name(kPorts[1]), &target, &count), 0);
  EXPECT_EQ(count, 77u);
  discovery_vf_addrs functions{0};
  EXPECT_EQ(m_Library.GetVirtualFunctionAddrs(Name(kPorts[1]), &functions), 2);
  while (m_Library.GetNextHba(&record) != 0) {
  }
  EXPECT_EQ(m_Library.GetTargetMappings(Name(kPorts[1]), nullptr, &(count = 0)), 8);
}

// A query keeps the snapshot that it took, until the next walk or what looks like the end of one.
TEST_F(WalkOverPorts, QueriesAnswerFromTheSnapshotTheyTook) {
  Start();
  unsigned int count = 0;
  EXPECT_EQ(m_Library.GetTargetMappings(Name(kPorts[0]), nullptr, &count), 8);
  m_Fabric.Board(0)["targets"][0]["count"] = 2;
  ASSERT_TRUE(m_Fabric.Replace(m_Library));
  ASSERT_EQ(m_Library.StartDiscoveryCycle(), 1);
  ASSERT_EQ(m_CallBacks.Await(2).size(), 2u);
  EXPECT_EQ(m_Library.GetTargetMappings(Name(kPorts[0]), nullptr, &count), 8);
  hba_discovery_info record;
  EXPECT_EQ(m_Library.GetNextHba(&record), 0);
  EXPECT_EQ(m_Library.GetTargetMappings(Name(kPorts[0]), nullptr, &count), 2);
}

TEST_F(WalkOverPorts, NothingBeforeStartAndAfterTerminate) {
  const auto expectNothing = [&] {
    hba_discovery_info record;
    EXPECT_EQ(m_Library.GetFirstHba(&record), 0);
    EXPECT_EQ(m_Library.GetNextHba(&record), 0);
    unsigned int count = 5;
    RM_NodeInfoEntry targets[5];
    EXPECT_EQ(m_Library.GetTargetMappings(Name(kPorts[0]), targets, &count), 0);
    EXPECT_EQ(count, 0u);
    discovery_vf_addrs functions{0};
    EXPECT_EQ(m_Library.GetVirtualFunctionAddrs(Name(kPorts[0]), &functions), 2);
    discovery_iscsi_names names;
    EXPECT_EQ(m_Library.GetiSCSINames(Name(kPorts[0]), &names), 0);
  };
  expectNothing();
  Start();
  hba_discovery_info record;
  ASSERT_EQ(m_Library.GetFirstHba(&record), 3);
  m_Library.Terminate();
  EXPECT_EQ(m_Library.GetNextHba(&record), 0);  // the walk ends and opens the lock
  expectNothing();
}

TEST_F(WalkOverPorts, NullPointersTouchNothing) {
  Start();
  EXPECT_EQ(m_Library.GetFirstHba(nullptr), 0);
  EXPECT_EQ(m_Library.GetFirstHbaV2(nullptr), 0);
  EXPECT_EQ(m_Library.GetFirstHbaV3(nullptr), 0);
  EXPECT_EQ(m_Library.GetNextHba(nullptr), 0);
  EXPECT_EQ(m_Library.GetFirstSystem(nullptr), 0);
  EXPECT_EQ(m_Library.GetNextSystem(nullptr), 0);
  unsigned int count = 9;
  EXPECT_EQ(m_Library.GetTargetMappings(Name(kPorts[0]), nullptr, nullptr), 0);
  EXPECT_EQ(m_Library.GetTargetMappings(Name(kPorts[0]), nullptr, &count), 0);
  EXPECT_EQ(m_Library.GetVPorts(Name(kPorts[0]), nullptr, &count), 0);
  EXPECT_EQ(m_Library.GetVPortTargets(Name(kPorts[0]), Name(kPorts[0]), nullptr, nullptr), 0);
  EXPECT_EQ(count, 9u);
  EXPECT_EQ(m_Library.GetVirtualFunctionAddrs(Name(kPorts[0]), nullptr), 2);
  EXPECT_EQ(m_Library.GetiSCSINames(Name(kPorts[0]), nullptr), 0);
  // In a walk a null record is its end.
  hba_discovery_info record;
  ASSERT_EQ(m_Library.GetFirstHba(&record), 3);
  EXPECT_EQ(m_Library.GetNextHba(nullptr), 0);
  std::jthread([&] { EXPECT_EQ(m_Library.Ports().size(), 3u); }).join();
}

}  // namespace
}  // namespace systemtest

// One port read again on request, and what a port that never answers costs the others.
#include <gmock/gmock.h>

#include "tests/support/Testing.h"
#include "tests/system/Fabric.h"

namespace systemtest {
namespace {

using Clock = std::chrono::steady_clock;
using testing::ElementsAre;

constexpr unsigned int kLong = 3600;
constexpr char kFirst[] = "1000000000000001";
constexpr char kSecond[] = "1000000000000002";
constexpr char kDone[] = "-- Directed Discovery Done --";
constexpr unsigned int kAll = 0;

json Target(const std::string& wwpn) {
  return {{"wwpn", wwpn}};
}

class DirectedRefresh : public testing::Test {
 protected:
  void Start(unsigned int eventMask = HBADISC_EVENT_DIRECTED | HBADISC_EVENT_FORCED) {
    m_Library = std::make_unique<Library>(m_Fabric.Path());
    m_CallBacks = std::make_unique<CallBacks>(*m_Library, eventMask);
    m_Library->Start(kLong);
    ASSERT_TRUE(Eventually([&] { return m_Log.Has("** DISCOVERY CYCLE DONE"); }));
    m_Before = m_CallBacks->Reasons().size();
  }
  // The reason of the callback after a refresh that is accepted.
  unsigned int Refresh(unsigned int what) {
    EXPECT_EQ(m_Library->DirectedDiscoveryUpdate(Name(kFirst), what), 1);
    const auto reasons = m_CallBacks->Await(++m_Before);
    EXPECT_TRUE(AwaitIdle());
    return reasons.size() == m_Before ? reasons.back() : 0;
  }
  bool AwaitIdle(std::size_t done = 1) {
    m_Done += done;
    return Eventually([&] { return m_Log.Count(kDone) >= m_Done; });
  }
  std::size_t TargetCount(const std::string& wwpn) { return m_Library->Ports().at(wwpn).base.base.targetCount; }

  Log m_Log;
  Fabric m_Fabric{{FcBoard(kFirst), FcBoard(kSecond)}};
  std::unique_ptr<Library> m_Library;
  std::unique_ptr<CallBacks> m_CallBacks;
  std::size_t m_Before = 0;
  std::size_t m_Done = 0;
};

TEST_F(DirectedRefresh, ReadsAgainWhatIsAskedFor) {
  Start();
  const std::size_t targets = TargetCount(kFirst);
  for (json* board : {&m_Fabric.Board(0), &m_Fabric.Board(1)}) {
    (*board)["targets"].push_back(Target("50000000000000aa"));
    (*board)["link"] = "down";
  }
  ASSERT_TRUE(m_Fabric.Replace(*m_Library));

  EXPECT_EQ(Refresh(HBADISC_REFRESH_VPORTS), 8U) << "nothing of these has changed";
  EXPECT_EQ(TargetCount(kFirst), targets);
  EXPECT_EQ(Refresh(HBADISC_REFRESH_TARGETS), 12U);
  EXPECT_EQ(TargetCount(kFirst), targets + 1);
  EXPECT_EQ(TargetCount(kSecond), targets) << "no other port is read";
  EXPECT_EQ(m_Library->Ports().at(kFirst).base.base.linkStatus & 0xFF, 1U);
  EXPECT_EQ(Refresh(kAll), 12U);
  const auto port = m_Library->Ports().at(kFirst).base.base;
  EXPECT_EQ(port.linkStatus & 0xFF, 2U);
  EXPECT_NE(port.port.modelId & HBADISC_MODEL_REFRESHED, 0U);
  EXPECT_EQ(Refresh(kAll), 8U);
  EXPECT_EQ(Refresh(0x10), 8U) << "unknown bits read nothing, and are answered";
}

TEST_F(DirectedRefresh, RefusesWhatItCannotDo) {
  m_Fabric.AddFault({{"call", "RM_GetAllNodeInfo"}, {"port", kFirst}, {"delay_ms", 1500}, {"skip", 2}});
  m_Fabric.Write();
  const Library idle(m_Fabric.Path());
  EXPECT_EQ(idle.DirectedDiscoveryUpdate(Name(kFirst), kAll), 0) << "discovery is not started";
  Start();
  EXPECT_EQ(m_Library->DirectedDiscoveryUpdate(Name("10000000000000ff"), kAll), 0);
  EXPECT_TRUE(m_Log.Has("Directed Discovery error - did not find existing HBA entry"));
  EXPECT_TRUE(m_Log.Has("Directed Discovery not done"));
  EXPECT_EQ(m_Library->DirectedDiscoveryUpdate(Name(kFirst), HBADISC_REFRESH_TARGETS), 1);
  EXPECT_EQ(m_Library->DirectedDiscoveryUpdate(Name(kSecond), kAll), 0) << "busy";
  EXPECT_TRUE(AwaitIdle());
  EXPECT_EQ(m_Library->DirectedDiscoveryUpdate(Name(kSecond), kAll), 1);
  EXPECT_TRUE(AwaitIdle());
  m_Library->Terminate();
  EXPECT_EQ(m_Library->DirectedDiscoveryUpdate(Name(kFirst), kAll), 0);
}

TEST_F(DirectedRefresh, WaitsForACycleAndHoldsUpTheNext) {
  m_Fabric.AddFault({{"call", "RM_GetAllNodeInfo"}, {"port", kSecond}, {"delay_ms", 2000}, {"skip", 1}});
  m_Fabric.Write();
  m_Library = std::make_unique<Library>(m_Fabric.Path());
  m_CallBacks = std::make_unique<CallBacks>(*m_Library, HBADISC_EVENT_DIRECTED | HBADISC_EVENT_FORCED);
  m_Library->Start(kLong);
  ASSERT_TRUE(Eventually([&] { return m_Library->InDiscoveryCycle() != 0; }));
  m_CallBacks->Await(1);
  EXPECT_EQ(m_Library->StartDiscoveryCycle(), 1);
  ASSERT_TRUE(Eventually([&] { return m_Library->InDiscoveryCycle() != 0; }));
  EXPECT_EQ(m_Library->DirectedDiscoveryUpdate(Name(kSecond), HBADISC_REFRESH_TARGETS), 1);
  EXPECT_THAT(m_CallBacks->Await(3), ElementsAre(6, 2, 8)) << "the cycle first";
}

TEST_F(DirectedRefresh, CallbackMayRefreshForceAndEnumerate) {
  Start();
  std::atomic<int> accepted{0};
  m_CallBacks->Inside([&](unsigned int reason) {
    m_Library->Ports();
    if (reason == HBADISC_REASON_DIRECTED && accepted == 0) accepted = m_Library->StartDiscoveryCycle();
    m_Library->DirectedDiscoveryUpdate(Name(kFirst), kAll);
  });
  EXPECT_EQ(m_Library->DirectedDiscoveryUpdate(Name(kFirst), HBADISC_REFRESH_VPORTS), 1);
  EXPECT_GE(m_CallBacks->Await(m_Before + 2).size(), m_Before + 2);
  m_Library->Terminate();
  EXPECT_EQ(accepted, 1);
}

TEST_F(DirectedRefresh, BearsRequestsStartsAndCyclesAtOnce) {
  Start();
  m_Library->Startup(kLong);  // another directed thread
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < 30; ++i) {
        if (thread == 0) m_Library->StartDiscoveryCycle();
        m_Library->DirectedDiscoveryUpdate(Name(thread == 1 ? kFirst : kSecond), kAll);
        m_Library->Ports();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(AwaitIdle());
  EXPECT_EQ(m_Library->Ports().size(), 2U);
  m_Library->Terminate();
}

// Sixteen ports of which one's targets never come, also under the local target lock that the others need.
TEST(SickPort, OneOfSixteenDelaysNobody) {
  const Log log;
  std::vector<json> boards;
  for (int i = 0; i < 16; ++i) boards.push_back(FcBoard("10000000000000" + std::to_string(10 + i)));
  Fabric fabric(boards);
  fabric.AddFault({{"call", "RM_GetAllNodeInfo"}, {"port", "1000000000000013"}, {"skip", 1}, {"hang", true}});
  fabric.Write();
  const Library library(fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_EVERY_CYCLE);
  library.Start(kLong);
  EXPECT_THAT(callBacks.Await(1), ElementsAre(20));
  const Clock::time_point beforeWalk = Clock::now();
  EXPECT_EQ(library.Ports().size(), 16U);
  EXPECT_LT(Clock::now() - beforeWalk, std::chrono::seconds(8)) << "the walk waits for nobody";
  const Clock::time_point beforeStop = Clock::now();
  library.Terminate();
  // Ten seconds for the cycle, and the slices in which the threads look.
  EXPECT_LT(Clock::now() - beforeStop, std::chrono::seconds(14));
}

}  // namespace
}  // namespace systemtest

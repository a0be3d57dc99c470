// Starting, forcing, killing, pausing and stopping, from the application's threads and from inside its
// callback.

#include <gmock/gmock.h>

#include "tests/support/Testing.h"
#include "tests/system/Fabric.h"

namespace systemtest {
namespace {

using Clock = std::chrono::steady_clock;
using testing::Each;
using testing::ElementsAre;

constexpr unsigned int kLong = 3600;
constexpr char kFc[] = "1000000000000001";
constexpr char kDone[] = "** DISCOVERY CYCLE DONE";

class Control : public testing::Test {
 protected:
  // A worker that never comes back from its first target read; the enumeration's own read passes.
  void LetAWorkerHang() {
    m_Fabric.AddFault(
        {{"call", "RM_GetAllNodeInfo"}, {"port", kFc}, {"skip", 1}, {"times", 1}, {"hang", true}});
    m_Fabric.Write();
  }

  bool AwaitHangingWorker() {
    return Eventually([&] { return m_Log.Has("AddTargetInfo, last target count="); });
  }

  Log m_Log;
  Fabric m_Fabric{{FcBoard(kFc), FcBoard("1000000000000002")}};
};

TEST_F(Control, ForcedCycleIsStartedOnce) {
  Library library(m_Fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_EVERY_CYCLE);
  library.Start(kLong);
  callBacks.Await(1);
  EXPECT_EQ(library.StartDiscoveryCycle(), 1);
  EXPECT_EQ(library.StartDiscoveryCycle(), 0);
  EXPECT_TRUE(m_Log.Has("Already doing forced discovery cycle - not restarting"));
  EXPECT_THAT(callBacks.Await(2), ElementsAre(7, 3));
}

TEST_F(Control, IdleControllerBearsEveryCall) {
  Library library(m_Fabric.Path());
  library.KillDiscoveryCycle();
  library.PauseDiscovery();
  library.Terminate();
  library.ChangeDiscoveryInterval(10);
  library.ChangeOOBDiscoveryInterval(10);
  EXPECT_EQ(library.InDiscoveryCycle(), 0);
  EXPECT_EQ(library.StartDiscoveryCycle(), 1);
  EXPECT_TRUE(library.Ports().empty());
  EXPECT_FALSE(m_Log.Has("Terminating discovery"));
}

TEST_F(Control, IntervalsFromOneToFourSeconds) {
  Library library(m_Fabric.Path());
  library.Start(4);
  EXPECT_TRUE(m_Log.Has("In-band interval = 90 seconds\n"));
  library.ChangeDiscoveryInterval(3);
  EXPECT_FALSE(m_Log.Has("Change discovery interval"));
  library.ChangeDiscoveryInterval(0);
  EXPECT_TRUE(m_Log.Has("Change discovery interval to 0 seconds\n"));
  library.Terminate();
}

TEST_F(Control, IntervalStartsCyclesByItself) {
  Library library(m_Fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_EVERY_CYCLE);
  library.Start(5);
  EXPECT_THAT(callBacks.Await(3), ElementsAre(7, 1, 1));
}

TEST_F(Control, KilledCycleTellsNobodyAndMergesNothing) {
  LetAWorkerHang();
  Library library(m_Fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_EVERY_CYCLE);
  library.Start(kLong);
  ASSERT_TRUE(AwaitHangingWorker());
  library.KillDiscoveryCycle();
  EXPECT_EQ(library.InDiscoveryCycle(), 0);
  EXPECT_TRUE(m_Log.Has("Forced stop of discovery cycle"));
  EXPECT_TRUE(Eventually([&] { return m_Log.Has(kDone); }));
  EXPECT_TRUE(library.Ports().empty());
  EXPECT_TRUE(callBacks.Reasons().empty());
  // The kill is over. The next cycle has workers of its own, which wait for the hanging read for some seconds;
  // the ports come with the intermediate callback, or with the last one on a machine that is busy meanwhile.
  EXPECT_EQ(library.StartDiscoveryCycle(), 1);
  EXPECT_EQ(callBacks.Await(1).size(), 1u);
  EXPECT_EQ(library.Ports().size(), 2u);
}

TEST_F(Control, PauseEndsCyclesUntilOneIsForced) {
  Library library(m_Fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_EVERY_CYCLE);
  library.Start(5);
  ASSERT_TRUE(Eventually([&] { return m_Log.Has(kDone); }));
  library.PauseDiscovery();
  const std::size_t cycles = m_Log.Count(kDone);
  library.ChangeDiscoveryInterval(5);  // wakes the thread, which finds itself disabled
  // A paused controller cannot be terminated, and says nothing.
  library.Terminate();
  EXPECT_FALSE(m_Log.Has("Terminating discovery"));
  EXPECT_EQ(library.Ports().size(), 2u);
  const auto reasons = callBacks.Reasons();
  EXPECT_EQ(callBacks.Await(reasons.size() + 1, Milliseconds(1500)), reasons);
  EXPECT_EQ(m_Log.Count(kDone), cycles);
  EXPECT_EQ(library.StartDiscoveryCycle(), 1);
  EXPECT_EQ(callBacks.Await(reasons.size() + 1).back(), 3u);
  library.Terminate();
  EXPECT_TRUE(m_Log.Has("Discovery terminated"));
}

TEST_F(Control, TerminateDoesNotWaitForAHangingWorker) {
  LetAWorkerHang();
  Library library(m_Fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_EVERY_CYCLE);
  library.Start(kLong);
  ASSERT_TRUE(AwaitHangingWorker());
  const auto begin = Clock::now();
  library.Terminate();
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
  EXPECT_TRUE(m_Log.Has("Discovery terminated"));
  EXPECT_TRUE(callBacks.Reasons().empty());
  EXPECT_TRUE(library.Ports().empty());
}

TEST_F(Control, NoCallWaitsForAHangingRefresh) {
  m_Fabric.AddFault({{"call", "RM_GetDiscoveryAttributes"}, {"port", kFc}, {"hang", true}});
  m_Fabric.Write();
  Library library(m_Fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_FORCED | HBADISC_EVENT_DIRECTED);
  library.Start(kLong);
  callBacks.Await(1);
  ASSERT_EQ(library.DirectedDiscoveryUpdate(Name(kFc), HBADISC_REFRESH_ATTRIBUTES), 1);
  ASSERT_TRUE(Eventually([&] { return m_Log.Has("Directed Discovery - starting"); }));
  EXPECT_EQ(library.StartDiscoveryCycle(), 1);
  EXPECT_EQ(library.StartDiscoveryCycle(), 0);
  library.KillDiscoveryCycle();
  library.PauseDiscovery();
  EXPECT_EQ(library.StartDiscoveryCycle(), 1);
  library.Terminate();
  EXPECT_TRUE(m_Log.Has("Discovery terminated"));
  // What was left behind is in nobody's way.
  library.Start(kLong);
  EXPECT_THAT(callBacks.Await(2), ElementsAre(6, 6));
  EXPECT_EQ(library.DirectedDiscoveryUpdate(Name("1000000000000002"), HBADISC_REFRESH_VPORTS), 1);
  EXPECT_THAT(callBacks.Await(3), ElementsAre(6, 6, 8));
  library.Terminate();
}

TEST_F(Control, StartAgainAfterTerminate) {
  Library library(m_Fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_FORCED);
  for (std::size_t round = 1; round <= 2; ++round) {
    library.Start(kLong);
    library.Start(kLong);  // changes nothing
    EXPECT_THAT(callBacks.Await(round), Each(6u));
    EXPECT_EQ(library.Ports().size(), 2u);
    library.Terminate();
    EXPECT_TRUE(library.Ports().empty());
  }
  EXPECT_EQ(m_Log.Count("Discovery startup"), 2u);
}

TEST_F(Control, EveryCallMayBeMadeInsideTheCallback) {
  Library library(m_Fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_EVERY_CYCLE);
  std::atomic<int> forced{-1};
  std::atomic<int> inCycle{-1};
  std::atomic<std::size_t> ports{0};
  callBacks.Inside([&](unsigned int) {
    if (forced != -1) return;
    inCycle = library.InDiscoveryCycle();
    ports = library.Ports().size();
    library.KillDiscoveryCycle();
    library.ChangeDiscoveryInterval(kLong);
    library.RegisterCallBack(nullptr, 0, nullptr);
    library.RegisterCallBack(nullptr, 0, nullptr);
    library.PauseDiscovery();
    library.Startup(kLong);
    library.Terminate();  // cannot join the thread that it runs on
    forced = library.StartDiscoveryCycle();
  });
  library.Start(kLong);
  callBacks.Await(1);
  EXPECT_EQ(inCycle, 0);
  EXPECT_EQ(ports, 2u);
  EXPECT_EQ(forced, 1);
  EXPECT_TRUE(Eventually([&] { return m_Log.Count(kDone) >= 2; }));
  library.Terminate();
  EXPECT_TRUE(m_Log.Has("Discovery terminated"));
}

// A callback waits for a walk; the walker stops discovery, which waits for the callback.
TEST_F(Control, WalkerMayTerminateWhileACallbackWantsToWalk) {
  Library library(m_Fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_EVERY_CYCLE);
  library.Start(kLong);
  callBacks.Await(1);
  std::promise<void> entered;
  callBacks.Inside([&](unsigned int) {
    entered.set_value();
    hba_discovery_info record;
    EXPECT_EQ(library.GetFirstHba(&record), 0);
  });
  hba_discovery_info record;
  ASSERT_EQ(library.GetFirstHba(&record), 2);
  library.StartDiscoveryCycle();
  entered.get_future().wait();
  library.Terminate();
  EXPECT_EQ(library.GetNextHba(&record), 0);
  EXPECT_EQ(callBacks.Reasons().size(), 2u);
}

TEST_F(Control, ManyThreadsControlAtOnce) {
  Library library(m_Fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_EVERY_CYCLE);
  library.Start(kLong);
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 2; ++i) {
      threads.emplace_back([&] { library.StartDiscoveryCycle(); });
      threads.emplace_back([&] { library.KillDiscoveryCycle(); });
      threads.emplace_back([&] { library.PauseDiscovery(); });
      threads.emplace_back([&] { library.ChangeDiscoveryInterval(10); });
      threads.emplace_back([&] { library.Startup(kLong); });
    }
  }
  library.StartDiscoveryCycle();
  library.Terminate();
  EXPECT_EQ(library.InDiscoveryCycle(), 0);
  EXPECT_TRUE(m_Log.Has("Discovery terminated"));
}

}  // namespace
}  // namespace systemtest

// Slow discovery on slow lists of the test's own, filled as the workers of an in-band cycle fill them.
#include "inband/SlowHbaDiscover.h"

#include <unistd.h>

#include "tests/support/Owner.h"
#include "tests/support/RecordedLog.h"
#include "tests/support/Rows.h"
#include "tests/support/ScriptedProvider.h"
#include "tests/support/Testing.h"
#include "tests/support/Waiting.h"

namespace {

constexpr char kDone0[] = "SLOW DISCOVERY PROCESS CYCLE DONE (0)\n\n";
constexpr char kDone1[] = "SLOW DISCOVERY PROCESS CYCLE DONE (1)\n\n";
constexpr char kCutShort[] = "Slow discovery cycle stopping pre-maturely!";
constexpr char kTerminated[] = "Slow discovery thread terminated";

class SlowDiscovery : public testing::Test {
 protected:
  SlowDiscovery() {
    for (std::uint64_t number = 0; number < 2; ++number) {
      m_Provider.ports[kPort + number].attributes = {
          {513, Attribute::Text("host-a")}, {553, Attribute::Text("1")}, {774, Attribute::Number(1)}};
    }
    m_Provider.OnCall("RM_GetDiscoveryAttributes", [this] { m_Reads.Pass(); });
  }
  ~SlowDiscovery() override {
    m_Reads.Open();
    m_Slow->Terminate();
    // What was cut short ends by itself, and uses the doubles until then; its last line orders us after it.
    EXPECT_TRUE(Eventually([&] { return m_Slow.use_count() == 1; }));
    m_Slow.reset();
    EXPECT_TRUE(Eventually([&] { return ThreadCount() <= m_ThreadsBefore; }));
    m_Log.Lines();
  }

  // One second between cycles, not four minutes.
  void Make(const std::string& settings = "DISCO_SLOW_INTERVAL:1\n") {
    const std::string path = testing::TempDir() + "varnix_disc." + std::to_string(getpid()) + ".conf";
    std::ofstream(path) << settings;
    m_Slow = std::make_shared<CSlowHbaDiscover>(path.c_str());
    std::filesystem::remove(path);
  }
  void AddPort(std::uint64_t number) { Add(*m_Slow->GetHbaList(), MakePort(Info(kPort + number))); }
  // Started with one port on its list.
  void StartWithPort() {
    m_Owner.firstPending = true;
    m_Slow->Startup(&m_Owner);
    AddPort(0);
    m_Owner.firstPending = false;
  }
  void StartInsideARead() {
    Make();
    m_Reads.Close();
    StartWithPort();
    ASSERT_TRUE(m_Reads.WaitForCalls(1));
  }
  bool Logged(const std::string& text, int times = 1) {
    return Eventually([&] { return m_Log.Count(text) >= times; });
  }
  bool CalledBack() {
    return Eventually([&] { return m_Owner.callbacks == 1; });
  }

  const std::ptrdiff_t m_ThreadsBefore = ThreadCount();
  RecordedLog m_Log;
  ScriptedProvider m_Provider;
  Owner m_Owner;
  Gate m_Reads;
  std::shared_ptr<CSlowHbaDiscover> m_Slow = std::make_shared<CSlowHbaDiscover>("/nowhere");
};

TEST_F(SlowDiscovery, IntervalFollowsSettingsAndMainInterval) {
  auto rows = Rows(INBAND_TESTS "/slow_settings.txt", "intervals");
  rows.emplace_back(std::string(300, 'x'), "240 90 225");
  for (const auto& [settings, expected] : rows) {
    unsigned int interval = 0;
    unsigned int mainChange = 0;
    unsigned int changed = 0;
    std::istringstream(expected) >> interval >> mainChange >> changed;
    Make(settings);
    EXPECT_EQ(m_Slow->GetInterval(), interval) << settings;
    m_Slow->ChangeDiscoveryInterval(mainChange);
    EXPECT_EQ(m_Slow->GetInterval(), changed) << settings;
  }
}

TEST_F(SlowDiscovery, PortLeavesTheListWhenItAnswers) {
  Make();
  m_Provider.Script("RM_GetDiscoveryAttributes", {{192}});
  StartWithPort();
  ASSERT_TRUE(Logged(kDone1)) << "it failed again, and stays";
  EXPECT_EQ(m_Owner.callbacks, 0);
  EXPECT_EQ(m_Owner.current->GetCount(), 0U);
  ASSERT_TRUE(CalledBack());
  EXPECT_EQ(m_Owner.current->GetCount(), 1U);
  ASSERT_TRUE(Logged(kDone0));
  EXPECT_EQ(m_Slow->GetHbaList()->GetCount(), 0U);
  EXPECT_EQ(m_Log.Find("Slow discovery: Merged with main discovery list (system: 'host-a')").wwn, kPort);
  EXPECT_EQ(m_Log.Find("Slow discovery: callback\n").mask, 4U);
  ASSERT_TRUE(Logged(kDone0, 2)) << "cycles go on with an empty list";
  EXPECT_EQ(m_Owner.callbacks, 1);
}

// A second between two looks, also when the settings say 0: else a processor would be busy and the log full.
TEST_F(SlowDiscovery, RestsUntilTheFirstCycleHasEnded) {
  Make("DISCO_SLOW_INTERVAL:0\n");
  m_Owner.firstPending = true;
  const Stopwatch stopwatch;
  m_Slow->Startup(&m_Owner);
  ASSERT_TRUE(Logged("Slow Discovery thread: skipping - first cycle not complete", 2));
  EXPECT_GE(stopwatch.Elapsed(), std::chrono::milliseconds(1900));
  EXPECT_EQ(m_Log.Find("SLOW DISCOVERY CYCLE").mask, 0U);
  m_Owner.firstPending = false;
  EXPECT_TRUE(Logged(kDone0));
}

TEST_F(SlowDiscovery, PauseCutsACycleShortAndALateResultIsLost) {
  StartInsideARead();
  m_Slow->Pause(1);
  ASSERT_TRUE(Logged(kCutShort));
  ASSERT_TRUE(Logged("Slow Discovery thread paused"));
  m_Reads.Open();
  EXPECT_EQ(m_Owner.current->GetCount(), 0U);
  EXPECT_EQ(m_Slow->GetHbaList()->GetCount(), 1U);
  m_Slow->Pause(0);
  EXPECT_TRUE(CalledBack());
  EXPECT_EQ(m_Owner.current->GetCount(), 1U);
}

TEST_F(SlowDiscovery, ResetForgetsThePorts) {
  StartInsideARead();
  const std::shared_ptr<CHbaList> before = m_Slow->GetHbaList();
  m_Slow->Reset();
  EXPECT_EQ(m_Log.Count("Slow Discovery: reset done"), 1);
  EXPECT_NE(m_Slow->GetHbaList(), before);
  EXPECT_EQ(m_Slow->GetHbaList()->GetCount(), 0U);
  EXPECT_EQ(m_Log.Count(kCutShort), 1);
}

TEST_F(SlowDiscovery, TerminatesAtAnyMoment) {
  EXPECT_EQ(m_Slow->Terminate(), 1) << "never started";
  m_Slow->Startup(&m_Owner);
  EXPECT_EQ(m_Slow->Terminate(), 1) << "right after its start";
  EXPECT_EQ(m_Log.Count(kTerminated), 1);
  EXPECT_EQ(m_Slow->GetHbaList(), nullptr);

  StartInsideARead();
  EXPECT_EQ(m_Slow->Terminate(), 0) << "in a cycle with a port that hangs";
  EXPECT_EQ(m_Log.Count("Termination slow discovery while in cycle!"), 1);
  EXPECT_TRUE(Logged(kTerminated, 2)) << "the hanging worker is not waited for";
  m_Reads.Open();
  EXPECT_EQ(m_Owner.callbacks, 0);
}

}  // namespace

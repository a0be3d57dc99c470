// Slow discovery on slow lists of the test's own, filled as the workers of an in-band cycle fill them.
#include "inband/SlowHbaDiscover.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "tests/inband/recorded_log.h"
#include "tests/inband/scripted_provider.h"
#include "tests/thread/wait_until.h"

namespace {

constexpr std::uint64_t kPort = 0x1000025DC9000000;
constexpr char kDone0[] = "SLOW DISCOVERY PROCESS CYCLE DONE (0)\n\n";
constexpr char kDone1[] = "SLOW DISCOVERY PROCESS CYCLE DONE (1)\n\n";
constexpr char kCutShort[] = "Slow discovery cycle stopping pre-maturely!";
constexpr char kTerminated[] = "Slow discovery thread terminated";

class Owner final : public DiscoveryOwner {
 public:
  std::shared_ptr<CHbaList> GetCurrentList() const override { return current; }
  void DoCallBack(int changed, int forced, int intermediate) override {
    lastReason = changed * 100 + forced * 10 + intermediate;
    ++callbacks;
    if (inside) inside();
  }
  unsigned int GetMaxSlowThreads() const override { return 15; }
  bool IsFullDiscoveryOnly() const override { return fullOnly; }
  bool IsFirstCyclePending() const override { return firstPending; }
  unsigned int GetIntermediateCBInterval() const override { return 8; }

  std::shared_ptr<CHbaList> current = std::make_shared<CHbaList>(ListRank::kCurrent);
  std::atomic<bool> fullOnly{false};
  std::atomic<bool> firstPending{false};
  std::atomic<int> callbacks{0};
  std::atomic<int> lastReason{-1};
  std::function<void()> inside;
};

class SettingsFile {
 public:
  explicit SettingsFile(const std::string& text) { std::ofstream(m_Path) << text; }
  ~SettingsFile() { unlink(m_Path.c_str()); }
  SettingsFile(const SettingsFile&) = delete;
  SettingsFile& operator=(const SettingsFile&) = delete;
  const char* Path() const { return m_Path.c_str(); }

 private:
  const std::string m_Path = testing::TempDir() + "varnix_disc." + std::to_string(getpid()) + ".conf";
};

class SlowDiscovery : public testing::Test {
 protected:
  SlowDiscovery() {
    for (std::uint64_t number = 0; number < 2; ++number) {
      m_Provider.ports[kPort + number].attributes = {
          {513, Attribute::Text("host-a")}, {553, Attribute::Text("1")}, {774, Attribute::Number(1)}};
    }
  }
  ~SlowDiscovery() override {
    Release();
    m_Slow->Terminate();
    // What was cut short ends by itself, and uses the doubles until then; its last line orders us after it.
    EXPECT_TRUE(WaitUntil([&] { return m_Slow.use_count() == 1; }));
    m_Slow.reset();
    EXPECT_TRUE(WaitUntil([&] { return ThreadCount() <= m_ThreadsBefore; }));
    m_Log.Lines();
  }
  // A sanitizer has a thread of its own, from the first other one on.
  static std::ptrdiff_t ThreadCount() {
    static const bool s_FirstThread = (std::thread([] {}).join(), true);
    static_cast<void>(s_FirstThread);
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  }

  // One second between cycles, not four minutes.
  void Make(const std::string& settings = "DISCO_SLOW_INTERVAL:1\n") {
    const SettingsFile file(settings);
    m_Slow = std::make_shared<CSlowHbaDiscover>(file.Path());
  }

  void AddPort(std::uint64_t number) {
    const HBA_info_v4 info = Info(kPort + number);
    const CHbaEntry port(&info, nullptr, 1, nullptr, 0, nullptr);
    const std::shared_ptr<CHbaList> list = m_Slow->GetHbaList();
    CHbaListGuard guard(*list);
    list->AddEntry(&port);
  }

  // Started with one port on its list; every attribute read is counted, and passes `gate` first.
  void StartWithPort() {
    m_Owner.firstPending = true;
    m_Provider.OnCall("RM_GetDiscoveryAttributes", [this] {
      ++m_Reads;
      m_Hold.wait(true);
    });
    m_Slow->Startup(&m_Owner);
    AddPort(0);
    m_Owner.firstPending = false;
  }
  void HoldReads() { m_Hold = true; }
  void Release() {
    m_Hold = false;
    m_Hold.notify_all();
  }
  bool Logged(const std::string& text, int times = 1) {
    return WaitUntil([&] { return m_Log.Count(text) >= times; });
  }
  unsigned int ListedCount() const {
    CHbaListGuard guard(*m_Owner.current);
    return m_Owner.current->GetCount();
  }

  const std::ptrdiff_t m_ThreadsBefore = ThreadCount();
  RecordedLog m_Log;
  ScriptedProvider m_Provider;
  Owner m_Owner;
  std::atomic<bool> m_Hold{false};
  std::atomic<int> m_Reads{0};
  std::shared_ptr<CSlowHbaDiscover> m_Slow = std::make_shared<CSlowHbaDiscover>("/nowhere");
};

struct IntervalRow {
  const char* settings;
  unsigned int interval;    // as read
  unsigned int mainChange;  // a new in-band interval
  unsigned int changed;     // what it makes of it
};

TEST_F(SlowDiscovery, IntervalFollowsSettingsAndMainInterval) {
  const std::string longLine(300, 'x');
  const IntervalRow rows[] = {
      {"", 240, 90, 225},
      {"", 240, 10, 60},
      {"DISCO_SLOW_INTERVAL:300\n", 300, 10, 300},
      {"DISCO_SLOW_INTERVAL: 10 seconds\n", 10, 5, 12},  // undercuts the 60 that hold without a minimum
      {"DISCO_SLOW_INTERVAL:10", 10, 3, 10},             // no final newline
      {"DISCO:7\nDISCO_SLOW_INTERVAL:8\n", 7, 10, 25},   // a shorter key answers too, the first line wins
      {":7\n", 7, 10, 25},
      {"nothing\nDISCO_SLOW_INTERVALL:7\ndisco:7\n", 240, 10, 60},
      {"DISCO_SLOW_INTERVAL\n", 240, 10, 60},
      {"DISCO_SLOW_INTERVAL:ten\n", 0, 10, 25},
      {"DISCO_SLOW_INTERVAL:-1\n", 0xFFFFFFFF, 10, 60},  // reads as no minimum
      {"DISCO_SLOW_INTERVAL:0\n", 0, 0, 5},
      {"DISCO_SLOW_INTERVAL:99999999999999999999\n", 0xFFFFFFFF, 90, 225},
      {longLine.c_str(), 240, 90, 225},
  };
  for (const IntervalRow& row : rows) {
    SCOPED_TRACE(row.settings);
    Make(row.settings);
    EXPECT_EQ(m_Slow->GetInterval(), row.interval);
    m_Slow->ChangeDiscoveryInterval(row.mainChange);
    EXPECT_EQ(m_Slow->GetInterval(), row.changed);
  }
}

TEST_F(SlowDiscovery, PortLeavesTheListWhenItAnswers) {
  Make();
  m_Provider.Script("RM_GetDiscoveryAttributes", {{192}});
  StartWithPort();
  ASSERT_TRUE(Logged(kDone1)) << "it failed again, and stays";
  EXPECT_EQ(m_Owner.callbacks, 0);
  EXPECT_EQ(ListedCount(), 0U);
  ASSERT_TRUE(WaitUntil([&] { return m_Owner.callbacks == 1; }));
  EXPECT_EQ(m_Owner.lastReason, 100);
  EXPECT_EQ(ListedCount(), 1U);
  ASSERT_TRUE(Logged(kDone0));
  EXPECT_EQ(m_Slow->GetHbaList()->GetCount(), 0U);
  EXPECT_EQ(m_Log.Find("Slow discovery: Merged with main discovery list (system: 'host-a')").wwn, kPort);
  EXPECT_EQ(m_Log.Find("Slow discovery: callback\n").mask, 4U);
  ASSERT_TRUE(Logged(kDone0, 2)) << "cycles go on with an empty list";
  EXPECT_EQ(m_Owner.callbacks, 1);
}

TEST_F(SlowDiscovery, RestsUntilTheFirstCycleHasEnded) {
  Make();
  m_Owner.firstPending = true;
  m_Slow->Startup(&m_Owner);
  ASSERT_TRUE(Logged("Slow Discovery thread: skipping - first cycle not complete", 2));
  EXPECT_EQ(m_Log.Find("SLOW DISCOVERY CYCLE").mask, 0U);
  m_Owner.firstPending = false;
  EXPECT_TRUE(Logged(kDone0));
}

TEST_F(SlowDiscovery, PauseCutsACycleShortAndALateResultIsLost) {
  Make();
  HoldReads();
  StartWithPort();
  ASSERT_TRUE(WaitUntil([&] { return m_Reads == 1; }));
  m_Slow->Pause(1);
  ASSERT_TRUE(Logged(kCutShort));
  ASSERT_TRUE(Logged("Slow Discovery thread paused"));
  Release();
  EXPECT_EQ(ListedCount(), 0U);
  EXPECT_EQ(m_Slow->GetHbaList()->GetCount(), 1U);
  m_Slow->Pause(0);
  EXPECT_TRUE(WaitUntil([&] { return m_Owner.callbacks == 1; }));
  EXPECT_EQ(ListedCount(), 1U);
}

TEST_F(SlowDiscovery, ResetForgetsThePorts) {
  Make();
  HoldReads();
  StartWithPort();
  ASSERT_TRUE(WaitUntil([&] { return m_Reads == 1; }));
  const std::shared_ptr<CHbaList> before = m_Slow->GetHbaList();
  m_Slow->Reset();
  EXPECT_EQ(m_Log.Count("Slow Discovery: reset done"), 1);
  EXPECT_NE(m_Slow->GetHbaList(), before);
  EXPECT_EQ(m_Slow->GetHbaList()->GetCount(), 0U);
  EXPECT_EQ(m_Log.Count(kCutShort), 1);
}

TEST_F(SlowDiscovery, ResetIsServedWhileSlowDiscoveryRests) {
  m_Owner.fullOnly = true;
  m_Owner.firstPending = true;
  m_Slow->Startup(&m_Owner);
  ASSERT_TRUE(Logged("Slow discovery thread running"));
  AddPort(0);
  m_Slow->Reset();
  EXPECT_EQ(m_Slow->GetHbaList()->GetCount(), 0U);
  EXPECT_EQ(m_Log.Find("SLOW DISCOVERY CYCLE").mask, 0U);
}

TEST_F(SlowDiscovery, CallbackMayResetPauseAndChangeTheInterval) {
  Make();
  m_Owner.inside = [&] {
    m_Slow->Reset();
    m_Slow->ChangeDiscoveryInterval(0);
    m_Slow->ChangeDiscoveryInterval(2);
  };
  StartWithPort();
  ASSERT_TRUE(WaitUntil([&] { return m_Owner.callbacks == 1; }));
  EXPECT_TRUE(Logged("Slow Discovery thread: resetting list"));
  EXPECT_EQ(m_Log.Count("Discovery interval = 0 - pausing slow discovery"), 1);
  EXPECT_EQ(m_Log.Count("New slow discovery interval = 5 seconds"), 1);
}

TEST_F(SlowDiscovery, TerminatesAtAnyMoment) {
  EXPECT_EQ(m_Slow->Terminate(), 1) << "never started";
  m_Slow->Startup(&m_Owner);
  EXPECT_EQ(m_Slow->Terminate(), 1) << "right after its start";
  EXPECT_EQ(m_Log.Count(kTerminated), 1);
  EXPECT_EQ(m_Slow->GetHbaList(), nullptr);

  Make();
  HoldReads();
  StartWithPort();
  ASSERT_TRUE(WaitUntil([&] { return m_Reads == 1; }));
  EXPECT_EQ(m_Slow->Terminate(), 0) << "in a cycle with a port that hangs";
  EXPECT_EQ(m_Log.Count("Termination slow discovery while in cycle!"), 1);
  EXPECT_TRUE(Logged(kTerminated, 2)) << "the hanging worker is not waited for";
  Release();
  EXPECT_EQ(m_Owner.callbacks, 0);
}

// What a sanitizer watches: everything at once, while ports come and go.
TEST_F(SlowDiscovery, BearsControlCallsFromManyThreads) {
  Make("DISCO_SLOW_INTERVAL:0\n");
  StartWithPort();
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < 20; ++i) {
        if (thread == 0) m_Slow->Reset();
        if (thread == 1) m_Slow->Pause(i % 2);
        if (thread == 2 && m_Slow->GetHbaList() != nullptr) m_Slow->GetHbaList()->GetCount();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  m_Slow->Pause(0);
  m_Slow->Reset();
  AddPort(1);
  EXPECT_TRUE(WaitUntil([&] { return m_Owner.callbacks > 0; }));
}

}  // namespace

// The controller: when cycles run, what they change, and how they are stopped.

#include "log/DiscoveryLog.h"
#include "oob/OobHbaDiscover.h"
#include "tests/oob/remote_provider.h"
#include "tests/support/Owner.h"
#include "tests/support/Rows.h"
#include "tests/support/Testing.h"
#include "tests/support/Waiting.h"

namespace {

using namespace std::chrono_literals;

constexpr char kStart[] = "OOB DISCOVERY CYCLE - Starting discovery cycle";
constexpr char kStopped[] = "Forced stop of OOB discovery cycle";
constexpr char kHostCall[] = "RM_GetAllNodeAddr";
constexpr char kOtherHost[] = "10.0.0.2";
constexpr char kOtherCall[] = "RM_GetAllNodeAddr of 10.0.0.2";

std::string Done(int ports) {
  return "OOB DISCOVERY CYCLE DONE (" + std::to_string(ports) + ")\n";
}

class OobController : public testing::Test {
 protected:
  OobController() {
    m_Provider.SetPorts("10.0.0.1", {kPort});
    m_Provider.Write("hbahosts.lst", "# hosts\n10.0.0.1\n10.0.0.1:2000\nserver7\n");
  }
  ~OobController() override {
    m_Gate.Open();
    m_Discoverer.reset();
    // No worker survives; a pool's terminator may take longer.
    EXPECT_TRUE(Eventually([this] { return ThreadCount() <= m_ThreadsBefore + 1; }));
    // The last thing that a worker does is a line in the log: this is after it.
    m_Provider.log.Lines();
  }
  void Make() {
    m_Discoverer = std::make_shared<COOBHbaDiscover>(&m_Owner, (m_Provider.folder / "settings").c_str());
  }
  void Start() {
    Make();
    m_Discoverer->Startup(0);
  }
  bool HasState(std::uint32_t bits) const { return (m_Discoverer->GetDiscoveryState() & bits) != 0; }
  bool WaitForCycles(int cycles) const {
    return Eventually([this, cycles] {
      return m_Provider.log.Count(kStart) >= cycles && !HasState(kOobInCycle | kOobForced);
    });
  }
  bool RunForcedCycle(int number) const {
    return m_Discoverer->StartDiscoveryCycle() == 1 && WaitForCycles(number);
  }
  // Holds the coming calls of that name.
  void Hold(const char* call) {
    m_Gate.Close();
    m_Provider.scripted.OnCall(call, [this] { m_Gate.Pass(); });
  }
  unsigned int ListedCount() const { return m_Owner.current->GetCount(); }

  const std::ptrdiff_t m_ThreadsBefore = ThreadCount();
  RemoteProvider m_Provider;
  Owner m_Owner;
  Gate m_Gate;
  std::shared_ptr<COOBHbaDiscover> m_Discoverer;
};

TEST_F(OobController, ThePortComesFromTheSettings) {
  Make();
  for (const auto& [settings, port] : Rows(OOB_TESTS "/host_lines.txt", "settings")) {
    m_Provider.Write("settings", settings);
    m_Discoverer->Startup(0xFFFFFFFF);
    EXPECT_EQ(std::to_string(m_Discoverer->GetIpPortNumber()), port) << settings;
  }
  EXPECT_EQ(m_Provider.log.Find("OOB discovery not started (illegal port number 0").mask, kLogStartStop);
}

// No host: nothing is merged, but what only remote hosts knew goes.
TEST_F(OobController, RemovalPass) {
  const unsigned char proxy[8] = {0xFF, 0, 1, 2, 10, 0, 0, 9};
  CHbaEntry known = MakePort(Info(2));
  known.SetProxyAddress(proxy);
  CHbaEntry remote = MakePort(Info(3), 0);
  remote.SetProxyAddress(proxy);
  remote.SetProxyOnlyAccess(1);
  for (const CHbaEntry& port : {MakePort(Info(1)), known, remote}) Add(*m_Owner.current, port);
  m_Provider.Write("hbahosts.lst", "");
  Start();
  ASSERT_TRUE(WaitForCycles(1));
  EXPECT_EQ(m_Provider.log.Count("OOB: Removing board for host host"), 1);
  EXPECT_EQ(m_Provider.log.Find("After merging").mask, 0U);
  EXPECT_EQ(m_Discoverer->DiscoveryListChanged(), 1);
  EXPECT_EQ(Names(*m_Owner.current), (std::vector<std::uint64_t>{1, 2}));
  EXPECT_EQ(Listed(*m_Owner.current, 2).GetProxyAddress()[0], 0);
  ASSERT_TRUE(RunForcedCycle(2));
  EXPECT_EQ(m_Discoverer->DiscoveryListChanged(), 0);
}

// A worker inside a call delays nobody, and what it comes back with is dropped.
TEST_F(OobController, KilledWhileAHostAnswers) {
  Hold(kHostCall);
  m_Provider.scripted.Script(kHostCall, {{RM_STATUS_FAILED}});
  Start();
  ASSERT_TRUE(m_Gate.WaitForCalls(1));
  const Stopwatch watch;
  m_Owner.inCallBack = true;  // of local discovery: the cycle's end may wait for this thread
  m_Discoverer->KillDiscoveryCycle(0);
  m_Owner.inCallBack = false;
  m_Discoverer->KillDiscoveryCycle(0);
  EXPECT_LT(watch.Elapsed(), 10s);
  EXPECT_FALSE(HasState(kOobStopRequested | kOobInCycle | kOobForced));
  EXPECT_TRUE(HasState(kOobEnabled));
  EXPECT_EQ(m_Provider.log.Count(kStopped), 1);
  EXPECT_EQ(m_Provider.log.Count(Done(0)), 1);

  // The next cycle has workers of its own; the host was not noted as unreachable.
  m_Provider.scripted.OnCall(kHostCall, nullptr);
  ASSERT_TRUE(RunForcedCycle(2));
  EXPECT_EQ(ListedCount(), 1U);

  // Stopped and gone while a worker is inside a call.
  Hold(kHostCall);
  EXPECT_EQ(m_Discoverer->StartDiscoveryCycle(), 1);
  ASSERT_TRUE(m_Gate.WaitForCalls(2));
  m_Discoverer->Terminate();
  EXPECT_EQ(m_Discoverer->getOOBThreadState(), 0U);
  m_Discoverer.reset();
  const auto exits = [this] {
    const auto lines = m_Provider.log.Lines();
    return std::count_if(lines.begin(), lines.end(),
                         [](const auto& line) { return line.text.ends_with(" exiting"); });
  };
  m_Gate.Open();
  EXPECT_TRUE(Eventually([&] { return exits() >= 2; }));
  EXPECT_EQ(ListedCount(), 1U);
}

// A host that let its last query run long delays no cycle, but is found again as soon as it answers.
TEST_F(OobController, SilentHostsAreAskedBesideTheOthers) {
  m_Provider.SetPorts(kOtherHost, {kPort + 1});
  m_Provider.Write("hbahosts.lst", "10.0.0.1\n10.0.0.2\n");
  const auto fall = [this] {
    m_Provider.scripted.Script(kOtherCall, {{RM_STATUS_HOST_UNUSABLE}});
    m_Provider.scripted.OnCall(kOtherCall, [] { std::this_thread::sleep_for(600ms); });
  };
  fall();
  Start();
  ASSERT_TRUE(WaitForCycles(1));
  EXPECT_EQ(ListedCount(), 1U);

  m_Provider.scripted.OnCall(kOtherCall, nullptr);  // answers again, in time
  ASSERT_TRUE(RunForcedCycle(2));
  EXPECT_EQ(ListedCount(), 2U);

  fall();
  ASSERT_TRUE(RunForcedCycle(3));
  Hold(kOtherCall);
  ASSERT_TRUE(RunForcedCycle(4));
  ASSERT_TRUE(RunForcedCycle(5));
  EXPECT_EQ(m_Provider.scripted.Calls(kOtherCall), 2);  // the cycles share one call
  EXPECT_EQ(ListedCount(), 1U);
  m_Gate.Open();  // too late for those cycles; the next one visits it as any other
  ASSERT_TRUE(Eventually([this] { return ThreadCount() <= m_ThreadsBefore + 5; }));
  ASSERT_TRUE(RunForcedCycle(6));
  EXPECT_EQ(ListedCount(), 2U);
  EXPECT_EQ(m_Provider.scripted.Calls(kOtherCall), 3);

  // Nothing that stops discovery waits for such a call, and its answer comes to nothing.
  fall();
  ASSERT_TRUE(RunForcedCycle(7));
  Hold(kOtherCall);
  EXPECT_EQ(m_Discoverer->StartDiscoveryCycle(), 1);
  ASSERT_TRUE(Eventually([this] { return m_Provider.scripted.Calls(kOtherCall) == 2; }));
  m_Discoverer->PauseDiscovery();
  m_Discoverer->Terminate();
  EXPECT_EQ(m_Discoverer->getOOBThreadState(), 0U);
  EXPECT_EQ(ListedCount(), 1U);
}

}  // namespace

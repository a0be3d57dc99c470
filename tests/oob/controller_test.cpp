// The controller: when cycles run, what they change, and how they are stopped.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "discovery/DiscoveryLog.h"
#include "oob/OobHbaDiscover.h"
#include "tests/oob/owner.h"
#include "tests/oob/remote_provider.h"
#include "tests/thread/wait_until.h"

namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t kPort = 0x1000025DC9000000;
constexpr char kStart[] = "OOB DISCOVERY CYCLE - Starting discovery cycle";
constexpr char kStopped[] = "Forced stop of OOB discovery cycle";
constexpr char kHostCall[] = "RM_GetAllNodeAddr";
constexpr char kResolveCall[] = "RM_RemoteOOBHostAddrV2";

std::string Done(int ports) {
  return "OOB DISCOVERY CYCLE DONE (" + std::to_string(ports) + ")\n";
}

// Holds the calls that reach it until it is opened.
class Gate {
 public:
  ~Gate() { Open(); }
  void Pass() {
    m_Reached = true;
    m_Opened.wait();
  }
  bool Reached() const { return m_Reached; }
  void Open() {
    if (!m_IsOpen.exchange(true)) m_Promise.set_value();
  }

 private:
  std::atomic<bool> m_Reached{false};
  std::atomic<bool> m_IsOpen{false};
  std::promise<void> m_Promise;
  std::shared_future<void> m_Opened = m_Promise.get_future().share();
};

// Waits at its end until the threads that were made meanwhile have gone; a pool's terminator may take longer.
class NoWorkerSurvives {
 public:
  ~NoWorkerSurvives() {
    EXPECT_TRUE(WaitUntil([this] { return Count() <= m_Before + 1; }));
  }

 private:
  static std::ptrdiff_t Count() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                         std::filesystem::directory_iterator());
  }
  const std::ptrdiff_t m_Before = Count();
};

class OobController : public testing::Test {
 protected:
  OobController() {
    m_Provider.AddHost("10.0.0.1", {kPort});
    m_Provider.Write("hbahosts.lst", "# hosts\n10.0.0.1\n10.0.0.1:2000\nserver7\n");
  }
  void Make() {
    m_Discoverer = std::make_shared<COOBHbaDiscover>(&m_Owner, (m_Provider.folder / "settings").c_str());
  }
  void Start(unsigned int interval = 0) {
    Make();
    m_Discoverer->Startup(interval);
  }
  bool HasState(std::uint32_t bits) const { return (m_Discoverer->GetDiscoveryState() & bits) != 0; }
  bool WaitForIdle() const {
    return WaitUntil([this] { return !HasState(kOobInCycle | kOobForced); });
  }
  bool WaitForCycles(int cycles) const {
    return WaitUntil([this, cycles] { return m_Provider.log.Count(kStart) >= cycles; }) && WaitForIdle();
  }
  // Holds the next calls of that name; waits until one is there.
  void Hold(const char* call) {
    m_Provider.scripted.OnCall(call, [this] { m_Gate->Pass(); });
  }
  bool WaitForHeldCall() const {
    return WaitUntil([this] { return m_Gate->Reached(); });
  }
  void AddPort(std::uint64_t wwpn, int isLocal, const unsigned char* proxy, int proxyOnly) {
    HBA_info_v4 info = Info(wwpn);
    const CHbaEntry port(&info, nullptr, isLocal, proxy, proxyOnly, nullptr);
    const CHbaListGuard guard(*m_Owner.current);
    m_Owner.current->AddEntry(&port);
  }

  RemoteProvider m_Provider;
  Owner m_Owner;
  NoWorkerSurvives m_NoWorkerSurvives;
  std::shared_ptr<Gate> m_Gate = std::make_shared<Gate>();
  std::shared_ptr<COOBHbaDiscover> m_Discoverer;
};

TEST_F(OobController, ThePortComesFromTheSettings) {
  const std::vector<std::pair<const char*, int>> rows = {
      {"", 23333},
      {"TcpSocketPortNumber:2000\n", 2000},
      {"# TcpSocketPortNumber : 0x7d0\nother:5\n", 2000},  // anywhere in the line, comments too
      {"TcpSocketPortNumber:2000\nTcpSocketPortNumber::3000\n", 3000},
      {"TcpSocketPortNumber:2000\nTcpSocketPortNumber\n", 2000},
      {"TcpSocketPortNumber:65535\n", 65535},
      {"TcpSocketPortNumber:70000\n", 0},
      {"TcpSocketPortNumber:-1\n", 65535},
  };
  Make();
  for (const auto& [settings, port] : rows) {
    m_Provider.Write("settings", settings);
    m_Discoverer->Startup(0xFFFFFFFF);
    EXPECT_EQ(m_Discoverer->GetIpPortNumber(), port) << settings;
  }
  EXPECT_EQ(m_Provider.log.Find("OOB discovery not started (illegal port number 0").mask, kLogStartStop);
  m_Provider.Write("settings", "TcpSocketPortNumber:1023\n");
  m_Discoverer->Startup(90);
  EXPECT_EQ(m_Discoverer->getOOBThreadState(), 0U);
  m_Discoverer->Terminate();
  EXPECT_EQ(m_Discoverer->StartDiscoveryCycle(), 0);
  EXPECT_EQ(m_Provider.cacheFlags, 1);
}

TEST_F(OobController, CyclesForcedAndPeriodic) {
  Start();
  EXPECT_TRUE(HasState(kOobRunning));
  EXPECT_TRUE(HasState(kOobForced));
  ASSERT_TRUE(WaitForCycles(1));
  EXPECT_EQ(m_Owner.current->GetCount(), 1U);
  EXPECT_EQ(m_Discoverer->DiscoveryListChanged(), 1);
  EXPECT_EQ(m_Owner.callbacks, 0);  // the forced cycle of local discovery reports it
  EXPECT_EQ(m_Provider.log.Find(Done(1)).mask, kLogOob | kLogOobCycle | kLogCycleBounds);
  EXPECT_EQ(m_Provider.log.Count("OOB: Duplicate host 10.0.0.1 in host file"), 1);
  EXPECT_EQ(m_Provider.log.Count("After merging with lists - list now has 1 HBAs"), 1);
  EXPECT_TRUE(WaitUntil([this] { return m_Provider.cacheFlags == 2; }));

  m_Discoverer->ChangeDiscoveryInterval(3);  // too short: the old one, which was "only when asked", stays
  EXPECT_EQ(m_Provider.log.Count("New OOB discovery interval = 0 seconds"), 1);
  m_Provider.SetPorts("10.0.0.1", {});
  m_Discoverer->ChangeDiscoveryInterval(60);
  ASSERT_TRUE(WaitForCycles(2));
  EXPECT_EQ(m_Owner.current->GetCount(), 0U);
  EXPECT_EQ(m_Owner.callbacks, 1);

  m_Provider.SetPorts("10.0.0.1", {kPort});
  EXPECT_EQ(m_Discoverer->StartDiscoveryCycle(), 1);
  ASSERT_TRUE(WaitForCycles(3));
  EXPECT_EQ(m_Owner.current->GetCount(), 1U);
  EXPECT_EQ(m_Owner.callbacks, 1);

  m_Discoverer->ChangeDiscoveryInterval(0);
  EXPECT_FALSE(HasState(kOobEnabled));
  m_Discoverer->ChangeDiscoveryInterval(70);  // no resume
  EXPECT_FALSE(HasState(kOobEnabled));
  m_Discoverer->Terminate();
  EXPECT_EQ(m_Discoverer->getOOBThreadState(), 0U);
  EXPECT_EQ(m_Provider.log.Count(kStart), 3);
  EXPECT_EQ(m_Provider.log.Count("OOB main discovery thread terminated"), 1);
  m_Discoverer->Startup(2);
  EXPECT_EQ(m_Provider.log.Count("OOB discovery startup (interval = 90 seconds)"), 1);
  EXPECT_TRUE(HasState(kOobRunning));
}

// No host: nothing is merged, but what only remote hosts knew goes.
TEST_F(OobController, RemovalPass) {
  const unsigned char proxy[8] = {0xFF, 0, 1, 2, 10, 0, 0, 9};
  AddPort(1, 1, nullptr, 0);
  AddPort(2, 1, proxy, 0);
  AddPort(3, 0, proxy, 1);
  m_Provider.Write("hbahosts.lst", "");
  Start();
  ASSERT_TRUE(WaitForCycles(1));
  EXPECT_EQ(m_Provider.log.Count("OOB: Removing board for host host"), 1);
  EXPECT_EQ(m_Provider.log.Find("After merging").mask, 0U);
  EXPECT_EQ(m_Discoverer->DiscoveryListChanged(), 1);
  {
    const CHbaListGuard guard(*m_Owner.current);
    EXPECT_EQ(m_Owner.current->GetCount(), 2U);
    EXPECT_EQ(m_Owner.current->FindEntry(Name(2).wwn)->GetProxyAddress()[0], 0);
  }
  EXPECT_EQ(m_Discoverer->StartDiscoveryCycle(), 1);
  ASSERT_TRUE(WaitForCycles(2));
  EXPECT_EQ(m_Discoverer->DiscoveryListChanged(), 0);
}

TEST_F(OobController, IntermediateMergesOfAForcedCycle) {
  m_Owner.intermediateInterval = 4;  // no longer than the lead: none
  m_Provider.AddHost("10.0.0.2", {kPort + 1});
  m_Provider.Write("hbahosts.lst", "10.0.0.1\n10.0.0.2\n");
  std::atomic<int> calls{0};
  m_Provider.scripted.OnCall(kHostCall, [&] {
    if (++calls % 2 == 0) m_Gate->Pass();
  });
  Start();
  ASSERT_TRUE(WaitForHeldCall());
  // A wait cut short counts as a whole one.
  const auto hurry = [this](const std::function<bool()>& condition) {
    const Stopwatch limit;
    while (!condition() && limit.Elapsed() < 20s) m_Discoverer->Signal();
    return condition();
  };
  const Stopwatch watch;
  hurry([&] { return watch.Elapsed() > 100ms; });
  EXPECT_EQ(m_Owner.current->GetCount(), 0U);
  m_Gate->Open();
  ASSERT_TRUE(WaitForCycles(1));

  m_Owner.intermediateInterval = 5;
  m_Gate = std::make_shared<Gate>();
  m_Provider.SetPorts("10.0.0.1", {kPort + 2});
  m_Provider.SetPorts("10.0.0.2", {kPort + 2});
  m_Provider.AddHost("10.0.0.1", {kPort + 2});
  EXPECT_EQ(m_Discoverer->StartDiscoveryCycle(), 1);
  ASSERT_TRUE(WaitForHeldCall());
  EXPECT_TRUE(
      hurry([this] { return m_Owner.current->GetCount() == 3 && m_Discoverer->DiscoveryListChanged() == 1; }));
  EXPECT_EQ(m_Discoverer->StartDiscoveryCycle(), 0);  // this one is the forced one
  m_Gate->Open();
  ASSERT_TRUE(WaitForIdle());
  EXPECT_EQ(m_Provider.log.Count(kStart), 2);
  EXPECT_EQ(m_Owner.current->GetCount(), 1U);
}

// A worker inside a call delays nobody, and what it comes back with is dropped.
TEST_F(OobController, KilledWhileAHostAnswers) {
  Hold(kHostCall);
  m_Provider.scripted.Script(kHostCall, {{RM_STATUS_FAILED}});
  Start();
  ASSERT_TRUE(WaitForHeldCall());
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
  m_Provider.scripted.OnCall(kHostCall, [] {});
  EXPECT_EQ(m_Discoverer->StartDiscoveryCycle(), 1);
  ASSERT_TRUE(WaitForCycles(2));
  EXPECT_EQ(m_Owner.current->GetCount(), 1U);

  // Stopped and gone while a worker is inside a call.
  const std::shared_ptr<Gate> first = m_Gate;
  m_Gate = std::make_shared<Gate>();
  Hold(kHostCall);
  EXPECT_EQ(m_Discoverer->StartDiscoveryCycle(), 1);
  ASSERT_TRUE(WaitForHeldCall());
  m_Discoverer->Terminate();
  EXPECT_EQ(m_Discoverer->getOOBThreadState(), 0U);
  m_Discoverer.reset();
  const auto exits = [this] {
    int count = 0;
    for (const auto& line : m_Provider.log.Lines()) count += line.text.ends_with(" exiting") ? 1 : 0;
    return count;
  };
  first->Open();
  m_Gate->Open();
  EXPECT_TRUE(WaitUntil([&] { return exits() >= 2; }));
  EXPECT_EQ(m_Owner.current->GetCount(), 1U);
}

// Stopped before there are workers: no line of its end. A limited killer gives up and takes its request back;
// the unlimited one of a shut-down stands.
TEST_F(OobController, StoppedWhileTheHostsFileIsRead) {
  Hold(kResolveCall);
  Start();
  ASSERT_TRUE(WaitForHeldCall());
  Stopwatch watch;
  m_Discoverer->KillDiscoveryCycle(1);
  EXPECT_GT(watch.Elapsed(), 5s);
  EXPECT_TRUE(HasState(kOobInCycle));
  EXPECT_FALSE(HasState(kOobStopRequested));
  EXPECT_EQ(
      m_Provider.log.Find("OOB Discovery terminating - giving up wait for current discovery cycle to end").mask,
      kLogOob | kLogCycleBounds);
  auto terminate = std::async(std::launch::async, [this] { m_Discoverer->Terminate(); });
  ASSERT_TRUE(WaitUntil([this] { return HasState(kOobStopRequested); }));
  m_Gate->Open();
  terminate.get();
  EXPECT_EQ(m_Discoverer->getOOBThreadState(), 0U);
  EXPECT_EQ(m_Provider.log.Count(kStopped), 1);
  EXPECT_EQ(m_Provider.log.Find("OOB DISCOVERY CYCLE DONE").mask, 0U);
  EXPECT_EQ(m_Provider.scripted.Calls(kHostCall), 0);
}

// From the callback, which runs on the out-of-band thread, no call may wait for that thread.
TEST_F(OobController, ControlledFromItsCallback) {
  m_Owner.onCallBack = [this] {
    m_Discoverer->KillDiscoveryCycle(0);
    EXPECT_TRUE(HasState(kOobStopRequested));
  };
  Start();
  ASSERT_TRUE(WaitForCycles(1));
  m_Provider.SetPorts("10.0.0.1", {});
  m_Discoverer->ChangeDiscoveryInterval(60);
  ASSERT_TRUE(WaitForCycles(2));
  EXPECT_EQ(m_Owner.callbacks, 1);
  EXPECT_FALSE(HasState(kOobStopRequested));  // nobody waits for it any more
  EXPECT_TRUE(HasState(kOobEnabled));

  m_Owner.onCallBack = [this] {
    EXPECT_EQ(m_Discoverer->StartDiscoveryCycle(), 0);
    m_Discoverer->ChangeDiscoveryInterval(0);
    EXPECT_FALSE(HasState(kOobEnabled));
    m_Discoverer->PauseDiscovery();
    m_Discoverer->Startup(60);
    m_Discoverer->Terminate();
  };
  m_Provider.SetPorts("10.0.0.1", {kPort});
  m_Discoverer->ChangeDiscoveryInterval(60);
  EXPECT_TRUE(WaitUntil([this] { return m_Discoverer->getOOBThreadState() == 0; }));
  EXPECT_EQ(m_Owner.callbacks, 2);
  m_Discoverer->Terminate();  // joins what the callback could not
}

}  // namespace

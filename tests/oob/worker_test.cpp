// One worker on the hosts of one cycle.

#include "log/DiscoveryLog.h"
#include "oob/OobHbaDiscover.h"
#include "tests/oob/remote_provider.h"
#include "tests/support/Testing.h"
#include "tests/support/Waiting.h"

namespace {

using namespace std::chrono_literals;

constexpr char kHost[] = "10.0.0.1";
constexpr char kHostCall[] = "RM_GetAllNodeAddr";
constexpr char kAttributeCall[] = "RM_GetDiscoveryAttributes";

class OobWorker : public testing::Test {
 protected:
  OobWorker() {
    m_Provider.SetPorts(kHost, {kPort});
    m_Provider.scripted.ports[kPort].nodes = {Node(kTarget)};
  }
  // A worker notices its end up to half a second late: all together, they cost that once.
  static void TearDownTestSuite() {
    for (const auto& worker : s_Workers) worker->thread.TerminateImmediate();
    for (const auto& worker : s_Workers) worker->thread.Terminate();
    s_Workers.clear();
  }

  // A cycle over one host, done by a worker that was woken before it began. Returns a copy of the port it
  // found, or one of name 0.
  CHbaEntry Visit(const char* host = kHost) {
    m_Cycle = std::make_shared<OobCycle>(m_Shared);
    _RM_IP_INFO address{};
    EXPECT_EQ(RM_RemoteOOBHostAddrV2(host, 23333, &address), RM_STATUS_OK);
    {
      const OobIpAddressListGuard guard(m_Cycle->addresses);
      m_Cycle->addresses.AddEntry(&address);
      m_Cycle->addresses.SelectFirstEntry();
    }
    Worker& worker = *s_Workers.emplace_back(std::make_unique<Worker>());
    worker.slot.Set(m_Cycle);
    m_Worker = &worker.thread;
    m_Worker->Enable();
    m_Worker->Create(Worker::Run, &worker, 0, 0);
    EXPECT_TRUE(Eventually([this] { return m_Worker->IsIdle() != 0; }));
    return Listed(m_Cycle->found, kPort);
  }
  // Calls may take a fifth of a second from now on, and calls of that name do.
  void LetRunIntoLimit(const char* call) {
    m_Shared = std::make_shared<OobShared>(200ms);
    m_Provider.scripted.OnCall(call, [] { std::this_thread::sleep_for(200ms); });
  }
  // The same with the answers to the coming calls.
  CHbaEntry Visit(const char* call, const std::vector<Step>& steps) {
    m_Provider.scripted.Script(call, steps);
    return Visit();
  }

  bool Finds(std::uint64_t wwpn) { return NumberOf(Listed(m_Cycle->found, wwpn)) == wwpn; }
  static unsigned int CountOf(COobIpAddressList& list) {
    const OobIpAddressListGuard guard(list);
    return list.GetCount();
  }
  unsigned int Unreachable() { return CountOf(m_Shared->unreachableHosts); }
  unsigned int Silent() { return CountOf(m_Shared->silentHosts); }
  int Calls(const char* call) { return m_Provider.scripted.Calls(call); }

  struct Worker {
    static void* Run(void* self) {
      auto* worker = static_cast<Worker*>(self);
      HbaDiscoveryThread(&worker->thread, &worker->slot);
      return nullptr;
    }
    CZylTpThread thread;
    OobCycleSlot slot;
  };
  static inline std::vector<std::unique_ptr<Worker>> s_Workers;

  RemoteProvider m_Provider;
  RecordedLog& m_Log = m_Provider.log;
  std::shared_ptr<OobShared> m_Shared = std::make_shared<OobShared>();
  std::shared_ptr<OobCycle> m_Cycle;
  CZylTpThread* m_Worker = nullptr;
};

TEST_F(OobWorker, BusyHostsAreTriedFiveTimesAndTwiceWhenKnownUnreachable) {
  Visit(kHostCall, std::vector<Step>(7, {RM_STATUS_BUSY}));
  EXPECT_EQ(Calls(kHostCall), 5);
  EXPECT_EQ(m_Log.Count("OOB: RM_GetAllNodeAddr (host 10.0.0.1), retrying(5)"), 1);
  EXPECT_EQ(m_Log.Count("OOB: RM_GetAllNodeAddr (host 10.0.0.1), retrying(1)"), 1);
  EXPECT_EQ(m_Log.Find("OOB: RM_GetAllNodeAddr returned error 303 for 10.0.0.1").mask, kLogDetails);
  EXPECT_EQ(Unreachable(), 1U);
  Visit();
  EXPECT_EQ(Calls(kHostCall), 7);
  EXPECT_EQ(Unreachable(), 1U);
  EXPECT_EQ(Silent(), 0U);
  Visit();  // answers now
  EXPECT_EQ(Calls(kHostCall), 8);
  EXPECT_EQ(Unreachable(), 0U);
  EXPECT_TRUE(Finds(kPort));
}

TEST_F(OobWorker, AHostThatRunsIntoTheLimitIsAskedThreeTimesAndOnceWhenKnown) {
  LetRunIntoLimit(kHostCall);
  Visit(kHostCall, std::vector<Step>(9, {RM_STATUS_BUSY}));
  EXPECT_EQ(Calls(kHostCall), 3);
  EXPECT_EQ(m_Log.Count("OOB: RM_GetAllNodeAddr returned error 303 for 10.0.0.1"), 1);
  EXPECT_EQ(Unreachable(), 1U);
  EXPECT_EQ(Silent(), 1U);
  Visit();
  EXPECT_EQ(Calls(kHostCall), 4);
  m_Provider.scripted.OnCall(kHostCall, nullptr);
  Visit();  // busy at once: another try
  EXPECT_EQ(Calls(kHostCall), 6);
  EXPECT_EQ(Silent(), 0U);

  // One that wants more room each time is not followed for longer either.
  LetRunIntoLimit(kHostCall);
  std::vector<Step> growing;
  for (std::uint32_t i = 1; i <= 9; ++i) growing.push_back({RM_STATUS_MORE_DATA, 300 * i});
  Visit(kHostCall, growing);
  EXPECT_EQ(Calls(kHostCall), 3);
}

TEST_F(OobWorker, AHostThatHangsIsGivenUp) {
  m_Provider.SetPorts(kHost, {kPort, kPort + 1});
  const struct {
    const char* call;
    bool lists;  // the port whose targets hang
  } rows[] = {{kAttributeCall, false}, {"RM_GetBindingSupport", true}};
  for (const auto& row : rows) {
    LetRunIntoLimit(row.call);
    Visit(row.call, std::vector<Step>(9, {RM_STATUS_BUSY}));
    EXPECT_EQ(Calls(row.call), 3) << row.call;
    EXPECT_EQ(Finds(kPort), row.lists) << row.call;
    EXPECT_FALSE(Finds(kPort + 1)) << row.call;
    EXPECT_EQ(Silent(), 0U) << row.call << ": it has listed its ports";
    m_Provider.scripted.OnCall(row.call, nullptr);
    m_Provider.scripted.Script(row.call, {});
  }
  EXPECT_EQ(Calls("RM_GetAllNodeInfo"), 0);
  EXPECT_EQ(m_Log.Count("OOB: Did not get port attributes (host 10.0.0.1), error=303"), 1);
  EXPECT_EQ(m_Log.Find("OOB: host 10.0.0.1 keeps discovery waiting").mask, kLogDetails);
}

// What good answers took is not held against the host when another port fails after them.
TEST_F(OobWorker, FailuresBetweenSlowGoodAnswersGiveNoHostUp) {
  std::vector<std::uint64_t> ports(24);
  std::vector<Step> steps;
  for (std::size_t i = 0; i < ports.size(); ++i) {
    ports[i] = kPort + i;
    steps.push_back({i % 2 == 0 ? RM_STATUS_OK : RM_STATUS_LOCKED});
  }
  m_Provider.SetPorts(kHost, ports);
  LetRunIntoLimit("none");
  m_Provider.scripted.OnCall("RM_GetAllNodeInfo", [] { std::this_thread::sleep_for(120ms); });
  Visit(kAttributeCall, steps);
  EXPECT_EQ(m_Cycle->found.GetCount(), 12U);
}

TEST_F(OobWorker, RoomGrowsAsWantedButNeitherEndlesslyNorAbsurdly) {
  std::vector<std::uint64_t> ports(300);
  for (std::size_t i = 0; i < ports.size(); ++i) ports[i] = kPort + i;
  m_Provider.SetPorts(kHost, ports);
  Visit();
  EXPECT_EQ(m_Provider.scripted.Rooms(kHostCall), (std::vector<std::uint32_t>{256, 301}));
  EXPECT_TRUE(Finds(kPort + 299));

  std::vector<Step> endless;
  for (std::uint32_t i = 1; i <= 20; ++i) endless.push_back({RM_STATUS_MORE_DATA, 300 * i});
  const struct {
    std::vector<Step> steps;
    int calls;
  } rows[] = {{endless, 9}, {{{RM_STATUS_MORE_DATA, 65537}}, 1}, {{{RM_STATUS_MORE_DATA, 256}}, 1}};
  for (const auto& row : rows) {
    Visit(kHostCall, row.steps);
    EXPECT_EQ(Calls(kHostCall), row.calls);
  }
  EXPECT_EQ(m_Log.Count("OOB: RM_GetAllNodeAddr returned error 191 for 10.0.0.1"), 3);
}

TEST_F(OobWorker, LocalAndEmptyHostsAreSkipped) {
  m_Provider.localPorts = {kPort};
  Visit();
  EXPECT_EQ(m_Log.Count("OOB: Trying to discover local host (10.0.0.1) HBAs - skipped"), 1);
  m_Provider.SetPorts(kHost, {});
  Visit();
  EXPECT_EQ(Calls(kAttributeCall), 0);
}

TEST_F(OobWorker, AttributesAreRetriedByTheirOwnSet) {
  const struct {
    int status, calls;
  } rows[] = {{RM_STATUS_BUSY, 2},
              {RM_STATUS_HOST_UNUSABLE, 2},
              {RM_STATUS_FAILED, 2},
              {500, 2},
              {RM_STATUS_LOCKED, 1},
              {RM_STATUS_TRY_AGAIN, 1},
              {-5, 1}};
  for (const auto& row : rows) {
    Visit(kAttributeCall, {{row.status}});
    EXPECT_EQ(Calls(kAttributeCall), row.calls) << row.status;
    EXPECT_EQ(Finds(kPort), row.calls == 2) << row.status;
  }
  EXPECT_EQ(m_Log.Find("OOB: Did not get port attributes (host 10.0.0.1), error=64").mask, kLogDetails);
}

TEST_F(OobWorker, AnUnusableHostIsGivenUpOthersGoOn) {
  m_Provider.SetPorts(kHost, {kPort, kPort + 1});
  Visit(kAttributeCall, {{RM_STATUS_LOCKED}});
  EXPECT_TRUE(Finds(kPort + 1));
  Visit(kAttributeCall, std::vector<Step>(5, {RM_STATUS_HOST_UNUSABLE}));
  EXPECT_FALSE(Finds(kPort + 1));
  EXPECT_EQ(m_Log.Count("OOB: GetRemotePortAttr (host 10.0.0.1), retrying(1)"), 1);
}

TEST_F(OobWorker, HotAndTargetModePortsAreListedBare) {
  EXPECT_EQ(Visit(kAttributeCall, {{RM_STATUS_OVER_TEMPERATURE}}).GetLinkStatus(), kLinkOverTemperature);
  m_Provider.scripted.ports[kPort].attributes[554] = Attribute::Number(1);
  Visit();
  EXPECT_TRUE(Finds(kPort));
  EXPECT_EQ(Calls("RM_GetAllNodeInfo"), 0);
}

TEST_F(OobWorker, IPv6HostsAreReachedByTheProvidersHandle) {
  m_Provider.SetPorts("fe80::1", {kPort});
  EXPECT_EQ(WwpnKey(Visit("fe80::1").GetProxyAddress()), 0x5555555555555555U);
  const int before = Calls(kHostCall);
  m_Provider.scripted.Script("RM_AddOOBAddressToLookupTable", {{RM_STATUS_FAILED}, {RM_STATUS_FAILED}});
  Visit("fe80::1");  // without a handle this host would be asked
  EXPECT_EQ(Calls(kHostCall), before);
  Visit();
  EXPECT_TRUE(Finds(kPort));
}

TEST_F(OobWorker, AStoppedWorkerFilesNothing) {
  m_Provider.scripted.OnCall(kAttributeCall, [this] { m_Worker->Disable(); });
  Visit();
  EXPECT_FALSE(Finds(kPort));
  m_Provider.scripted.OnCall(kHostCall, [this] { m_Worker->Disable(); });
  Visit(kHostCall, {{RM_STATUS_FAILED}});
  EXPECT_EQ(Unreachable(), 0U);
  m_Provider.scripted.OnCall(kHostCall, nullptr);
  Visit(kHostCall, {{RM_STATUS_FAILED}});  // the same failure of one that goes on; it is not retried
  EXPECT_EQ(Unreachable(), 1U);
  EXPECT_EQ(Calls(kHostCall), 1);
}

}  // namespace

// One worker on the hosts of one cycle.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "discovery/DiscoveryLog.h"
#include "discovery/HbaDiscoveryListKey.h"
#include "oob/OobHbaDiscover.h"
#include "tests/oob/remote_provider.h"
#include "tests/thread/wait_until.h"

namespace {

constexpr std::uint64_t kPort = 0x1000025DC9000000;
constexpr char kHost[] = "10.0.0.1";

class OobWorker : public testing::Test {
 protected:
  OobWorker() { m_Provider.AddHost(kHost, {kPort}); }
  // A worker notices its end up to half a second late: all together, they cost that once.
  static void TearDownTestSuite() {
    for (const auto& worker : s_Workers) worker->thread.TerminateImmediate();
    for (const auto& worker : s_Workers) worker->thread.Terminate();
    s_Workers.clear();
  }

  // A cycle over one host, done by a worker that was woken before it began.
  void Visit(const char* host = kHost) {
    m_Cycle = std::make_shared<OobCycle>(m_Shared);
    _RM_IP_INFO address{};
    ASSERT_EQ(RM_RemoteOOBHostAddrV2(host, 23333, &address), RM_STATUS_OK);
    {
      const COobIpAddressListGuard guard(m_Cycle->addresses);
      m_Cycle->addresses.AddEntry(&address);
      m_Cycle->addresses.SelectFirstEntry();
    }
    Worker& worker = *s_Workers.emplace_back(std::make_unique<Worker>());
    worker.slot.Set(m_Cycle);
    m_Worker = &worker.thread;
    m_Worker->Enable();
    m_Worker->Create(Worker::Run, &worker, 0, 0);
    ASSERT_TRUE(WaitUntil([this] { return m_Worker->IsIdle() != 0; }));
  }

  unsigned int Unreachable() {
    COobIpAddressList& list = m_Shared->unreachableHosts;
    const COobIpAddressListGuard guard(list);
    return list.GetCount();
  }
  // A copy of the port, or one of name 0.
  CHbaEntry Found(std::uint64_t wwpn = kPort) {
    CHbaList& found = m_Cycle->found;
    const CHbaListGuard guard(found);
    const CHbaEntry* port = found.FindEntry(Name(wwpn).wwn);
    return port == nullptr ? CHbaEntry() : *port;
  }
  static bool IsListed(const CHbaEntry& port) { return WwpnKey(port.GetHbaInfo()->portWwn) != 0; }
  void Script(const char* call, std::vector<Step> steps) { m_Provider.scripted.Script(call, std::move(steps)); }
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
  std::shared_ptr<OobShared> m_Shared = std::make_shared<OobShared>();
  std::shared_ptr<OobCycle> m_Cycle;
  CZylTpThread* m_Worker = nullptr;
};

TEST_F(OobWorker, FilesAPortWithItsHost) {
  m_Provider.scripted.ports[kPort].nodes = {Node(0x5000)};
  Visit();
  const CHbaEntry port = Found();
  ASSERT_TRUE(IsListed(port));
  EXPECT_EQ(port.IsLocalPort(), 0);
  EXPECT_EQ(port.ProxyOnly(), 1);
  EXPECT_EQ(port.IsHbaInfoValid(), 1);
  EXPECT_EQ(port.GetLinkStatus(), 1U);
  EXPECT_EQ(port.GetTargetCount(), 1U);
  EXPECT_EQ(port.GetProxyIpInfo()->port, 23333);
  EXPECT_EQ(std::vector<int>(port.GetProxyAddress(), port.GetProxyAddress() + 8),
            (std::vector<int>{0xFF, 0, 23333 & 0xFF, 23333 >> 8, 10, 0, 0, 1}));
  EXPECT_EQ(
      m_Provider.log
          .Find(
              "OOB: Got info for adapter on system 'system of 10.0.0.1 - 10.0.0.1': vpdport#=n/a, phyport#=0, "
              "type=FC, model=model")
          .mask,
      kLogOob);
  EXPECT_EQ(m_Provider.log.Count("OOB: Link Status:  Physical=1, Function=0"), 1);
}

TEST_F(OobWorker, TargetModePortsHaveNoTargets) {
  m_Provider.scripted.ports[kPort].attributes[554] = Attribute::Number(1);
  Visit();
  EXPECT_TRUE(IsListed(Found()));
  EXPECT_EQ(Calls("RM_GetAllNodeInfo"), 0);
}

TEST_F(OobWorker, BusyHostsAreTriedFiveTimesAndTwiceWhenKnownUnreachable) {
  const std::vector<Step> busy(7, Step{RM_STATUS_BUSY});
  Script("RM_GetAllNodeAddr", busy);
  Visit();
  EXPECT_EQ(Calls("RM_GetAllNodeAddr"), 5);
  EXPECT_EQ(m_Provider.log.Count("OOB: RM_GetAllNodeAddr (host 10.0.0.1), retrying(5)"), 1);
  EXPECT_EQ(m_Provider.log.Count("OOB: RM_GetAllNodeAddr (host 10.0.0.1), retrying(1)"), 1);
  EXPECT_EQ(m_Provider.log.Find("OOB: RM_GetAllNodeAddr returned error 303 for 10.0.0.1").mask, kLogDetails);
  EXPECT_EQ(Unreachable(), 1U);
  Visit();
  EXPECT_EQ(Calls("RM_GetAllNodeAddr"), 7);
  EXPECT_EQ(Unreachable(), 1U);
  Visit();  // answers now
  EXPECT_EQ(Calls("RM_GetAllNodeAddr"), 8);
  EXPECT_EQ(Unreachable(), 0U);
  EXPECT_TRUE(IsListed(Found()));
}

TEST_F(OobWorker, RoomGrowsAsWanted) {
  std::vector<std::uint64_t> ports(300);
  for (std::size_t i = 0; i < ports.size(); ++i) ports[i] = kPort + i;
  m_Provider.SetPorts(kHost, ports);
  Visit();
  EXPECT_EQ(m_Provider.scripted.Rooms("RM_GetAllNodeAddr"), (std::vector<std::uint32_t>{256, 301}));
  EXPECT_TRUE(IsListed(Found()));
}

TEST_F(OobWorker, NeitherEndlessNorAbsurdGrowth) {
  std::vector<Step> steps;
  for (std::uint32_t i = 1; i <= 20; ++i) steps.push_back({RM_STATUS_MORE_DATA, 300 * i});
  Script("RM_GetAllNodeAddr", steps);
  Visit();
  EXPECT_EQ(Calls("RM_GetAllNodeAddr"), 9);
  Script("RM_GetAllNodeAddr", {{RM_STATUS_MORE_DATA, 65537}});
  Visit();
  Script("RM_GetAllNodeAddr", {{RM_STATUS_MORE_DATA, 256}});
  Visit();
  EXPECT_EQ(Calls("RM_GetAllNodeAddr"), 11);
  EXPECT_EQ(m_Provider.log.Count("OOB: RM_GetAllNodeAddr returned error 191 for 10.0.0.1"), 3);
}

TEST_F(OobWorker, LocalAndEmptyHostsAreSkipped) {
  m_Provider.localPorts = {kPort};
  Visit();
  EXPECT_EQ(m_Provider.log.Count("OOB: Trying to discover local host (10.0.0.1) HBAs - skipped"), 1);
  m_Provider.SetPorts(kHost, {});
  Visit();
  EXPECT_EQ(Calls("RM_GetDiscoveryAttributes"), 0);
}

TEST_F(OobWorker, AttributesAreRetriedByTheirOwnSet) {
  struct Row {
    int status;
    int calls;
  };
  for (const Row row : {Row{RM_STATUS_BUSY, 2}, Row{RM_STATUS_HOST_UNUSABLE, 2}, Row{RM_STATUS_FAILED, 2},
                        Row{500, 2}, Row{RM_STATUS_LOCKED, 1}, Row{RM_STATUS_TRY_AGAIN, 1}, Row{-5, 1}}) {
    const int before = Calls("RM_GetDiscoveryAttributes");
    Script("RM_GetDiscoveryAttributes", {{row.status}});
    Visit();
    EXPECT_EQ(Calls("RM_GetDiscoveryAttributes") - before, row.calls) << row.status;
    EXPECT_EQ(IsListed(Found()), row.calls == 2) << row.status;
  }
  EXPECT_EQ(m_Provider.log.Find("OOB: Did not get port attributes (host 10.0.0.1), error=64").mask,
            kLogDetails);
}

TEST_F(OobWorker, AnUnusableHostIsGivenUpOthersGoOn) {
  m_Provider.AddHost(kHost, {kPort, kPort + 1});
  Script("RM_GetDiscoveryAttributes", {{RM_STATUS_LOCKED}});
  Visit();
  EXPECT_TRUE(IsListed(Found(kPort + 1)));
  Script("RM_GetDiscoveryAttributes", std::vector<Step>(5, Step{RM_STATUS_HOST_UNUSABLE}));
  Visit();
  EXPECT_FALSE(IsListed(Found(kPort + 1)));
  EXPECT_EQ(m_Provider.log.Count("OOB: GetRemotePortAttr (host 10.0.0.1), retrying(1)"), 1);
}

TEST_F(OobWorker, AHotPortIsListedBare) {
  m_Provider.scripted.ports[kPort].nodes = {Node(0x5000)};
  Script("RM_GetDiscoveryAttributes", {{RM_STATUS_OVER_TEMPERATURE}});
  Visit();
  EXPECT_EQ(Found().GetLinkStatus(), kLinkOverTemperature);
  EXPECT_EQ(Calls("RM_GetAllNodeInfo"), 0);
}

TEST_F(OobWorker, APortWhoseStatusIsTheHotLinkStatusIsReportedButNotListed) {
  const int status = static_cast<int>(kLinkOverTemperature);
  Script("RM_GetDiscoveryAttributes", {{status}});
  Visit();
  EXPECT_FALSE(IsListed(Found()));
  EXPECT_EQ(Calls("RM_GetDiscoveryAttributes"), 1);
  EXPECT_EQ(Calls("RM_GetAllNodeInfo"), 1);
  EXPECT_EQ(m_Provider.log.Count("OOB: Temperature is above optimal range!!!"), 1);
  EXPECT_EQ(
      m_Provider.log.Count("OOB: Did not get port attributes (host 10.0.0.1), error=" + std::to_string(status)),
      1);
}

// The older attribute call knows no link status.
TEST_F(OobWorker, LinkStatusIsAskedForOnlyWhenUnknown) {
  Visit();
  EXPECT_EQ(Calls("RM_GetPortAttributes"), 0);
  Script("RM_GetDiscoveryAttributes", {{RM_STATUS_NOT_SUPPORTED}});
  Script("RM_GetPortAttributes", {{RM_STATUS_LOCKED}, {RM_STATUS_BUSY}, {RM_STATUS_FAILED}});
  Visit();
  EXPECT_EQ(Found().GetLinkStatus(), 1U);
  EXPECT_EQ(Calls("RM_GetPortAttributes"), 4);
  Script("RM_GetDiscoveryAttributes", {{RM_STATUS_NOT_SUPPORTED}});
  Script("RM_GetPortAttributes", {{RM_STATUS_OVER_TEMPERATURE}});
  Visit();
  EXPECT_EQ(Found().GetLinkStatus(), kLinkOverTemperature);  // and listed all the same
  CHbaEntry local(Name(kPort).wwn);
  EXPECT_EQ(COOBHbaDiscover::GetPortLinkStatus(&local, nullptr), 0U);
}

TEST_F(OobWorker, IPv6HostsAreReachedByTheProvidersHandle) {
  m_Provider.AddHost("fe80::1", {kPort});
  Visit("fe80::1");
  EXPECT_EQ(WwpnKey(Found().GetProxyAddress()), 0x5555555555555555U);
  const int before = Calls("RM_GetAllNodeAddr");
  Script("RM_AddOOBAddressToLookupTable", {{RM_STATUS_FAILED}});
  Visit("fe80::1");  // without a handle this host would be asked
  EXPECT_EQ(Calls("RM_GetAllNodeAddr"), before);
  Script("RM_AddOOBAddressToLookupTable", {{RM_STATUS_FAILED}});
  Visit();
  EXPECT_TRUE(IsListed(Found()));
}

TEST_F(OobWorker, AStoppedWorkerFilesNothing) {
  m_Provider.scripted.OnCall("RM_GetDiscoveryAttributes", [this] { m_Worker->Disable(); });
  Visit();
  EXPECT_FALSE(IsListed(Found()));
  m_Provider.scripted.OnCall("RM_GetAllNodeAddr", [this] { m_Worker->Disable(); });
  Script("RM_GetAllNodeAddr", {{RM_STATUS_FAILED}});
  Visit();
  EXPECT_EQ(Unreachable(), 0U);
  m_Provider.scripted.OnCall("RM_GetAllNodeAddr", [] {});
  Script("RM_GetAllNodeAddr", {{RM_STATUS_FAILED}});
  Visit();  // the same failure of one that goes on; it is not retried
  EXPECT_EQ(Unreachable(), 1U);
  EXPECT_EQ(Calls("RM_GetAllNodeAddr"), 3);
}

}  // namespace

// Remote hosts through the exported interface: real agents on loopback, the hosts file, callbacks.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include "provider/OpenProvider.h"
#include "tests/support/Testing.h"
#include "tests/system/Agent.h"
#include "tests/system/Fabric.h"

namespace systemtest {
namespace {

using Clock = std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Key;
using testing::UnorderedElementsAre;

constexpr unsigned int kLong = 3600;
constexpr unsigned int kShort = 5;
constexpr char kLocal[] = "1000000000000001";
constexpr char kNear[] = "1000000000000011";
constexpr char kFar[] = "1000000000000021";
constexpr char kCycleDone[] = "OOB DISCOVERY CYCLE DONE";

struct HostList {
  hbadisc_oob_host_list header{};
  hbadisc_oob_host hosts[4]{};
};
static_assert(offsetof(HostList, hosts) == 8);

class RemoteHosts : public testing::Test {
 protected:
  RemoteHosts() {
    m_Fabric.AddRemote(m_NearHost, "near", {FcBoard(kNear)});
    m_Fabric.AddRemote(m_FarHost, "far", {FcBoard(kFar), IscsiBoard("1000000000000022")});
    m_Fabric.Write();
  }
  void ListHosts(const std::string& text) { WriteFile(m_HostsFile, text); }
  void Load() {
    m_Library = std::make_unique<Library>(m_Fabric.Path());
    const auto setInstallDir = m_Library->Symbol<decltype(&RMOpen_SetInstallDir)>("RMOpen_SetInstallDir");
    ASSERT_EQ(setInstallDir(Scratch("").c_str()), 0);
  }
  void Start(unsigned int interval, unsigned int oobInterval) {
    Load();
    m_CallBacks = std::make_unique<CallBacks>(*m_Library, HBADISC_EVENT_FORCED | HBADISC_EVENT_CHANGED);
    m_Library->StartupEx(interval, oobInterval, 0);
  }
  void StartAgent() { m_Agent = std::make_unique<Agent>(m_Fabric.Path(), m_NearHost); }
  std::string HostsFile() const {
    std::ifstream file(m_HostsFile);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const std::string m_NearHost = LoopbackAddress(1);
  const std::string m_FarHost = LoopbackAddress(2);
  const std::string m_DeadHost = LoopbackAddress(3);
  const std::string m_HostsFile = Scratch("hbahosts.lst");
  Log m_Log;
  Fabric m_Fabric{{FcBoard(kLocal)}};
  std::unique_ptr<Agent> m_Agent;
  std::unique_ptr<Library> m_Library;
  std::unique_ptr<CallBacks> m_CallBacks;
};

TEST_F(RemoteHosts, FirstCallbackHasLocalAndRemotePorts) {
  ListHosts("# two and a dead one\n" + m_NearHost + "\n" + m_FarHost + ":23333 # far\n" + m_DeadHost +
            "\nrubbish\n");
  StartAgent();
  Start(kLong, kLong);
  EXPECT_THAT(m_CallBacks->Await(1), ElementsAre(6));
  const auto ports = m_Library->Ports();
  EXPECT_THAT(ports, UnorderedElementsAre(Key(kLocal), Key(kNear), Key(kFar), Key("1000000000000022")));
  const hba_discovery_info_V3& near = ports.at(kNear);
  EXPECT_EQ(near.base.base.isLocal, 0U);
  EXPECT_STREQ(near.base.base.port.hostName, "near");
  in_addr address{};
  inet_pton(AF_INET, m_NearHost.c_str(), &address);
  EXPECT_EQ(std::memcmp(near.base.base.proxyAddress + 4, &address, 4), 0);
  EXPECT_TRUE(m_Log.Has("OOB: Adding host " + m_NearHost + " to host list"));
  EXPECT_TRUE(m_Log.Has("Main Discovery: Waiting for OOB discovery to complete"));
  EXPECT_TRUE(m_Log.Has("OOB DISCOVERY CYCLE DONE (3)\n"));
  discovery_iscsi_names names{};
  EXPECT_EQ(m_Library->GetiSCSINames(Name("1000000000000022"), &names), 1);
  EXPECT_THAT(names.initiatorName, HasSubstr("iqn."));
  m_Library->Terminate();
  EXPECT_TRUE(m_Log.Has("OOB main discovery thread terminated"));
}

TEST_F(RemoteHosts, PeriodicCyclesFollowTheAgents) {
  ListHosts(m_NearHost + "\n");
  StartAgent();
  Start(kLong, kShort);
  ASSERT_THAT(m_CallBacks->Await(1), ElementsAre(6));
  m_Fabric.Remote(0)["boards"][0]["targets"].push_back({{"wwpn", "50000000000000aa"}});
  m_Fabric.Write();
  EXPECT_THAT(m_CallBacks->Await(2), ElementsAre(6, 4)) << "a new target";
  EXPECT_EQ(m_Library->Ports().at(kNear).base.base.targetCount, 1U);
  m_Agent->Kill();
  EXPECT_THAT(m_CallBacks->Await(3), ElementsAre(6, 4, 4)) << "gone";
  EXPECT_THAT(m_Library->Ports(), ElementsAre(Key(kLocal)));
  StartAgent();
  EXPECT_THAT(m_CallBacks->Await(4), ElementsAre(6, 4, 4, 4)) << "back";
  EXPECT_THAT(m_Library->Ports(), ElementsAre(Key(kLocal), Key(kNear)));
  // Pausing ends both kinds of cycles; the interval does not bring them back, a forced cycle does.
  m_Library->PauseDiscovery();
  m_Agent->Kill();
  const std::size_t cycles = m_Log.Count(kCycleDone);
  m_Library->ChangeOOBDiscoveryInterval(kShort);
  EXPECT_EQ(m_CallBacks->Await(5, Milliseconds(1500)).size(), 4U);
  EXPECT_EQ(m_Log.Count(kCycleDone), cycles);
  EXPECT_EQ(m_Library->StartDiscoveryCycle(), 1);
  EXPECT_EQ(m_CallBacks->Await(5).back(), 6U);
  EXPECT_THAT(m_Library->Ports(), ElementsAre(Key(kLocal)));
}

TEST_F(RemoteHosts, HostsAreAddedAndRemoved) {
  Load();
  EXPECT_EQ(m_Library->AddOOBHostA(m_NearHost.c_str()), 1) << "there is no controller";
  EXPECT_EQ(m_Library->RemoveOOBHostA(m_NearHost.c_str()), 0);
  StartAgent();
  m_Library->StartupEx(0, 0, 0);
  for (const char* refused : {"", "   ", "10.0.0.5:80", "10.0.0.5:70000", "10.0.0.5:23x", "[]:23333", "[::1",
                              "no.such.host.invalid"}) {
    EXPECT_EQ(m_Library->AddOOBHostA(refused), -1) << refused;
  }
  EXPECT_EQ(m_Library->AddOOBHostA(nullptr), -1);
  EXPECT_EQ(m_Library->AddOOBHostA("0.0.0.0"), 0);
  EXPECT_EQ(m_Library->AddOOBHostA("36913691"), 0);
  EXPECT_EQ(m_Library->AddOOBHostA(m_DeadHost.c_str()), 2);
  EXPECT_EQ(m_Library->AddOOBHostW(L"10.0.0.5"), 1);
  EXPECT_EQ(HostsFile(), "");

  EXPECT_EQ(m_Library->AddOOBHostA(m_NearHost.c_str()), 0);
  EXPECT_EQ(m_Library->AddOOBHostA((" " + m_FarHost + ":23333").c_str()), 0);
  EXPECT_EQ(m_Library->AddOOBHostA((m_NearHost + ":23333").c_str()), -3);
  HostList list;
  list.header.count = 1;
  EXPECT_EQ(m_Library->GetOOBHostList(nullptr), 1);
  EXPECT_EQ(m_Library->GetOOBHostList(&list.header), 1);
  EXPECT_EQ(list.header.count, 2U);
  EXPECT_STREQ(list.hosts[0].name, "near");
  EXPECT_STREQ(list.hosts[1].host, "");
  list.header.count = 4;
  EXPECT_EQ(m_Library->GetOOBHostList(&list.header), 0);
  EXPECT_STREQ(list.hosts[1].host, (m_FarHost + ":23333").c_str());
  EXPECT_STREQ(list.hosts[1].name, "far");

  EXPECT_EQ(m_Library->RemoveOOBHostW(L"10.0.0.5"), 1);
  EXPECT_EQ(m_Library->RemoveOOBHostA((m_FarHost + ":23333").c_str()), 1);
  EXPECT_EQ(m_Library->RemoveOOBHostA(m_FarHost.c_str()), 0);
  EXPECT_THAT(HostsFile(), HasSubstr("# near\n"));
  m_Library->Terminate();
}

TEST_F(RemoteHosts, CimHostsComeFromTheirFile) {
  WriteFile(Scratch("zylhbacimhosts.so"), "10.0.0.9, 5989, a, b, c, p,w\n# none\n10.0.0.10\n");
  Load();
  unsigned int count = 0;
  EXPECT_EQ(m_Library->GetCimCount(&count), 0);
  EXPECT_EQ(count, 2U);
  CIMCredentials first{};
  CIMCredentials second{};
  CIMCredentials* entries[] = {&first, &second};
  EXPECT_EQ(m_Library->GetCimEntries(2, entries), 0);
  EXPECT_STREQ(first.credential3, "c");
  EXPECT_EQ(first.password[0], 'p' ^ 0x5C);
  EXPECT_EQ(second.port, 5988U);
  EXPECT_EQ(m_Library->UpdateCimEntries(), 0);
  EXPECT_EQ(m_Library->AddCimHost(&first), 1);
  m_Library->StartupEx(0, 0, 0);
  EXPECT_EQ(m_Library->AddCimHost(&first), -1);
  EXPECT_EQ(m_Library->RemoveCimHost(&first), 1);
  EXPECT_EQ(m_Library->GetCimCount(&count), 0);
  EXPECT_EQ(count, 1U);
  m_Library->Terminate();
}

TEST_F(RemoteHosts, StopDoesNotWaitForAHostThatHangs) {
  m_Fabric.Remote(0)["faults"] = {{{"call", "RM_GetAllNodeInfo"}, {"hang", true}}};
  m_Fabric.Write();
  ListHosts(m_NearHost + "\n" + m_FarHost + "\n");
  StartAgent();
  Start(kLong, kLong);
  EXPECT_THAT(m_CallBacks->Await(1), ElementsAre(20)) << "what is there while one host hangs";
  EXPECT_THAT(m_Library->Ports(), ElementsAre(Key(kLocal), Key(kFar), Key("1000000000000022")));
  const Clock::time_point begin = Clock::now();
  m_Library->Terminate();
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
}

TEST_F(RemoteHosts, CallbackMayMakeEveryCall) {
  ListHosts(m_NearHost + "\n");
  StartAgent();
  Start(kLong, kShort);
  ASSERT_THAT(m_CallBacks->Await(1), ElementsAre(6));
  std::atomic<int> inside{0};
  m_CallBacks->Inside([&](unsigned int) {
    if (inside++ != 0) return;
    m_Library->KillDiscoveryCycle();
    m_Library->ChangeOOBDiscoveryInterval(0);
    m_Library->PauseDiscovery();
    m_Library->StartDiscoveryCycle();
    m_Library->AddOOBHostA(m_FarHost.c_str());
    m_Library->Ports();
    m_Library->Terminate();
  });
  m_Agent->Kill();
  EXPECT_GE(m_CallBacks->Await(3).size(), 3U);
  m_Library->Terminate();
}

TEST_F(RemoteHosts, BearsAllCallsAtOnce) {
  ListHosts(m_NearHost + "\n");
  StartAgent();
  Start(kLong, kShort);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < 10; ++i) {
        if (thread == 0) m_Library->StartDiscoveryCycle();
        if (thread == 1) m_Library->AddOOBHostA(m_FarHost.c_str());
        if (thread == 1) m_Library->RemoveOOBHostA(m_FarHost.c_str());
        if (thread == 2) m_Library->Ports();
        if (thread == 3) m_Library->ChangeOOBDiscoveryInterval(kShort + static_cast<unsigned int>(i));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(Eventually([&] { return m_Library->Ports().count(kNear) == 1; }));
  EXPECT_THAT(HostsFile(), HasSubstr(m_NearHost));
  m_Library->Terminate();
}

}  // namespace
}  // namespace systemtest

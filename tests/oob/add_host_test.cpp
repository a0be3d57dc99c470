// Hosts that an application adds and removes.

#include "log/DiscoveryLog.h"
#include "oob/OobHbaDiscover.h"
#include "tests/oob/remote_provider.h"
#include "tests/support/Owner.h"
#include "tests/support/Testing.h"
#include "tests/support/Waiting.h"

namespace {

// The host's line with the name that hosts have, or another one.
std::string Line(std::string host, const std::string& name = "# server7") {
  host.resize(48, ' ');
  return host + name + "\n";
}

class Hosts : public testing::Test {
 protected:
  Hosts() {
    m_Provider.SetPorts("10.0.0.1", {kPort});
    m_Discoverer.Startup(0);
    // The only cycle; it would take part in what the tests script.
    EXPECT_TRUE(Eventually([this] { return m_Discoverer.getOOBThreadState() == (kOobRunning | kOobEnabled); }));
  }
  int Add(const std::string& host) { return m_Discoverer.AddOOBHost(host.c_str()); }
  int Remove(const std::string& host) { return m_Discoverer.RemoveOOBHost(host.c_str()); }
  void Script(const char* call, const std::vector<Step>& steps) { m_Provider.scripted.Script(call, steps); }
  void SetName(const std::string& name) { m_Provider.serverAttributes[257] = Attribute::Text(name); }

  RemoteProvider m_Provider;
  Owner m_Owner;
  COOBHbaDiscover m_Discoverer{&m_Owner, "/nonexistent"};
};

TEST_F(Hosts, AreAddedAndRemoved) {
  m_Provider.SetPorts("fe80::1", {kPort});
  EXPECT_EQ(Add(" \t10.0.0.1:0x400"), 0);
  EXPECT_EQ(Add("10.0.0.1"), -3);
  EXPECT_EQ(Add("[fe80::1]:65535"), 0);
  EXPECT_EQ(Add("fe80:0::1"), -3);      // compared in the provider's own text
  EXPECT_EQ(Add("[fe80::1]:2000"), 0);  // never found again
  const std::string all = Line("10.0.0.1:1024") + Line("[fe80::1]:65535") + Line("[fe80::1]:2000");
  EXPECT_EQ(m_Provider.HostsFile(), all);
  EXPECT_EQ(m_Discoverer.CheckDuplicateOOBHostEntry("10.0.0.1"), 1);

  // Removed by text alone.
  for (const char* none : {"", " 10.0.0.1", "10.0.0.2", "fe80:0::1", "[fe80::1"}) {
    EXPECT_EQ(Remove(none), 0) << none;
  }
  EXPECT_EQ(m_Discoverer.RemoveOOBHost(nullptr), 0);
  EXPECT_EQ(m_Provider.HostsFile(), all);
  EXPECT_EQ(Remove("[fe80::1]:1"), 1);
  EXPECT_EQ(m_Provider.HostsFile(), Line("10.0.0.1:1024"));
  EXPECT_EQ(m_Provider.Registered(), (std::set<std::string>{"10.0.0.1"}));
  Script("RM_RemoteOOBHostAddrV2", {{RM_STATUS_FAILED}});
  EXPECT_EQ(Remove("10.0.0.1:99"), 1);  // the line goes, whether or not it resolves
  EXPECT_EQ(m_Provider.HostsFile(), "");
  EXPECT_EQ(m_Provider.Registered(), (std::set<std::string>{"10.0.0.1"}));
}

TEST_F(Hosts, ThatDoNotAnswerAsTheyShould) {
  Script("RM_GetAllNodeAddr", {{RM_STATUS_BUSY}, {RM_STATUS_BUSY}});
  EXPECT_EQ(Add("10.0.0.1"), 2);
  EXPECT_EQ(m_Provider.log.Count("OOB: AddOOBHost 10.0.0.1, retrying (2)"), 1);
  EXPECT_EQ(m_Provider.log.Count("OOB: AddOOBHost 10.0.0.1, retrying (1)"), 1);
  EXPECT_EQ(m_Provider.log.Find("OOB: AddOOBHost 10.0.0.1, error 303").mask, kLogOobAdd | kLogDetails);
  EXPECT_EQ(m_Provider.Registered(), (std::set<std::string>{}));
  EXPECT_EQ(Add("10.0.0.7"), 2);  // answers, but has no port; stays registered
  EXPECT_EQ(m_Provider.Registered(), (std::set<std::string>{"10.0.0.7"}));
  m_Provider.localPorts = {kPort};
  EXPECT_EQ(Add("10.0.0.1"), -4);
  m_Provider.localPorts = {};
  for (const char* name : {"", "\nname"}) {
    SetName(name);
    EXPECT_EQ(Add("10.0.0.1"), 2);
  }
  EXPECT_EQ(m_Provider.HostsFile(), "");
}

TEST_F(Hosts, BringTheirNameIntoTheLine) {
  m_Provider.SetPorts("10.0.0.1", {kPort, kPort + 1});
  Script("RM_GetServerAttributes", {{RM_STATUS_FAILED}});
  SetName("bad\n10.6.6.6");
  EXPECT_EQ(Add("10.0.0.1"), 0);
  EXPECT_EQ(m_Provider.HostsFile(), Line("10.0.0.1", "# bad"));
  EXPECT_EQ(Remove("10.0.0.1"), 1);
  SetName(std::string(973, 'n'));  // with the host and three more it no longer fits
  EXPECT_EQ(Add("10.0.0.1"), 0);
  EXPECT_EQ(m_Provider.HostsFile(), Line("10.0.0.1", ""));

  // No failure of one port ends the search.
  EXPECT_EQ(Remove("10.0.0.1"), 1);
  std::vector<std::uint64_t> ports(300);
  for (std::size_t i = 0; i < ports.size(); ++i) ports[i] = kPort + i;
  m_Provider.SetPorts("10.0.0.1", ports);
  std::vector<Step> failures(298, {RM_STATUS_BUSY});
  failures.push_back({RM_STATUS_HOST_UNUSABLE});
  Script("RM_GetServerAttributes", failures);
  EXPECT_EQ(Add("10.0.0.1"), 0);
  EXPECT_EQ(m_Provider.scripted.Calls("RM_GetServerAttributes"), 300);

  std::filesystem::remove(m_Provider.folder / "hbahosts.lst");
  std::filesystem::create_directory(m_Provider.folder / "hbahosts.lst");
  EXPECT_EQ(Add("10.0.0.1"), -2);
}

}  // namespace

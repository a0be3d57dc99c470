// A host that hangs behind a host that does not.
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "provider/WorldWideName.h"
#include "provider/sysfs/TimeLimitedHost.h"
#include "tests/sysfs/Describe.h"

namespace sysfs_test {

using provider::Answer;
using provider::Attributes;
using provider::Host;
using provider::IscsiNames;
using provider::ListAnswer;
using provider::Wwn;

namespace {

const Wwn kSick = Name(1);
const Wwn kHealthy = Name(2);
const Wwn kThrowing = Name(3);
constexpr unsigned int kSickBoard = 1;

constexpr std::chrono::milliseconds kShort{50};
constexpr std::chrono::seconds kLong{20};

// Writes down what it is asked, and hangs while its gate is shut when it is asked about the sick port.
class ScriptedHost final : public Host {
 public:
  ~ScriptedHost() override { m_IsGone.set_value(); }

  ListAnswer<unsigned int> BoardInstances() override {
    Asked("BoardInstances");
    return {RM_STATUS_OK, {4}, 9};
  }
  Answer<provider::Board> ReadBoard(unsigned int instance) override {
    Asked("ReadBoard " + std::to_string(instance));
    if (instance == kSickBoard) m_Opened.wait();
    return {RM_STATUS_OVER_TEMPERATURE, {}};
  }
  bool HasPort(const Wwn& wwn) override { return Of<Answer<bool>>("HasPort", wwn, 1).status == 1; }
  bool IsMakersPort(const Wwn& wwn) override { return Of<Answer<bool>>("IsMakersPort", wwn, 1).status == 1; }
  Answer<Attributes> DiscoveryAttributes(const Wwn& wwn) override {
    return Of<Answer<Attributes>>("DiscoveryAttributes", wwn, 501);
  }
  Answer<Attributes> HbaAttributes(const Wwn& wwn) override {
    return Of<Answer<Attributes>>("HbaAttributes", wwn, 502);
  }
  Answer<Attributes> PortAttributes(const Wwn& wwn) override {
    return Of<Answer<Attributes>>("PortAttributes", wwn, 503);
  }
  Answer<Attributes> ServerAttributes(const Wwn& wwn) override {
    return Of<Answer<Attributes>>("ServerAttributes", wwn, 504);
  }
  Answer<std::uint32_t> DriverType(const Wwn& wwn) override {
    return Of<Answer<std::uint32_t>>("DriverType", wwn, 505);
  }
  Answer<std::uint32_t> BindType(const Wwn& wwn) override {
    return Of<Answer<std::uint32_t>>("BindType", wwn, 506);
  }
  Answer<IscsiNames> InitiatorProperties(const Wwn& wwn) override {
    return Of<Answer<IscsiNames>>("InitiatorProperties", wwn, 507);
  }
  ListAnswer<RM_NodeInfoEntry> Nodes(const Wwn& wwn) override {
    ListAnswer<RM_NodeInfoEntry> answer = Of<ListAnswer<RM_NodeInfoEntry>>("Nodes", wwn, RM_STATUS_OK);
    answer.records.resize(2);
    return answer;
  }
  ListAnswer<RM_VPortEntry> VirtualPorts(const Wwn& wwn) override {
    return Of<ListAnswer<RM_VPortEntry>>("VirtualPorts", wwn, 508);
  }
  ListAnswer<RM_VPortTargetEntry> VirtualPortTargets(const Wwn& wwn, const Wwn& vportWwn) override {
    return Of<ListAnswer<RM_VPortTargetEntry>>("VirtualPortTargets " + provider::FormatWwn(vportWwn), wwn, 509);
  }
  ListAnswer<_RM_ISCSI_TARGET> IscsiTargets(const Wwn& wwn, bool refresh) override {
    return Of<ListAnswer<_RM_ISCSI_TARGET>>(refresh ? "IscsiTargets afresh" : "IscsiTargets", wwn, 510);
  }
  ListAnswer<HBA_NAME> VirtualFunctions(const Wwn& wwn) override {
    return Of<ListAnswer<HBA_NAME>>("VirtualFunctions", wwn, 511);
  }
  Answer<bool> SecureManagement() override { return {RM_STATUS_OK, true}; }

  void Open() {
    if (!std::exchange(m_IsOpen, true)) m_Gate.set_value();
  }
  // Ready when nobody has the host any more.
  std::future<void> Gone() { return m_IsGone.get_future(); }
  std::vector<std::string> Questions() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Questions;
  }

 private:
  void Asked(const std::string& question) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Questions.push_back(question);
  }
  template <class Result>
  Result Of(const std::string& question, const Wwn& wwn, int status) {
    Asked(question + ' ' + provider::FormatWwn(wwn));
    if (wwn == kSick) m_Opened.wait();
    if (wwn == kThrowing) throw std::runtime_error("no memory");
    Result result;
    result.status = status;
    return result;
  }

  std::mutex m_Mutex;
  std::vector<std::string> m_Questions;
  std::promise<void> m_Gate;
  const std::shared_future<void> m_Opened = m_Gate.get_future().share();
  bool m_IsOpen = false;
  std::promise<void> m_IsGone;
};

}  // namespace

class TimeLimit : public testing::Test {
 protected:
  // What a call left behind ends when the gate opens; it must not outlast the test.
  void TearDown() override {
    m_Scripted->Open();
    m_Limited.reset();
    std::future<void> gone = m_Scripted->Gone();
    m_Scripted.reset();
    EXPECT_EQ(gone.wait_for(kLong), std::future_status::ready);
  }

  void Limit(std::chrono::milliseconds limit) {
    m_Limited = std::make_unique<provider::TimeLimitedHost>(m_Scripted, limit);
  }

  std::shared_ptr<ScriptedHost> m_Scripted = std::make_shared<ScriptedHost>();
  std::unique_ptr<Host> m_Limited;
};

TEST_F(TimeLimit, OneSickPortHoldsUpNobodyElse) {
  Limit(kShort);
  EXPECT_EQ(m_Limited->Nodes(kSick).status, RM_STATUS_LOCKED);
  EXPECT_TRUE(m_Limited->Nodes(kSick).records.empty());
  EXPECT_EQ(m_Limited->VirtualPorts(kSick).status, RM_STATUS_LOCKED);
  EXPECT_FALSE(m_Limited->HasPort(kSick));
  EXPECT_EQ(m_Limited->Nodes(kHealthy).records.size(), 2u);
  // The one call that is left behind is enough, the others were not even asked.
  EXPECT_EQ(m_Scripted->Questions(),
            (std::vector<std::string>{"Nodes 00:00:00:00:00:00:00:01", "Nodes 00:00:00:00:00:00:00:02"}));
}

TEST_F(TimeLimit, APortIsAskedAgainWhenTheOverdueCallIsOver) {
  Limit(kShort);
  EXPECT_EQ(m_Limited->ReadBoard(kSickBoard).status, RM_STATUS_LOCKED);
  EXPECT_EQ(m_Limited->ReadBoard(kSickBoard + 1).status, RM_STATUS_OVER_TEMPERATURE);
  m_Scripted->Open();
  const auto deadline = std::chrono::steady_clock::now() + kLong;
  int status = RM_STATUS_LOCKED;
  while (status == RM_STATUS_LOCKED && std::chrono::steady_clock::now() < deadline) {
    status = m_Limited->ReadBoard(kSickBoard).status;
    std::this_thread::yield();
  }
  EXPECT_EQ(status, RM_STATUS_OVER_TEMPERATURE);
}

TEST_F(TimeLimit, MayBeDestroyedWhileACallIsOverdue) {
  Limit(kShort);
  EXPECT_EQ(m_Limited->Nodes(kSick).status, RM_STATUS_LOCKED);
  m_Limited.reset();
}

TEST_F(TimeLimit, AHostThatThrowsIsTryAgain) {
  Limit(kLong);
  EXPECT_EQ(m_Limited->Nodes(kThrowing).status, RM_STATUS_LOCKED);
  EXPECT_FALSE(m_Limited->HasPort(kThrowing));
}

TEST_F(TimeLimit, EveryQuestionReachesTheHostWithItsArguments) {
  Limit(kLong);
  EXPECT_EQ(m_Limited->BoardInstances().claimedCount, 9u);
  EXPECT_EQ(m_Limited->ReadBoard(4).status, RM_STATUS_OVER_TEMPERATURE);
  EXPECT_TRUE(m_Limited->HasPort(kHealthy));
  EXPECT_TRUE(m_Limited->IsMakersPort(kHealthy));
  EXPECT_EQ(m_Limited->DiscoveryAttributes(kHealthy).status, 501);
  EXPECT_EQ(m_Limited->HbaAttributes(kHealthy).status, 502);
  EXPECT_EQ(m_Limited->PortAttributes(kHealthy).status, 503);
  EXPECT_EQ(m_Limited->ServerAttributes(kHealthy).status, 504);
  EXPECT_EQ(m_Limited->DriverType(kHealthy).status, 505);
  EXPECT_EQ(m_Limited->BindType(kHealthy).status, 506);
  EXPECT_EQ(m_Limited->InitiatorProperties(kHealthy).status, 507);
  EXPECT_EQ(m_Limited->VirtualPorts(kHealthy).status, 508);
  EXPECT_EQ(m_Limited->VirtualPortTargets(kHealthy, kSick).status, 509);
  EXPECT_EQ(m_Limited->IscsiTargets(kHealthy, true).status, 510);
  EXPECT_EQ(m_Limited->VirtualFunctions(kHealthy).status, 511);
  EXPECT_TRUE(m_Limited->SecureManagement().value);
  const std::string name = " 00:00:00:00:00:00:00:02";
  EXPECT_EQ(m_Scripted->Questions(),
            (std::vector<std::string>{"BoardInstances", "ReadBoard 4", "HasPort" + name, "IsMakersPort" + name,
                                      "DiscoveryAttributes" + name, "HbaAttributes" + name,
                                      "PortAttributes" + name, "ServerAttributes" + name, "DriverType" + name,
                                      "BindType" + name, "InitiatorProperties" + name, "VirtualPorts" + name,
                                      "VirtualPortTargets 00:00:00:00:00:00:00:01" + name,
                                      "IscsiTargets afresh" + name, "VirtualFunctions" + name}));
}

}  // namespace sysfs_test

#include "inband/PortDiscovery.h"
#include "tests/support/RecordedLog.h"
#include "tests/support/ScriptedProvider.h"
#include "tests/support/Testing.h"
#include "tests/support/Waiting.h"

namespace {

constexpr std::uint64_t kVPort = 0x2100000000000000;
constexpr char kAttributeCall[] = "RM_GetDiscoveryAttributes";

class Worker : public testing::Test {
 protected:
  ~Worker() override { m_Worker.Terminate(); }

  // A port to visit; whoever reads its attributes finds a host and a link.
  CHbaEntry AddPort(std::uint64_t number, bool valid, std::uint32_t modelFlags = 0) {
    HBA_info_v4 info = Info(kPort + number);
    info.modelId = modelFlags;
    CHbaEntry port = MakePort(info);
    if (valid) port.SetHbaInfoValid();
    m_Provider.ports[kPort + number].attributes = {
        {513, Attribute::Text("host-a")}, {553, Attribute::Text("1")}, {774, Attribute::Number(1)}};
    Add(*m_Visit, port);
    HbaListGuard guard(*m_Visit);
    m_Visit->SelectFirstEntry();
    return port;
  }
  // The port is listed already.
  void AddToDestination(const CHbaEntry& port) {
    Add(*m_Destination, port);
    m_Destination->SetModified(0);
  }

  // The signal is given before the thread exists, so that no test waits for a slice to end.
  void Start() {
    m_Params->Set(m_Visit, m_Destination, m_Slow);
    m_Worker.Enable();
    m_Worker.Create(
        [](void* self) -> void* {
          auto& test = *static_cast<Worker*>(self);
          PortDiscoveryThreadProc(&test.m_Worker, test.m_Params.get());
          return nullptr;
        },
        this, 0, 0);
  }
  // Lets the worker visit the ports, and returns what is listed of the first one then.
  CHbaEntry Visit() {
    Start();
    EXPECT_TRUE(Eventually([&] { return m_Worker.IsIdle() != 0; }));
    return Listed(*m_Destination, kPort);
  }

  RecordedLog m_Log;
  ScriptedProvider m_Provider;
  ScriptedPort& m_Port = m_Provider.ports[kPort];
  std::shared_ptr<CHbaList> m_Visit = std::make_shared<CHbaList>();
  std::shared_ptr<CHbaList> m_Destination = std::make_shared<CHbaList>();
  std::shared_ptr<CHbaList> m_Slow = std::make_shared<CHbaList>();
  std::shared_ptr<PortDiscoveryParams> m_Params = std::make_shared<PortDiscoveryParams>();
  CZylTpThread m_Worker;
};

TEST_F(Worker, PutsPortsThatFailOnTheSlowList) {
  for (std::uint64_t i = 0; i < 4; ++i) AddPort(i, false);
  m_Provider.ports[kPort + 3].attributes[556] = Attribute::Number(1);
  // Port 0 is tried to the end, port 1 once, port 2 once though it was read; port 3 is iSCSI without names.
  m_Provider.Script(kAttributeCall, {{64}, {64}, {64}, {64}, {64}, {5}, {231}, {2}, {2}, {2}, {2}, {2}});
  m_Provider.Script("RM_iSCSI_GetInitiatorProperties", std::vector<Step>(5, {9}));
  const Stopwatch watch;
  Visit();
  EXPECT_GE(watch.Elapsed().count(), 1000) << "a pause after each of ten tries";
  EXPECT_EQ(m_Provider.Calls(kAttributeCall), 12);
  EXPECT_EQ(m_Slow->GetCount(), 4U);
  EXPECT_EQ(m_Destination->GetCount(), 0U);
  EXPECT_EQ(m_Log.Find("RM_GetHBAAttributes() error 64, ").mask, 1U);
  EXPECT_EQ(m_Log.Count("RM_GetHBAAttributes() error 5, "), 1);
  EXPECT_EQ(m_Log.Count("RM_GetHBAAttributes() error 231, "), 1);
  EXPECT_EQ(m_Log.Count("RM_GetHBAAttributes() error 250, "), 1) << "506, of which 8 bits are shown";
  EXPECT_EQ(m_Log.Count("put on slow discovery list"), 4);
  EXPECT_EQ(Listed(*m_Slow, kPort + 2).GetLinkStatus(), 0xEE000000U);
}

TEST_F(Worker, PutsExactlyWhatWasReadIntoAListedPort) {
  CHbaEntry listed = AddPort(0, false);
  listed.SetDiscoveryMark(8);
  listed.SetLinkStatus(7);
  listed.SetOldTargetCount(5);
  AddToDestination(listed);
  m_Port.nodes = {Node(kTarget)};
  m_Port.vports = {{kVPort, 0, {RM_VPortTargetEntry{}}}};
  m_Port.bindType = 4;
  CHbaEntry now = Visit();
  EXPECT_EQ(now.GetTargetCount(), 1U);
  EXPECT_EQ(now.GetVPortCount(), 1U);
  EXPECT_EQ(now.GetTargetBindType(), 4U);
  EXPECT_EQ(now.GetTargetMapRetries(), 0U);
  EXPECT_EQ(m_Destination->IsModified(), 1);
  EXPECT_EQ(now.GetDiscoveryMark(), 8U);
  EXPECT_EQ(now.GetLinkStatus(), 7U);
  EXPECT_EQ(now.GetOldTargetCount(), 5U);
  EXPECT_EQ(now.IsHbaInfoValid(), 0);
  EXPECT_STREQ(now.GetHbaInfo()->hostName, "host") << "the attributes just read are not carried over";
  EXPECT_EQ(m_Log.Count("Got 1 targets (oldcount=5) for HBA (system: 'host')"), 1);
}

// A full cycle's new entry says how many targets its port had; that it cannot be read now is no change of that.
TEST_F(Worker, APortInUseKeepsWhatItHasAndItsRetries) {
  CHbaEntry listed = AddPort(0, true);
  const RM_NodeInfoEntry node = Node(kTarget);
  listed.AddTarget(&node);
  listed.SetOldTargetCount(5);
  AddToDestination(listed);
  AddPort(1, true);
  m_Provider.Script("RM_GetAllNodeInfo", std::vector<Step>(10, {64}));
  CHbaEntry now = Visit();
  EXPECT_EQ(now.GetTargetCount(), 1U);
  EXPECT_EQ(now.GetTargetBindType(), 0x1002U) << "of targets that were not read";
  EXPECT_EQ(now.GetTargetMapRetries(), 3U);
  EXPECT_FALSE(now.AreTargetsRead());
  EXPECT_FALSE(Listed(*m_Destination, kPort + 1).AreTargetsRead());
  EXPECT_EQ(m_Log.Find("Got ").mask, 0U);
}

TEST_F(Worker, ListedFunctionsOfANICAreKeptAndNewOnesAdded) {
  CHbaEntry listed = AddPort(0, true);
  listed.SetSpecialFeatures(RM_FEATURE_NIC);
  listed.AddVF(Name(1));
  AddToDestination(listed);
  m_Port.functions = {Name(2)};
  const CHbaEntry now = Visit();
  EXPECT_EQ(now.GetVFCount(), 2U);
  EXPECT_EQ(now.GetTargetBindType(), 0U);
}

TEST_F(Worker, DropsTheResultWhenThePortIsGone) {
  AddToDestination(AddPort(0, true));
  m_Port.nodes = {Node(kTarget)};
  m_Provider.OnCall("RM_VPList", [&] { Remove(*m_Destination, kPort); });
  Visit();
  EXPECT_EQ(m_Destination->GetCount(), 0U);
  EXPECT_EQ(m_Destination->IsModified(), 0);
}

// A killed cycle leaves its worker inside a call. The owner forgets the lists and starts over; the worker keeps
// them alive, and what it still finds lands nowhere.
class LateWorker : public Worker, public testing::WithParamInterface<std::tuple<const char*, bool>> {};

TEST_P(LateWorker, FilesNothing) {
  const auto [call, isListed] = GetParam();
  const CHbaEntry port = AddPort(0, isListed);
  AddPort(1, true);
  m_Port.nodes = {Node(kTarget)};
  if (isListed) AddToDestination(port);
  Gate gate;
  gate.Close();
  m_Provider.OnCall(call, [&] { gate.Pass(); });
  Start();
  ASSERT_TRUE(gate.WaitForCalls(1));

  const std::weak_ptr<CHbaList> visit = m_Visit;
  const std::shared_ptr<CHbaList> destination = m_Destination;
  const std::shared_ptr<CHbaList> slow = m_Slow;
  m_Worker.Disable();
  m_Worker.TerminateImmediate();
  m_Visit = std::make_shared<CHbaList>();
  m_Destination = std::make_shared<CHbaList>();
  m_Params->Set(m_Visit, m_Destination, nullptr);
  EXPECT_FALSE(visit.expired());
  gate.Open();
  m_Worker.Terminate();
  EXPECT_TRUE(visit.expired());
  EXPECT_EQ(destination->GetCount(), isListed ? 1U : 0U);
  EXPECT_EQ(Listed(*destination, kPort).GetTargetBindType(), 0x1002U);
  EXPECT_EQ(Listed(*destination, kPort).GetTargetCount(), 0U);
  EXPECT_EQ(destination->IsModified(), 0);
  EXPECT_EQ(slow->GetCount(), 0U);
  EXPECT_EQ(m_Destination->GetCount(), 0U);
}

INSTANTIATE_TEST_SUITE_P(InAttributes, LateWorker, testing::Values(std::make_tuple(kAttributeCall, false)));
INSTANTIATE_TEST_SUITE_P(InGatherers, LateWorker,
                         testing::Combine(testing::Values("RM_GetAllNodeInfo", "RM_VPList"), testing::Bool()));

}  // namespace

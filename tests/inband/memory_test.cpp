// An allocation fails, each in turn: whoever works survives, and what it leaves is whole.
#include <memory>
#include <new>
#include <vector>

#include "inband/PortDiscovery.h"
#include "tests/failing_memory.h"
#include "tests/inband/enumeration_fixture.h"
#include "tests/thread/wait_until.h"

namespace {

constexpr std::uint64_t kVPort = 0x2100000000000000;

// A worker with a job of its own: a port that is listed already and a new one.
struct Job {
  Job() {
    CHbaEntry known = MakePort(Info(kPort));
    known.SetHbaInfoValid();
    CHbaEntry fresh = MakePort(Info(kPort + 1));
    fresh.SetHbaInfoValid();
    Add(*visit, known);
    Add(*visit, fresh);
    const RM_NodeInfoEntry node = Node(kTarget);
    const CVPortEntry vport(Name(kVPort).wwn);
    known.AddTarget(&node);
    known.AddVPort(&vport);
    Add(*destination, known);
    const HbaListGuard guard(*visit);
    visit->SelectFirstEntry();
  }

  void Start(int number) {
    failing = number;
    params.Set(visit, destination, nullptr);
    worker.Enable();
    worker.Create(
        [](void* self) -> void* {
          Job& job = *static_cast<Job*>(self);
          FailingMemory::s_Left = job.failing;
          PortDiscoveryThreadProc(&job.worker, &job.params);
          return nullptr;
        },
        this, 0, 0);
  }

  std::shared_ptr<CHbaList> visit = std::make_shared<CHbaList>();
  std::shared_ptr<CHbaList> destination = std::make_shared<CHbaList>();
  PortDiscoveryParams params;
  int failing = 0;
  CZylTpThread worker;
};

class Memory : public Enumeration {
 protected:
  void SetUp() override {
    if (!FailingMemory::kWorks) GTEST_SKIP();
  }
};

TEST_F(Memory, AWorkerFilesWholePortsOrNone) {
  for (const std::uint64_t port : {kPort, kPort + 1}) {
    m_Provider.ports[port].nodes = {Node(kTarget), Node(kTarget + 1)};
    m_Provider.ports[port].vports = {{kVPort, 0, {RM_VPortTargetEntry{}}}, {kVPort + 1, 0, {}}};
  }
  // None is stopped before the last is done: a stop costs a slice, and they can be had all at once.
  std::vector<std::unique_ptr<Job>> jobs;
  for (bool failed = true; failed; failed = m_Log.Find("Port discovery gives up on this port").mask != 0) {
    m_Log.Take();
    Job& job = *jobs.emplace_back(std::make_unique<Job>());
    job.Start(static_cast<int>(jobs.size() - 1));
    ASSERT_TRUE(WaitUntil([&] { return job.worker.IsIdle() != 0; }));
    EXPECT_FALSE(job.worker.Ended()) << "it can take the next job";
    const CHbaEntry known = Listed(*job.destination, kPort);
    EXPECT_EQ(known.GetTargetCount(), known.GetVPortCount()) << "all that was read, or nothing";
    if (Names(*job.destination).size() == 1) continue;
    EXPECT_EQ(Listed(*job.destination, kPort + 1).GetTargetCount(), 2U);
    EXPECT_EQ(Listed(*job.destination, kPort + 1).GetVPortCount(), 2U);
  }
  EXPECT_GT(jobs.size(), 20U);
  EXPECT_EQ(jobs.back()->destination->GetCount(), 2U);
  for (const auto& job : jobs) job->worker.TerminateImmediate();
  for (const auto& job : jobs) job->worker.Terminate();
}

TEST_F(Memory, AnEnumerationIsGivenUpAndTheNextIsWhole) {
  AddBoard(0);
  AddBoard(1, RM_FEATURE_ISCSI);
  AddBoard(2, RM_FEATURE_NIC);
  m_Provider.ports[kPort].nodes = {Node(kTarget)};
  m_Provider.ports[kPort + 1].iscsiTargets = {ISCSITarget("iqn.a"), ISCSITarget("iqn.b")};
  m_Provider.varnixPorts = {kTarget};
  for (const bool lite : {false, true}) {
    Settle();
    LiteCycle();  // takes the iSCSI targets in, and the name behind the first board
    LiteCycle();
    int number = 0;
    for (bool failed = true; failed; ++number) {
      FailingMemory::s_Left = number;
      try {
        lite ? LiteCycle() : FullCycle();
      } catch (const std::bad_alloc&) {
      }
      failed = FailingMemory::s_Left == FailingMemory::kNever;
      FailingMemory::s_Left = FailingMemory::kNever;
      EXPECT_EQ(ListedPort(kPort + 1).GetTargetCount(), 2U);
    }
    EXPECT_GT(number, 10);
    EXPECT_EQ(FullCycle(), 0);
    EXPECT_EQ(Names(*m_New), (List{kPort, kPort + 1, kPort + 2}));
    EXPECT_EQ(ToVisit(), Names(*m_New));
  }
}

}  // namespace

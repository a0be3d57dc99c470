#include "tests/support/NoNewThreads.h"
#include "tests/support/Testing.h"
#include "tests/support/Waiting.h"
#include "thread/zyl_thread_pool.h"

namespace {

using std::chrono::milliseconds;

// What the workers of a test share.
struct Job {
  std::atomic<int> running{0};
  std::atomic<int> jobsDone{0};
  std::atomic<int> inJob{0};
  std::atomic<bool> hold{false};  // jobs last until it is false or the worker is disabled
  std::atomic<bool> deaf{false};  // jobs do not look whether they are disabled
};

void DoJob(CZylTpThread* thread, Job& job) {
  ++job.inJob;
  while (job.hold && (job.deaf || thread->IsEnabled() != 0)) ZylSleep(1000);
  --job.inJob;
  if (thread->IsEnabled() != 0) ++job.jobsDone;
}

// A worker that does one job per wake-up.
void Work(CZylTpThread* thread, void* arg) {
  auto& job = *static_cast<Job*>(arg);
  ++job.running;
  while (thread->Terminated() == 0) {
    thread->WaitForSignal(0xFFFFFFFF);
    if (thread->Terminated() != 0) break;
    if (thread->IsEnabled() != 0) DoJob(thread, job);
    thread->SetIdle();
  }
  thread->SetIdle();
  --job.running;
}

class Pool : public testing::Test {
 protected:
  void Adjust(unsigned int count) { m_Pool->AdjustThreadCount(count, Work, m_Job, 0); }
  bool WaitForRunning(int count) {
    return Eventually([&] { return m_Job->running == count; });
  }
  bool WaitForIdle() {
    return Eventually([&] { return m_Pool->AllThreadsIdle() != 0; });
  }
  void StartHeldJobs(unsigned int count) {
    m_Job->hold = true;
    Adjust(count);
    m_Pool->EnableThreads();
    ASSERT_TRUE(Eventually([&] { return m_Job->inJob == static_cast<int>(count); }));
  }

  std::shared_ptr<Job> m_Job = std::make_shared<Job>();
  std::unique_ptr<CZylThreadPool> m_Pool = std::make_unique<CZylThreadPool>();
};

TEST_F(Pool, CountIsClampedAndShrinkingTakesOneSlice) {
  Adjust(40);
  ASSERT_TRUE(WaitForRunning(15));
  const Stopwatch stopwatch;
  Adjust(3);
  EXPECT_EQ(m_Job->running, 3) << "the others have been joined";
  EXPECT_LT(stopwatch.Elapsed(), milliseconds(3000))
      << "asked one by one, in-phase workers would take twelve slices";
  Adjust(0xFFFFFFFF);
  EXPECT_EQ(m_Job->running, 0);
  EXPECT_EQ(m_Pool->AllThreadsIdle(), 1);
}

TEST_F(Pool, WorkersWaitUntilEnabledAndWorkAgainEachTime) {
  Adjust(4);
  EXPECT_EQ(m_Pool->AllThreadsIdle(), 1) << "new workers are not busy";
  for (int round = 1; round <= 2; ++round) {
    m_Pool->EnableThreads();
    EXPECT_EQ(m_Pool->AllThreadsIdle(), 0) << "busy from the moment they are enabled";
    ASSERT_TRUE(WaitForIdle());
    EXPECT_EQ(m_Job->jobsDone, 4 * round);
  }
  m_Pool->TerminateThreads();
  EXPECT_EQ(m_Job->running, 0);
  EXPECT_EQ(m_Job.use_count(), 1) << "joined workers have given their argument back";
}

TEST_F(Pool, StuckWorkersHoldNobodyUpAndKeepWhatTheyUse) {
  m_Job->deaf = true;
  StartHeldJobs(3);
  const Stopwatch stopwatch;
  m_Pool->TerminateThreadsImmediate();
  EXPECT_EQ(m_Pool->AllThreadsIdle(), 1);

  const auto next = std::make_shared<Job>();
  m_Pool->AdjustThreadCount(2, Work, next, 0);
  m_Pool->EnableThreads();
  ASSERT_TRUE(WaitForIdle());
  EXPECT_EQ(next->jobsDone, 2);
  m_Pool->TerminateThreadsImmediate();
  m_Pool.reset();
  EXPECT_LT(stopwatch.Elapsed(), milliseconds(4000));

  const std::weak_ptr<Job> watch = m_Job;
  Job* const job = m_Job.get();
  m_Job.reset();
  ASSERT_FALSE(watch.expired()) << "still used by the stuck workers";
  EXPECT_EQ(job->inJob, 3);
  job->hold = false;
  EXPECT_TRUE(Eventually([&] { return watch.expired(); }));
}

}  // namespace

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include "tests/thread/no_new_threads.h"
#include "tests/thread/wait_until.h"
#include "thread/zyl_thread.h"

namespace {

using std::chrono::milliseconds;

constexpr unsigned int kNoLimit = 0xFFFFFFFF;

void* ReturnAtOnce(void*) {
  return nullptr;
}

void* WaitForTerminate(void* self) {
  auto* thread = static_cast<CZylThread*>(self);
  while (thread->Terminated() == 0) thread->WaitForSignal(kNoLimit);
  return nullptr;
}

// A thread that makes one wait and notes its outcome.
struct Waiter {
  static void* Run(void* self) {
    auto* waiter = static_cast<Waiter*>(self);
    const Stopwatch stopwatch;
    waiter->waiting = true;
    waiter->result = waiter->thread.WaitForSignal(waiter->limit);
    waiter->elapsed = stopwatch.Elapsed();
    return nullptr;
  }

  explicit Waiter(unsigned int ms) : limit(ms) {
    thread.Create(Run, this, 0, 0);
    EXPECT_TRUE(WaitUntil([this] { return waiting.load(); }));
  }

  const unsigned int limit;
  CZylThread thread;
  std::atomic<bool> waiting{false};
  int result = 99;
  milliseconds elapsed{};
};

TEST(Wait, OfNoTimeTellsAndClearsTheSignal) {
  CZylThread thread;
  EXPECT_EQ(thread.WaitForSignal(0), -1);
  thread.Signal();
  thread.Signal();
  EXPECT_EQ(thread.WaitForSignal(0), 0);
  EXPECT_EQ(thread.WaitForSignal(0), -1) << "signals do not add up";
  thread.Signal();
  thread.UnSignal();
  EXPECT_EQ(thread.WaitForSignal(0), -1);
}

TEST(Wait, FindsAnEarlierSignalWithoutSleeping) {
  CZylThread thread;
  thread.Signal();
  const Stopwatch stopwatch;
  EXPECT_EQ(thread.WaitForSignal(kNoLimit), 0);
  thread.Signal();
  EXPECT_EQ(thread.WaitForSignal(5000), 0);
  EXPECT_LT(stopwatch.Elapsed(), milliseconds(450));
}

// The waits run side by side; a signal is seen only at the end of the slice that it falls into.
TEST(Wait, SleepsInSlices) {
  Waiter timeout(2500);
  Waiter limited(60000);
  Waiter unlimited(kNoLimit);
  Waiter otherNegative(0x80000000);
  Waiter shortTimeout(20);
  shortTimeout.thread.WaitForTermination(0);
  // By now the others have looked for the signal and are in their first slice.
  for (Waiter* waiter : {&limited, &unlimited, &otherNegative}) waiter->thread.Signal();
  for (Waiter* waiter : {&timeout, &limited, &unlimited, &otherNegative}) waiter->thread.WaitForTermination(0);

  EXPECT_EQ(shortTimeout.result, -1);
  EXPECT_GE(shortTimeout.elapsed, milliseconds(20));
  EXPECT_LT(shortTimeout.elapsed, milliseconds(500));
  EXPECT_EQ(timeout.result, -1);
  EXPECT_GE(timeout.elapsed, milliseconds(2500));
  EXPECT_LT(timeout.elapsed, milliseconds(3000));
  EXPECT_EQ(limited.result, 0);
  EXPECT_GE(limited.elapsed, milliseconds(1000));
  EXPECT_LT(limited.elapsed, milliseconds(2000));
  for (const Waiter* waiter : {&unlimited, &otherNegative}) {
    EXPECT_EQ(waiter->result, 0);
    EXPECT_GE(waiter->elapsed, milliseconds(500));
    EXPECT_LT(waiter->elapsed, milliseconds(1000));
  }
}

TEST(Thread, RunsItsRoutineAndMayBeCreatedAgainOnlyAfterAJoin) {
  CZylThread thread;
  EXPECT_TRUE(thread.Ended());
  EXPECT_NE(thread.Create(ReturnAtOnce, nullptr, 0, 0), 0u);
  ASSERT_TRUE(WaitUntil([&] { return thread.Ended(); }));
  EXPECT_EQ(thread.Create(ReturnAtOnce, nullptr, 0, 0), 0u) << "ended, but not joined";
  EXPECT_EQ(thread.WaitForTermination(0), 1);
  EXPECT_NE(thread.Create(ReturnAtOnce, nullptr, 0, 1), 0u);
  EXPECT_EQ(thread.WaitForTermination(0), 1);
  EXPECT_EQ(thread.WaitForTermination(0), 1) << "nothing to join";
}

TEST(Thread, TerminateStopsAndJoins) {
  CZylThread thread;
  thread.Terminate();
  EXPECT_EQ(thread.Terminated(), 0) << "no thread, nothing to ask";
  thread.Create(WaitForTerminate, &thread, 0, 0);
  EXPECT_FALSE(thread.Ended());
  thread.Terminate();
  EXPECT_TRUE(thread.Ended());
  EXPECT_EQ(thread.Terminated(), 1);
}

TEST(Thread, CreateClearsTheStopFlagButNotTheSignal) {
  CZylThread thread;
  thread.Create(ReturnAtOnce, nullptr, 0, 0);
  thread.TerminateImmediate();
  EXPECT_EQ(thread.Terminated(), 1);
  EXPECT_EQ(thread.WaitForTermination(0), 1);
  thread.Create(ReturnAtOnce, nullptr, 0, 0);
  EXPECT_EQ(thread.Terminated(), 0);
  EXPECT_EQ(thread.WaitForSignal(0), 0);
  thread.WaitForTermination(0);
}

TEST(Thread, ResumeTakesAStopBackWhileThereIsAThread) {
  CZylThread thread;
  thread.Create(ReturnAtOnce, nullptr, 0, 0);
  thread.TerminateImmediate();
  thread.Resume();
  EXPECT_EQ(thread.Terminated(), 0);
  thread.Terminate();
  thread.Resume();
  EXPECT_EQ(thread.Terminated(), 1);
}

TEST(Thread, TerminateBySeveralThreadsJoinsOnce) {
  CZylThread thread;
  thread.Create(WaitForTerminate, &thread, 0, 0);
  std::thread other([&] { thread.Terminate(); });
  thread.Terminate();
  other.join();
  EXPECT_TRUE(WaitUntil([&] { return thread.Ended(); }));
  EXPECT_NE(thread.Create(ReturnAtOnce, nullptr, 0, 0), 0u);
  thread.Terminate();
}

TEST(Thread, TerminateOnItselfReturns) {
  CZylThread thread;
  thread.Create(
      [](void* self) -> void* {
        auto* own = static_cast<CZylThread*>(self);
        own->Terminate();
        EXPECT_EQ(own->Create(ReturnAtOnce, nullptr, 0, 0), 0u) << "let go, but still running";
        return nullptr;
      },
      &thread, 0, 0);
  EXPECT_TRUE(WaitUntil([&] { return thread.Ended(); }));
  EXPECT_EQ(thread.Terminated(), 1);
  EXPECT_NE(thread.Create(ReturnAtOnce, nullptr, 0, 0), 0u);
  thread.Terminate();
}

TEST(Thread, AnExceptionEndsTheThreadOnly) {
  CZylThread thread;
  thread.Create([](void*) -> void* { throw std::runtime_error("lost"); }, nullptr, 0, 0);
  EXPECT_EQ(thread.WaitForTermination(0), 1);
  EXPECT_TRUE(thread.Ended());
}

TEST(Thread, MayBeDestroyedByItsOwnRoutineAsLastOwner) {
  struct Share {
    std::shared_ptr<CZylThread> thread;
    std::shared_ptr<std::atomic<bool>> go;
  };
  auto thread = std::make_shared<CZylThread>();
  const auto go = std::make_shared<std::atomic<bool>>(false);
  thread->Create(
      [](void* arg) -> void* {
        const std::unique_ptr<Share> share(static_cast<Share*>(arg));
        WaitUntil([&] { return share->go->load(); });
        return nullptr;
      },
      new Share{thread, go}, 0, 0);
  const std::weak_ptr<CZylThread> watch = thread;
  thread.reset();
  EXPECT_FALSE(watch.expired());
  *go = true;
  EXPECT_TRUE(WaitUntil([&] { return watch.expired(); }));
}

TEST(Thread, CreationFailureIsPrintedAndLeavesNoHandle) {
  CZylThread thread;
  testing::internal::CaptureStdout();
  {
    const NoNewThreads none;
    EXPECT_EQ(thread.Create(ReturnAtOnce, nullptr, 0, 0), 0u);
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "ERROR: CZylThread::Create: pthread_create\n");
  EXPECT_TRUE(thread.Ended());
  thread.Terminate();
  EXPECT_EQ(thread.Terminated(), 0);
  EXPECT_NE(thread.Create(ReturnAtOnce, nullptr, 0, 0), 0u);
  thread.Terminate();
}

TEST(Signals, AreBlockedOnThreadsAndAnAlarmDoesNotEndTheProcess) {
  sigset_t mask;
  sigemptyset(&mask);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  signal(SIGALRM, SIG_DFL);
  CZylThread thread;
  raise(SIGALRM);
  raise(SIGALRM);
  thread.Create(
      [](void* arg) -> void* {
        pthread_sigmask(SIG_SETMASK, nullptr, static_cast<sigset_t*>(arg));
        return nullptr;
      },
      &mask, 0, 0);
  thread.WaitForTermination(0);
  for (const int number : {SIGALRM, SIGTERM, SIGUSR1}) EXPECT_EQ(sigismember(&mask, number), 1);
  sigset_t own;
  pthread_sigmask(SIG_SETMASK, nullptr, &own);
  EXPECT_EQ(sigismember(&own, SIGALRM), 0) << "the creator keeps its own mask";
}

TEST(Signals, DoNotShortenASleep) {
  const CZylThread installsTheHandler;
  const itimerval every20ms{{0, 20000}, {0, 20000}};
  setitimer(ITIMER_REAL, &every20ms, nullptr);
  const Stopwatch stopwatch;
  ZylSleep(200000);
  EXPECT_GE(stopwatch.Elapsed(), milliseconds(200));
  const itimerval off{};
  setitimer(ITIMER_REAL, &off, nullptr);
}

}  // namespace

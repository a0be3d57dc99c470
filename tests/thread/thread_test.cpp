#include <signal.h>
#include <sys/time.h>

#include "tests/support/NoNewThreads.h"
#include "tests/support/Testing.h"
#include "tests/support/Waiting.h"
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
    EXPECT_TRUE(Eventually([this] { return waiting.load(); }));
  }

  const unsigned int limit;
  CZylThread thread;
  std::atomic<bool> waiting{false};
  int result = 99;
  milliseconds elapsed{};
};

TEST(Wait, FindsAndClearsAnEarlierSignalWithoutSleeping) {
  CZylThread thread;
  const Stopwatch stopwatch;
  EXPECT_EQ(thread.WaitForSignal(0), -1);
  for (const unsigned int limit : {0U, 5000U, kNoLimit}) {
    thread.Signal();
    thread.Signal();
    EXPECT_EQ(thread.WaitForSignal(limit), 0);
    EXPECT_EQ(thread.WaitForSignal(0), -1) << "signals do not add up";
  }
  thread.Signal();
  thread.UnSignal();
  EXPECT_EQ(thread.WaitForSignal(0), -1);
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

  const auto expect = [](const Waiter& waiter, int result, int from, int to) {
    SCOPED_TRACE(waiter.limit);
    EXPECT_EQ(waiter.result, result);
    EXPECT_GE(waiter.elapsed, milliseconds(from));
    EXPECT_LT(waiter.elapsed, milliseconds(to));
  };
  expect(shortTimeout, -1, 20, 500);
  expect(timeout, -1, 2500, 3000);
  expect(limited, 0, 1000, 2000);
  expect(unlimited, 0, 500, 1000);
  expect(otherNegative, 0, 500, 1000);
}

TEST(Thread, RunsItsRoutineAndMayBeCreatedAgainOnlyAfterAJoin) {
  CZylThread thread;
  EXPECT_TRUE(thread.Ended());
  EXPECT_NE(thread.Create(ReturnAtOnce, nullptr, 0, 0), 0u);
  ASSERT_TRUE(Eventually([&] { return thread.Ended(); }));
  EXPECT_EQ(thread.Create(ReturnAtOnce, nullptr, 0, 0), 0u) << "ended, but not joined";
  EXPECT_EQ(thread.WaitForTermination(0), 1);
  EXPECT_NE(thread.Create(ReturnAtOnce, nullptr, 0, 1), 0u);
  EXPECT_EQ(thread.WaitForTermination(0), 1);
  EXPECT_EQ(thread.WaitForTermination(0), 1) << "nothing to join";
}

TEST(Thread, TerminateBySeveralThreadsStopsAndJoinsOnce) {
  CZylThread thread;
  thread.Terminate();
  EXPECT_EQ(thread.Terminated(), 0) << "no thread, nothing to ask";
  thread.Create(WaitForTerminate, &thread, 0, 0);
  EXPECT_FALSE(thread.Ended());
  std::thread other([&] { thread.Terminate(); });
  thread.Terminate();
  other.join();
  EXPECT_TRUE(thread.Ended());
  EXPECT_EQ(thread.Terminated(), 1);
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
  EXPECT_TRUE(Eventually([&] { return thread.Ended(); }));
  EXPECT_EQ(thread.Terminated(), 1);
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

}  // namespace

#include <type_traits>

#include "tests/support/Testing.h"
#include "thread/zyl_thread.h"

namespace {

constinit CZylThreadLock gs_Global;
static_assert(std::is_trivially_destructible_v<CZylThreadLock>, "a global lock outlives static destruction");

// A function of its own, so that the analysis sees one balanced attempt.
bool IsFree(CZylThreadLock& lock) {
  if (!lock.TryLock()) return false;
  lock.ReleaseLock();
  return true;
}

bool IsFreeForAnother(CZylThreadLock& lock) {
  return std::async(std::launch::async, [&] { return IsFree(lock); }).get();
}

TEST(Lock, IsHeldForTheGuardsScopeOnly) {
  {
    const LockGuard guard(gs_Global);
    EXPECT_FALSE(IsFreeForAnother(gs_Global));
    EXPECT_FALSE(IsFree(gs_Global)) << "a try on the thread that holds it";
  }
  EXPECT_TRUE(IsFreeForAnother(gs_Global));
}

#ifndef NDEBUG
void TakeTwice(CZylThreadLock& lock) NO_THREAD_SAFETY_ANALYSIS {
  lock.GetLock();
  lock.GetLock();
}

void ReleaseUnheld(CZylThreadLock& lock) NO_THREAD_SAFETY_ANALYSIS {
  lock.ReleaseLock();
}

TEST(LockDeathTest, MisuseAbortsADebugBuild) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  CZylThreadLock lock;
  EXPECT_DEATH(TakeTwice(lock), "taken twice by one thread");
  EXPECT_DEATH(ReleaseUnheld(lock), "released by a thread that does not hold it");
  const LockGuard guard(lock);
  EXPECT_DEATH(std::thread([&] { ReleaseUnheld(lock); }).join(), "released by a thread that does not hold it");
}
#endif

}  // namespace

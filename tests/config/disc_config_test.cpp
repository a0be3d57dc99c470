// The lock around the settings file, with a semaphore that does what the test says.
#include "config/DiscConfig.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <atomic>
#include <functional>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>

#include "rmapi/rmapi.h"

namespace {

constexpr intptr_t kHandle = 77;

struct Semaphore {
  std::binary_semaphore free{1};
  std::atomic<int> acquired{0};
  std::atomic<int> released{0};
  int created = 0;
  bool failCreate = false;
  bool failAcquire = false;
  bool failRelease = false;
} gs_Semaphore;

}  // namespace

int RM_createSemaphore(int initial, const char* name, intptr_t* handle) {
  EXPECT_EQ(initial, 0);
  EXPECT_STREQ(name, "lockFile");
  ++gs_Semaphore.created;
  *handle = kHandle;  // a failure may leave anything there
  return gs_Semaphore.failCreate ? 0 : 1;
}

int RM_acquireSemaphore(intptr_t handle) {
  EXPECT_EQ(handle, kHandle);
  if (gs_Semaphore.failAcquire) return 0;
  gs_Semaphore.free.acquire();
  ++gs_Semaphore.acquired;
  return 1;
}

int RM_releaseSemaphore(intptr_t handle) {
  if (handle != kHandle) return 0;
  ++gs_Semaphore.released;
  gs_Semaphore.free.release();
  return gs_Semaphore.failRelease ? 0 : 1;
}

namespace {

class DiscConfig : public testing::Test {
 protected:
  DiscConfig() {
    gs_Semaphore.acquired = 0;
    gs_Semaphore.released = 0;
  }

  template <typename Call>
  static std::string OutputOf(Call call) {
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
  }
};

// In a process of its own, because the first call happens once in each.
TEST_F(DiscConfig, AFailedCreationIsToldAndTriedAgain) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto firstCalls = [] {
    gs_Semaphore.failCreate = true;
    EXPECT_EQ(OutputOf([] { EXPECT_EQ(LockFile(), -1); }), "\n  ERROR: LockFile:  zyl_sem_create failed\n");
    EXPECT_EQ(UnlockFile(), -1) << "nothing to give back";
    gs_Semaphore.failCreate = false;
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(LockFile(), 0);
      EXPECT_EQ(UnlockFile(), 0);
    }
    EXPECT_EQ(gs_Semaphore.created, 2) << "created once it could be, then kept";
    exit(testing::Test::HasFailure() ? 1 : 0);
  };
  EXPECT_EXIT(firstCalls(), testing::ExitedWithCode(0), "");
}

TEST_F(DiscConfig, LockNestsOnItsThread) {
  EXPECT_EQ(LockFile(), 0);
  EXPECT_EQ(LockFile(), 0);
  int value = 7;
  EXPECT_EQ(getDiscConfigIntValue(&value, "NO_SUCH_KEY"), 0);
  EXPECT_EQ(value, 7) << "a missing key leaves the output alone";
  EXPECT_EQ(UnlockFile(), 0);
  EXPECT_EQ(gs_Semaphore.acquired, 1);
  EXPECT_EQ(gs_Semaphore.released, 0);
  EXPECT_EQ(UnlockFile(), 0);
  EXPECT_EQ(gs_Semaphore.released, 1);
}

TEST_F(DiscConfig, LockKeepsOtherThreadsOut) {
  ASSERT_EQ(LockFile(), 0);
  std::atomic<bool> entered{false};
  std::thread other([&] {
    EXPECT_EQ(LockFile(), 0);
    entered = true;
    EXPECT_EQ(UnlockFile(), 0);
  });
  // Both nesting levels must be given back before the other thread comes in.
  EXPECT_EQ(LockFile(), 0);
  EXPECT_EQ(UnlockFile(), 0);
  EXPECT_FALSE(entered);
  EXPECT_EQ(UnlockFile(), 0);
  other.join();
  EXPECT_TRUE(entered);
  EXPECT_EQ(gs_Semaphore.acquired, 2);
}

TEST_F(DiscConfig, AnotherThreadsUnlockEndsTheOwnership) {
  EXPECT_EQ(LockFile(), 0);
  EXPECT_EQ(LockFile(), 0);
  std::thread([] { EXPECT_EQ(UnlockFile(), 0); }).join();
  EXPECT_EQ(gs_Semaphore.released, 1);
  EXPECT_EQ(LockFile(), 0);
  EXPECT_EQ(gs_Semaphore.acquired, 2) << "taken anew, not nested";
  EXPECT_EQ(UnlockFile(), 0);
}

TEST_F(DiscConfig, ALockThatFailsIsToldAndTouchesNothing) {
  int number = 7;
  char text[8] = "old";
  EXPECT_EQ(getDiscConfigStrValue(text, 0, "A"), 0);
  EXPECT_STREQ(text, "old") << "a buffer of no size is not written";
  const std::pair<std::string, std::function<int()>> accessors[] = {
      {"getDiscConfigIntValue", [&] { return getDiscConfigIntValue(&number, "NO_SUCH_KEY"); }},
      {"getDiscConfigStrValue", [&] { return getDiscConfigStrValue(text, sizeof text, "NO_SUCH_KEY"); }},
      {"setDiscConfigIntValue", [] { return setDiscConfigIntValue(1, "A"); }},
      {"setDiscConfigStrValue", [] { return setDiscConfigStrValue("1", "A"); }},
  };
  const struct {
    bool& fails;
    const char *message, *function;
    int released;  // what was not taken is not given back
  } rows[] = {
      {gs_Semaphore.failAcquire, "\n: Error: LockFile: acquirer sem failed\n", "LockFile", 0},
      {gs_Semaphore.failRelease, "\n: Error: UnLockFile: sem release failed\n", "UnlockFile", 1},
  };
  for (const auto& row : rows) {
    row.fails = true;
    EXPECT_EQ(OutputOf([] { EXPECT_EQ(LockFile() + UnlockFile(), -1); }), row.message);
    for (const auto& accessor : accessors) {
      gs_Semaphore.released = 0;
      EXPECT_EQ(OutputOf([&] { EXPECT_GT(accessor.second(), 0); }),
                row.message + ("\n  ERROR: " + accessor.first + ":  ") + row.function + " failed\n");
      EXPECT_EQ(gs_Semaphore.released, row.released);
    }
    row.fails = false;
    EXPECT_EQ(number, 7);
    EXPECT_STREQ(text, "") << "emptied before the lock is asked for";
  }
}

TEST(Usleep, SleepsAndIsCutShortByASignal) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(zyl_usleep(30000), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));

  signal(SIGALRM, [](int) {});
  const itimerval every20ms{{0, 20000}, {0, 20000}};
  setitimer(ITIMER_REAL, &every20ms, nullptr);
  EXPECT_EQ(zyl_usleep(50000000), -1);
  const itimerval off{};
  setitimer(ITIMER_REAL, &off, nullptr);
}

}  // namespace

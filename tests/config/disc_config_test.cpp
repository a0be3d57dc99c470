// The lock around the settings file, with a semaphore that does what the test says.
#include "config/DiscConfig.h"

#include <semaphore>

#include "rmapi/rmapi.h"
#include "tests/support/Testing.h"

namespace {

constexpr intptr_t kHandle = 77;

struct Semaphore {
  std::binary_semaphore free{1};
  std::atomic<int> acquired{0};
  std::atomic<int> released{0};
  int created = 0;
} gs_Semaphore;

}  // namespace

int RM_createSemaphore(int initial, const char* name, intptr_t* handle) {
  EXPECT_EQ(initial, 0);
  EXPECT_STREQ(name, "lockFile");
  ++gs_Semaphore.created;
  *handle = kHandle;
  return 1;
}

int RM_acquireSemaphore(intptr_t handle) {
  EXPECT_EQ(handle, kHandle);
  gs_Semaphore.free.acquire();
  ++gs_Semaphore.acquired;
  return 1;
}

int RM_releaseSemaphore(intptr_t handle) {
  if (handle != kHandle) return 0;
  ++gs_Semaphore.released;
  gs_Semaphore.free.release();
  return 1;
}

namespace {

class DiscConfig : public testing::Test {
 protected:
  DiscConfig() {
    gs_Semaphore.acquired = 0;
    gs_Semaphore.released = 0;
  }
};

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
  EXPECT_EQ(gs_Semaphore.created, 1) << "by the first lock of the process, and kept";
}

}  // namespace

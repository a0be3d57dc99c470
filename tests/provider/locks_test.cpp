// Locks between threads and processes.
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/provider/Boundary.h"
#include "tests/support/Testing.h"

namespace providertest {
namespace {

std::intptr_t Semaphore(const char* name) {
  std::intptr_t handle = 0;
  EXPECT_NE(RM_createSemaphore(0, name, &handle), 0);
  EXPECT_NE(handle, 0);
  return handle;
}

// Taken and given back before main, as another library's load-time code does it.
const bool gs_LoadTimeLock = [] {
  std::intptr_t handle = 0;
  return RM_createSemaphore(0, "load", &handle) != 0 && RM_acquireSemaphore(handle) != 0 &&
         RM_releaseSemaphore(handle) != 0;
}();

// A child process that runs `body` and then waits to be killed. Ready when the constructor returns.
class Child {
 public:
  template <class Body>
  explicit Child(Body body) {
    const int ready = eventfd(0, 0);
    m_Process = fork();
    if (m_Process == 0) {
      eventfd_write(ready, body() ? 1 : 2);
      for (;;) pause();
    }
    eventfd_t done = 0;
    EXPECT_EQ(eventfd_read(ready, &done), 0);
    EXPECT_EQ(done, 1u);
    close(ready);
  }
  ~Child() { Kill(); }

  void Kill() {
    if (m_Process <= 0) return;
    kill(m_Process, SIGKILL);
    waitpid(m_Process, nullptr, 0);
    m_Process = 0;
  }

 private:
  pid_t m_Process = 0;
};

// Takes the lock on a thread of its own and says when it has it.
class Taker {
 public:
  explicit Taker(std::intptr_t handle) : m_Thread([this, handle] { m_Result = RM_acquireSemaphore(handle); }) {}
  ~Taker() { m_Thread.join(); }

  bool WaitsStill() const {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return m_Result == -1;
  }
  bool HasIt() const {
    return Eventually([this] { return m_Result != -1; }) && m_Result != 0;
  }
  bool IsTurnedAway() const {
    return Eventually([this] { return m_Result == 0; });
  }

 private:
  std::atomic<int> m_Result{-1};
  std::thread m_Thread;
};

TEST(Locks, WorkBeforeMainAndSerialiseThreads) {
  EXPECT_TRUE(gs_LoadTimeLock);
  const std::intptr_t handle = Semaphore("threads");
  int counter = 0;  // what the lock protects
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < 200; ++k) {
        EXPECT_NE(RM_acquireSemaphore(handle), 0);
        ++counter;
        EXPECT_NE(RM_releaseSemaphore(handle), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, 800);
}

// A killed holder leaves the lock free. Its child shares its open files but does not hold the lock: it neither
// keeps it nor gives it back.
TEST(Locks, KilledHolderLeavesItFreeAndItsChildHoldsNothing) {
  const std::intptr_t handle = Semaphore("forked");
  const int end = eventfd(0, 0);
  {
    Child holder([&] {
      if (RM_acquireSemaphore(handle) == 0) return false;
      if (fork() == 0) {
        // Lives until the test lets it go.
        eventfd_t told = 0;
        _exit(RM_releaseSemaphore(handle) == 0 && eventfd_read(end, &told) == 0 ? 0 : 1);
      }
      return true;
    });
    const Taker taker(handle);
    EXPECT_TRUE(taker.WaitsStill());
    holder.Kill();
    EXPECT_TRUE(taker.HasIt());
  }
  EXPECT_NE(RM_releaseSemaphore(handle), 0);
  EXPECT_EQ(eventfd_write(end, 1), 0);
  close(end);
}

TEST(Locks, NamesAreTakenApart) {
  const std::intptr_t handle = Semaphore("same");
  EXPECT_EQ(Semaphore("same"), handle);  // one handle a name
  void* const lock = RM_OpenGlobalLock("same");
  ASSERT_NE(lock, nullptr);
  EXPECT_NE(RM_acquireSemaphore(handle), 0);
  EXPECT_EQ(RM_GetGlobalLock(lock), RM_STATUS_OK);  // another kind of lock
  const std::intptr_t path = Semaphore("../../same");
  EXPECT_NE(RM_acquireSemaphore(path), 0);
  EXPECT_NE(RM_releaseSemaphore(path), 0);
  EXPECT_NE(RM_releaseSemaphore(handle), 0);
  EXPECT_EQ(RM_CloseGlobalLock(lock), RM_STATUS_OK);
  EXPECT_EQ(RM_OpenGlobalLock(""), nullptr);
  EXPECT_EQ(RM_OpenGlobalLock(std::string(65, 'n').c_str()), nullptr);
}

TEST(Locks, ClosingTurnsWaitersAway) {
  void* const holder = RM_OpenGlobalLock("closing");
  void* const waiter = RM_OpenGlobalLock("closing");
  ASSERT_EQ(RM_GetGlobalLock(holder), RM_STATUS_OK);
  {
    const Taker taker(reinterpret_cast<std::intptr_t>(waiter));
    EXPECT_TRUE(taker.WaitsStill());
    EXPECT_EQ(RM_CloseGlobalLock(waiter), RM_STATUS_OK);
    EXPECT_TRUE(taker.IsTurnedAway());
  }
  EXPECT_EQ(RM_ReleaseGlobalLock(holder), RM_STATUS_OK);
  EXPECT_EQ(RM_CloseGlobalLock(holder), RM_STATUS_OK);
}

// Directories that somebody else could have prepared. With a /run of the test's own.
TEST(Locks, UntrustedDirectoryIsPassedOver) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", "/run", "tmpfs", 0, nullptr) != 0) {
    GTEST_SKIP() << "needs the right to mount";
  }
  for (const char* path : {"/run/lock", "/run/lock/varnix"}) {
    ASSERT_EQ(mkdir(path, 0755), 0);
    ASSERT_EQ(chmod(path, 01777), 0);
  }
  const std::intptr_t first = Semaphore("squatted");
  EXPECT_NE(RM_acquireSemaphore(first), 0);
  EXPECT_TRUE(std::filesystem::is_empty("/run/lock/varnix"));
  EXPECT_TRUE(std::filesystem::exists("/run/varnix/sem-squatted"));
  EXPECT_NE(RM_releaseSemaphore(first), 0);

  std::filesystem::remove("/run/lock/varnix");
  ASSERT_EQ(mkdir("/run/real", 0755), 0);
  ASSERT_EQ(symlink("/run/real", "/run/lock/varnix"), 0);
  EXPECT_NE(Semaphore("linked"), 0);
  EXPECT_TRUE(std::filesystem::is_empty("/run/real"));

  std::filesystem::remove("/run/lock/varnix");
  const std::intptr_t second = Semaphore("proper");
  EXPECT_NE(RM_acquireSemaphore(second), 0);
  struct stat status {};
  ASSERT_EQ(stat("/run/lock/varnix/sem-proper", &status), 0);
  EXPECT_EQ(status.st_mode & 0007u, 0u);
  EXPECT_NE(RM_releaseSemaphore(second), 0);
}

}  // namespace
}  // namespace providertest

#include "config/DiscConfig.h"

#include <pthread.h>
#include <sys/select.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "rmapi/rmapi.h"
#include "thread/zyl_thread.h"

namespace {

// Guards what this process knows of the lock; never held while waiting for the lock itself.
constinit CZylThreadLock gs_StateLock;
constinit intptr_t gSemFd GUARDED_BY(gs_StateLock) = 0;
constinit bool gFirstTime GUARDED_BY(gs_StateLock) = true;

// The semaphore cannot be taken twice by one thread, but LockFile followed by an accessor does that: the pairs
// are counted, and only the outermost one reaches the semaphore.
constinit pthread_t gs_Owner GUARDED_BY(gs_StateLock) = 0;
constinit int gs_Depth GUARDED_BY(gs_StateLock) = 0;

bool IsOwnedByThisThread() REQUIRES(gs_StateLock) {
  return gs_Depth > 0 && gs_Owner == pthread_self();
}

// Creates the semaphore at first use; a failure is tried again at the next call.
bool HaveSemaphore() REQUIRES(gs_StateLock) {
  if (!gFirstTime) return true;
  if (RM_createSemaphore(0, "lockFile", &gSemFd) == 0) {
    std::puts("\n  ERROR: LockFile:  zyl_sem_create failed");
    gSemFd = 0;
    return false;
  }
  gFirstTime = false;
  return true;
}

// Runs `access` under the lock. A failure to take the lock touches nothing.
template <typename Access>
int UnderLock(const char* lockFailed, const char* unlockFailed, Access access) {
  if (LockFile() != 0) return std::puts(lockFailed);
  access();
  if (UnlockFile() != 0) return std::puts(unlockFailed);
  return 0;
}

// A key with an empty value counts as absent: it gets a second line, which no reader sees behind the first.
void StoreSetting(const char* key, const char* value) {
  char current[256] = "";
  getKeyValue(kDiscConfigPath, key, current, sizeof current);
  if (current[0] != '\0') {
    replaceKeyValue(kDiscConfigPath, key, value);
  } else {
    setKeyValue(kDiscConfigPath, key, value);
  }
}

}  // namespace

int LockFile(void) {
  intptr_t semaphore = 0;
  {
    const LockGuard guard(gs_StateLock);
    if (IsOwnedByThisThread()) {
      ++gs_Depth;
      return 0;
    }
    if (!HaveSemaphore()) return -1;
    semaphore = gSemFd;
  }
  if (RM_acquireSemaphore(semaphore) == 0) {
    std::puts("\n: Error: LockFile: acquirer sem failed");
    return -1;
  }
  const LockGuard guard(gs_StateLock);
  gs_Owner = pthread_self();
  gs_Depth = 1;
  return 0;
}

int UnlockFile(void) {
  intptr_t semaphore = 0;
  {
    const LockGuard guard(gs_StateLock);
    if (IsOwnedByThisThread() && --gs_Depth > 0) return 0;
    // Before the release, which lets the next owner in. A thread that does not own the lock gives it back all
    // the same, and with it every level of its owner's.
    gs_Depth = 0;
    semaphore = gSemFd;
  }
  if (RM_releaseSemaphore(semaphore) == 0) {
    std::puts("\n: Error: UnLockFile: sem release failed");
    return -1;
  }
  return 0;
}

int getDiscConfigIntValue(int* out, const char* key) {
  char text[256] = "";
  const int result = UnderLock("\n  ERROR: getDiscConfigIntValue:  LockFile failed",
                               "\n  ERROR: getDiscConfigIntValue:  UnlockFile failed",
                               [&] { getKeyValue(kDiscConfigPath, key, text, sizeof text); });
  if (out != nullptr && text[0] != '\0') *out = static_cast<int>(std::strtol(text, nullptr, 0));
  return result;
}

int getDiscConfigStrValue(char* out, unsigned int size, const char* key) {
  if (out != nullptr && size > 0) out[0] = '\0';
  const int room = static_cast<int>(std::min<unsigned int>(size, INT_MAX));
  return UnderLock("\n  ERROR: getDiscConfigStrValue:  LockFile failed",
                   "\n  ERROR: getDiscConfigStrValue:  UnlockFile failed",
                   [&] { getKeyValue(kDiscConfigPath, key, out, room); });
}

int setDiscConfigIntValue(int value, const char* key) {
  return UnderLock("\n  ERROR: setDiscConfigIntValue:  LockFile failed",
                   "\n  ERROR: setDiscConfigIntValue:  UnlockFile failed",
                   [&] { StoreSetting(key, std::to_string(value).c_str()); });
}

int setDiscConfigStrValue(const char* value, const char* key) {
  return UnderLock("\n  ERROR: setDiscConfigStrValue:  LockFile failed",
                   "\n  ERROR: setDiscConfigStrValue:  UnlockFile failed", [&] { StoreSetting(key, value); });
}

int zyl_usleep(unsigned int microseconds) {
  timeval timeout{};
  timeout.tv_sec = microseconds / 1000000;
  timeout.tv_usec = microseconds % 1000000;
  return select(0, nullptr, nullptr, nullptr, &timeout);
}

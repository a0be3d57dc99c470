// The locks between processes. A handle is a number, never followed as a pointer: a wrong one is refused.
#include "provider/Exports.h"

#include "provider/boundary/Entry.h"
#include "provider/process/NamedLocks.h"

namespace {

using provider::Guarded;
using provider::NamedLocks;

constexpr const char* kSemaphore = "sem";
constexpr const char* kGlobalLock = "lock";

NamedLocks::Handle HandleOf(void* lock) {
  return reinterpret_cast<NamedLocks::Handle>(lock);
}

int Status(bool done) {
  return done ? RM_STATUS_OK : RM_STATUS_FAILED;
}

}  // namespace

// The initial value is not used: a lock whose holder has died is free, whatever it began with.
int RM_createSemaphore(int /*initial*/, const char* name, intptr_t* handle) {
  return Guarded(
      [&] {
        if (name == nullptr || handle == nullptr) return 0;
        *handle = NamedLocks::Get().OpenShared(kSemaphore, name);
        return *handle != 0 ? 1 : 0;
      },
      0);
}

int RM_acquireSemaphore(intptr_t handle) {
  return Guarded([&] { return NamedLocks::Get().Acquire(handle) ? 1 : 0; }, 0);
}

int RM_releaseSemaphore(intptr_t handle) {
  return Guarded([&] { return NamedLocks::Get().Release(handle) ? 1 : 0; }, 0);
}

void* RM_OpenGlobalLock(const char* name) {
  return Guarded(
      [&]() -> void* {
        if (name == nullptr) return nullptr;
        // A number that is never followed. NOLINTNEXTLINE(performance-no-int-to-ptr)
        return reinterpret_cast<void*>(NamedLocks::Get().Open(kGlobalLock, name));
      },
      static_cast<void*>(nullptr));
}

int RM_GetGlobalLock(void* lock) {
  return Guarded([&] { return Status(NamedLocks::Get().Acquire(HandleOf(lock))); });
}

int RM_ReleaseGlobalLock(void* lock) {
  return Guarded([&] { return Status(NamedLocks::Get().Release(HandleOf(lock))); });
}

int RM_CloseGlobalLock(void* lock) {
  return Guarded([&] { return Status(NamedLocks::Get().Close(HandleOf(lock))); });
}

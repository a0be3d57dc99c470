#include "provider/process/NamedLocks.h"

#include <pthread.h>
#include <sys/file.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "provider/process/LockDirectory.h"

namespace provider {

namespace {

constexpr std::size_t kLongestName = 64;

bool IsPlain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

// A name of any characters as a file name: what could mean a path is spelled out.
std::string FileName(std::string_view kind, std::string_view name) {
  std::string file(kind);
  file += '-';
  for (const char c : name) {
    if (IsPlain(c)) {
      file += c;
    } else {
      std::array<char, 4> escaped;
      std::snprintf(escaped.data(), escaped.size(), "%%%02X", static_cast<unsigned char>(c));
      file += escaped.data();
    }
  }
  return file;
}

bool WaitForFlock(int descriptor) {
  int result = flock(descriptor, LOCK_EX);
  while (result != 0 && errno == EINTR) result = flock(descriptor, LOCK_EX);
  return result == 0;
}

}  // namespace

NamedLocks& NamedLocks::Get() {
  static NamedLocks& locks = *new NamedLocks;
  return locks;
}

NamedLocks::NamedLocks() {
  pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
}

NamedLocks::Handle NamedLocks::Open(std::string_view kind, std::string_view name) {
  const std::string file = FileName(kind, name);
  if (name.empty() || name.size() > kLongestName || !OpenLockFile(file).IsOpen()) return 0;
  const MutexLock held(m_Mutex);
  return OpenLocked(file);
}

NamedLocks::Handle NamedLocks::OpenShared(std::string_view kind, std::string_view name) {
  const std::string file = FileName(kind, name);
  if (name.empty() || name.size() > kLongestName || !OpenLockFile(file).IsOpen()) return 0;
  const MutexLock held(m_Mutex);
  Handle& handle = m_SharedHandles[file];
  if (handle == 0) handle = OpenLocked(file);
  return handle;
}

NamedLocks::Handle NamedLocks::OpenLocked(const std::string& file) {
  std::shared_ptr<Lock>& lock = m_Locks[file];
  if (lock == nullptr) {
    lock = std::make_shared<Lock>();
    lock->file = file;
  }
  m_Handles.emplace(++m_LastHandle, lock);
  return m_LastHandle;
}

std::shared_ptr<NamedLocks::Lock> NamedLocks::Find(Handle handle) {
  const auto found = m_Handles.find(handle);
  return found == m_Handles.end() ? nullptr : found->second;
}

bool NamedLocks::Acquire(Handle handle) {
  std::shared_ptr<Lock> lock;
  {
    const MutexLock held(m_Mutex);
    lock = Find(handle);
    while (lock != nullptr && lock->holder != 0) {
      m_GateOpened->Wait(m_Mutex);
      lock = Find(handle);
    }
    if (lock == nullptr) return false;
    lock->holder = handle;
  }
  bool locked = false;
  try {
    locked = LockFile(*lock);
  } catch (...) {
    // No memory. Who would keep the gate now would keep it for ever.
  }
  const MutexLock held(m_Mutex);
  lock->acquired = locked && Find(handle) != nullptr;
  if (!lock->acquired) LeaveGate(*lock);
  return lock->acquired;
}

// Waits without m_Mutex. A file that was removed or replaced meanwhile would exclude nobody: ask again.
bool NamedLocks::LockFile(Lock& lock) {
  while (OpenFile(lock)) {
    const int descriptor = [&] {
      const MutexLock held(m_Mutex);
      return lock.descriptor;
    }();
    if (!WaitForFlock(descriptor)) return false;
    FileDescriptor locked(descriptor);
    const bool current = IsCurrentLockFile(locked, lock.file);
    locked.Release();
    if (current) return true;
  }
  return false;
}

// Opened for each turn and noted at once, so that a child forked meanwhile can let go of it.
bool NamedLocks::OpenFile(Lock& lock) {
  const MutexLock held(m_Mutex);
  FileDescriptor replaced(lock.descriptor);
  lock.descriptor = OpenLockFile(lock.file).Release();
  return lock.descriptor >= 0;
}

bool NamedLocks::Release(Handle handle) {
  const MutexLock held(m_Mutex);
  const std::shared_ptr<Lock> lock = Find(handle);
  if (lock == nullptr || lock->holder != handle || !lock->acquired) return false;
  LeaveGate(*lock);
  return true;
}

bool NamedLocks::Close(Handle handle) {
  const MutexLock held(m_Mutex);
  const std::shared_ptr<Lock> lock = Find(handle);
  if (lock == nullptr) return false;
  m_Handles.erase(handle);
  if (lock->holder == handle && lock->acquired) LeaveGate(*lock);
  m_GateOpened->NotifyAll();
  return true;
}

void NamedLocks::LeaveGate(Lock& lock) {
  // Unlocked by name, not only by closing: a child that is just being started may share the open file.
  if (lock.descriptor >= 0) flock(lock.descriptor, LOCK_UN);
  FileDescriptor closing(std::exchange(lock.descriptor, -1));
  lock.acquired = false;
  lock.holder = 0;
  m_GateOpened->NotifyAll();
}

void NamedLocks::BeforeFork() {
  Get().m_Mutex.Lock();
}

void NamedLocks::AfterForkInParent() {
  Get().m_Mutex.Unlock();
}

// The child shares the parent's open files: while it kept one, the parent's lock would outlive the parent.
void NamedLocks::AfterForkInChild() {
  NamedLocks& locks = Get();
  for (const auto& [file, lock] : locks.m_Locks) {
    FileDescriptor closing(std::exchange(lock->descriptor, -1));
    lock->acquired = false;
    lock->holder = 0;
  }
  // Its destructor would wait for threads that only the parent has.
  [[maybe_unused]] const Condition* abandoned = locks.m_GateOpened.release();
  locks.m_GateOpened = std::make_unique<Condition>();
  locks.m_Mutex.Unlock();
}

}  // namespace provider

// The provider's mutex and condition, with the attributes that let clang check who holds what.
//
// Thread safety: that is their business.
#ifndef PROVIDER_BASE_MUTEX_H_
#define PROVIDER_BASE_MUTEX_H_

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "thread/thread_annotations.h"

namespace provider {

class CAPABILITY("mutex") Mutex {
 public:
  constexpr Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock() ACQUIRE() { m_Mutex.lock(); }
  void Unlock() RELEASE() { m_Mutex.unlock(); }
  bool TryLock() TRY_ACQUIRE(true) { return m_Mutex.try_lock(); }

 private:
  friend class Condition;
  std::mutex m_Mutex;
};

class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : m_Mutex(mutex) { m_Mutex.Lock(); }
  MutexLock(Mutex& mutex, std::adopt_lock_t /*held*/) REQUIRES(mutex) : m_Mutex(mutex) {}
  ~MutexLock() RELEASE() { m_Mutex.Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& m_Mutex;
};

class Condition {
 public:
  using Deadline = std::chrono::steady_clock::time_point;

  void Wait(Mutex& mutex) REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.m_Mutex, std::adopt_lock);
    m_Condition.wait(held);
    held.release();
  }

  // False when the deadline has passed.
  bool WaitUntil(Mutex& mutex, Deadline deadline) REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.m_Mutex, std::adopt_lock);
    const bool signalled = m_Condition.wait_until(held, deadline) == std::cv_status::no_timeout;
    held.release();
    return signalled;
  }

  void NotifyOne() { m_Condition.notify_one(); }
  void NotifyAll() { m_Condition.notify_all(); }

 private:
  std::condition_variable m_Condition;
};

}  // namespace provider

#endif  // PROVIDER_BASE_MUTEX_H_

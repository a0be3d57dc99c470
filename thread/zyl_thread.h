// Threads and locks on which every background activity runs.
//
// A thread is asked to stop, never cancelled: it polls Terminated() between steps. It is woken by a one-shot
// flag that it looks at in slices while it waits, so a signal is noticed up to a slice late; that latency is
// part of the library's pacing.
#ifndef THREAD_ZYL_THREAD_H_
#define THREAD_ZYL_THREAD_H_

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>

#include "thread/thread_annotations.h"

// Sleeps to the end, whatever signals come in between, on the monotonic clock.
void ZylSleep(unsigned int microseconds);

// How long the calling thread has slept so in all.
std::chrono::microseconds ZylSlept();

// The library's mutex. Not recursive.
//
// Thread safety: any thread. The thread that took the lock releases it; a debug build aborts when a thread
// takes a lock twice or releases one that it does not hold.
// Ownership: owns its mutex. Needs neither run-time construction nor destruction, so that a global lock is
// usable before, during and after static initialisation.
class CAPABILITY("mutex") CZylThreadLock {
 public:
  constexpr CZylThreadLock() = default;
  CZylThreadLock(const CZylThreadLock&) = delete;
  CZylThreadLock& operator=(const CZylThreadLock&) = delete;

  // Results are those of the POSIX calls.
  int GetLock() ACQUIRE();
  int ReleaseLock() RELEASE();

  // Takes the lock when it is free at once; never waits.
  bool TryLock() TRY_ACQUIRE(true);

  // The names by which std::condition_variable_any knows a lock.
  void lock() ACQUIRE() { GetLock(); }
  void unlock() RELEASE() { ReleaseLock(); }

 private:
  pthread_mutex_t m_Mutex = PTHREAD_MUTEX_INITIALIZER;
  // Kept by debug builds only. Atomic: a thread compares it with itself before it has the mutex.
  std::atomic<pthread_t> m_Owner{0};
};

// Holds a lock for a scope.
//
// Thread safety: used by one thread.
// Ownership: the lock outlives the guard.
class SCOPED_CAPABILITY LockGuard {
 public:
  explicit LockGuard(CZylThreadLock& lock) ACQUIRE(lock) : m_Lock(lock) { m_Lock.GetLock(); }
  ~LockGuard() RELEASE() { m_Lock.ReleaseLock(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  CZylThreadLock& m_Lock;
};

// A thread with a stop flag and a one-shot signal.
//
// Thread safety: every operation may be called from any thread, also from the thread itself.
// Ownership: the routine's argument stays the caller's. What the thread's own start and end touch is shared
// with the thread. The object is destroyed only after its routine has returned, or by the routine itself as its
// last owner: a base class cannot wait for a thread that still uses what a derived class has already destroyed.
class CZylThread {
 public:
  // Installs a do-nothing handler for SIGALRM, so that an alarm never ends the process.
  CZylThread();
  virtual ~CZylThread();
  CZylThread(const CZylThread&) = delete;
  CZylThread& operator=(const CZylThread&) = delete;

  // Starts `routine(arg)` on a new thread, with all signals blocked, and returns the thread's handle; 0 when
  // there is a thread that runs or has not been joined yet, or when none could be created. Clears the stop
  // flag, not the signal. An exception that leaves the routine ends the thread and goes no further. The last
  // two arguments have no effect.
  std::uint64_t Create(void* (*routine)(void*), void* arg, int ignored, int direct);

  // Asks the thread to stop, wakes it and joins it, without a time limit. On the thread itself, lets it go
  // instead. When several threads terminate one object, one of them joins and the others return at once.
  void Terminate();

  // Asks the thread to stop and wakes it. Terminate or WaitForTermination completes the work.
  void TerminateImmediate();

  // Joins the thread without asking it to stop; the milliseconds are ignored. Always 1.
  int WaitForTermination(unsigned int ms);

  // Takes a stop request back.
  void Resume();

  // Does nothing.
  void Suspend();

  void Signal();
  void UnSignal();

  // Waits until signalled (0) or for `ms` milliseconds (-1); a value that is negative as a signed number waits
  // without a limit. Looks at the signal at once, then every 500 ms of an unlimited and every 1000 ms of a
  // limited wait. Clears the signal at its end in either case. Not ended by the stop flag: whoever sets that
  // signals too.
  int WaitForSignal(unsigned int ms);

  // Asks the thread to stop, wakes it and lets it go: it ends by itself and is joined by nobody. Afterwards the
  // object is only good for being destroyed, by the rule above.
  void CleanUp();

  // 1 once the thread has been asked to stop.
  int Terminated() const;

  // True when no routine runs: none was started, or it has returned. A join that follows is over at once.
  bool Ended() const;

 private:
  struct State;

  static void* RunThread(void* start);
  void Join();

  const std::shared_ptr<State> m_State;
};

#endif  // THREAD_ZYL_THREAD_H_

#include "thread/zyl_thread.h"

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <thread>

namespace {

// A signal is noticed at the end of the slice that it falls into.
constexpr unsigned int kUnlimitedSliceMs = 500;
constexpr int kLimitedSliceMs = 1000;

constinit thread_local std::chrono::microseconds t_Slept{0};

#ifdef NDEBUG
constexpr bool kCheckLockOwner = false;
#else
constexpr bool kCheckLockOwner = true;
#endif

[[noreturn]] void DieOfLockMisuse(const char* fault) {
  std::fprintf(stderr, "CZylThreadLock: %s\n", fault);
  std::abort();
}

extern "C" void alarm_signal(int) {
  signal(SIGALRM, alarm_signal);
}

// A new thread inherits its creator's mask: with everything blocked around the creation, the application's
// timers and handlers never run on one of our threads.
int CreateWithSignalsBlocked(pthread_t* thread, void* (*routine)(void*), void* arg) {
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);
  const int result = pthread_create(thread, nullptr, routine, arg);
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  return result;
}

}  // namespace

void ZylSleep(unsigned int microseconds) {
  const auto begin = std::chrono::steady_clock::now();
  std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
  t_Slept += std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin);
}

std::chrono::microseconds ZylSlept() {
  return t_Slept;
}

int CZylThreadLock::GetLock() {
  if (kCheckLockOwner && m_Owner.load(std::memory_order_relaxed) == pthread_self()) {
    DieOfLockMisuse("taken twice by one thread");
  }
  const int result = pthread_mutex_lock(&m_Mutex);
  if (kCheckLockOwner) m_Owner.store(pthread_self(), std::memory_order_relaxed);
  return result;
}

int CZylThreadLock::ReleaseLock() {
  if (kCheckLockOwner) {
    if (m_Owner.load(std::memory_order_relaxed) != pthread_self()) {
      DieOfLockMisuse("released by a thread that does not hold it");
    }
    m_Owner.store(0, std::memory_order_relaxed);
  }
  return pthread_mutex_unlock(&m_Mutex);
}

bool CZylThreadLock::TryLock() {
  if (pthread_mutex_trylock(&m_Mutex) != 0) return false;
  if (kCheckLockOwner) m_Owner.store(pthread_self(), std::memory_order_relaxed);
  return true;
}

// What the object and its thread share, so that a thread that was let go still has it.
struct CZylThread::State {
  struct Start {
    std::shared_ptr<State> state;
    void* (*routine)(void*);
    void* arg;
  };

  // Held while a thread is created, until its handles are here; the new thread waits for that.
  CZylThreadLock createLock;
  CZylThreadLock waitLock;
  std::atomic<pthread_t> running{0};  // whoever exchanges it for 0 joins the thread or lets it go
  std::atomic<pthread_t> thread{0};   // blocks a new Create until the thread has been joined
  std::atomic<int> terminate{0};
  std::atomic<int> signalled{0};
  std::atomic<bool> ended{true};
};

CZylThread::CZylThread() : m_State(std::make_shared<State>()) {
  signal(SIGALRM, alarm_signal);
}

CZylThread::~CZylThread() {
  CleanUp();
}

std::uint64_t CZylThread::Create(void* (*routine)(void*), void* arg, int /*ignored*/, int /*direct*/) {
  const LockGuard creating(m_State->createLock);
  // A thread that was let go has no handle any more, but would share its flags with a second one.
  if (m_State->thread != 0 || !m_State->ended) return 0;
  std::unique_ptr<State::Start> start(new (std::nothrow) State::Start{m_State, routine, arg});
  m_State->terminate = 0;
  m_State->ended = false;
  pthread_t thread = 0;
  if (start == nullptr || CreateWithSignalsBlocked(&thread, RunThread, start.get()) != 0) {
    m_State->ended = true;
    std::puts("ERROR: CZylThread::Create: pthread_create");
    std::fflush(stdout);
    return 0;
  }
  static_cast<void>(start.release());  // the thread's now
  m_State->thread = thread;
  m_State->running = thread;
  return thread;
}

// The top of every thread, also of one that was to start on its routine directly: each has to mark its end.
void* CZylThread::RunThread(void* start) {
  const std::unique_ptr<State::Start> own(static_cast<State::Start*>(start));
  { const LockGuard handlesPublished(own->state->createLock); }
  void* result = nullptr;
  try {
    result = own->routine(own->arg);
  } catch (...) {
    // The thread ends as if its routine had returned.
  }
  own->state->ended = true;
  return result;
}

void CZylThread::Terminate() {
  TerminateImmediate();
  Join();
}

void CZylThread::TerminateImmediate() {
  if (m_State->running == 0) return;
  m_State->terminate = 1;
  Signal();
}

int CZylThread::WaitForTermination(unsigned int /*ms*/) {
  Join();
  return 1;
}

void CZylThread::Join() {
  const pthread_t thread = m_State->running.exchange(0);
  if (thread == 0) return;
  if (thread == pthread_self()) {
    pthread_detach(thread);
  } else {
    pthread_join(thread, nullptr);
  }
  m_State->thread = 0;
}

void CZylThread::CleanUp() {
  const pthread_t thread = m_State->running.exchange(0);
  if (thread == 0) return;
  m_State->terminate = 1;
  Signal();
  pthread_detach(thread);
  m_State->thread = 0;
}

void CZylThread::Resume() {
  if (m_State->thread != 0) m_State->terminate = 0;
}

void CZylThread::Suspend() {}

void CZylThread::Signal() {
  m_State->signalled = 1;
}

void CZylThread::UnSignal() {
  m_State->signalled = 0;
}

int CZylThread::WaitForSignal(unsigned int ms) {
  const LockGuard waiting(m_State->waitLock);
  if (const int limit = static_cast<int>(ms); limit < 0) {
    while (m_State->signalled == 0) ZylSleep(kUnlimitedSliceMs * 1000);
  } else {
    for (int remaining = limit; remaining >= 1 && m_State->signalled == 0; remaining -= kLimitedSliceMs) {
      ZylSleep(static_cast<unsigned int>(std::min(remaining, kLimitedSliceMs)) * 1000);
    }
  }
  // Noting and clearing in one step loses no signal that comes between the two.
  return m_State->signalled.exchange(0) != 0 ? 0 : -1;
}

int CZylThread::Terminated() const {
  return m_State->terminate;
}

bool CZylThread::Ended() const {
  return m_State->ended;
}

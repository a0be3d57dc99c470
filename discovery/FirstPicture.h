// Whether the first cycle since the start has ended, and the wait for it.
//
// Thread safety: internally locked; the lock is a leaf.
#ifndef DISCOVERY_FIRSTPICTURE_H_
#define DISCOVERY_FIRSTPICTURE_H_

#include <chrono>
#include <condition_variable>

#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

class FirstPicture {
 public:
  // Discovery starts, the picture is there, who waits for it may know, discovery stops.
  void Begin() { Set(State::kAwaited); }
  void Done() { Set(State::kDone); }
  void Announce() { Set(State::kThere); }
  void Stop() { Set(State::kNone); }

  bool IsAwaited() const { return Get() == State::kAwaited; }
  // Whether it is there, after `limit` at most; at once when discovery does not run.
  bool Wait(std::chrono::milliseconds limit) EXCLUDES(m_Lock) {
    const auto end = std::chrono::steady_clock::now() + limit;
    LockGuard guard(m_Lock);
    const auto waiting = [this]()
                             REQUIRES(m_Lock) { return m_State == State::kAwaited || m_State == State::kDone; };
    while (waiting() && m_Changed.wait_until(m_Lock, end) != std::cv_status::timeout) {
    }
    return m_State == State::kThere;
  }

 private:
  enum class State { kNone, kAwaited, kDone, kThere };

  State Get() const EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    return m_State;
  }
  void Set(State state) EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    // A cycle that ends while discovery stops changes nothing.
    if (state > State::kAwaited && m_State == State::kNone) return;
    m_State = state;
    m_Changed.notify_all();
  }

  mutable CZylThreadLock m_Lock;
  std::condition_variable_any m_Changed;
  State m_State GUARDED_BY(m_Lock) = State::kNone;
};

#endif  // DISCOVERY_FIRSTPICTURE_H_

// Turns at reading below the local ports: one read of a kind at a time, so that the local driver sees one such
// request at once.
//
// A read may hang in the provider for as long as it likes, also one whose cycle was killed long ago. Nobody
// waits for that: a waiter gives up when it is stopped, and when the read before it has made no call for ten
// seconds. What hangs is not overtaken; the waiter's port counts as in use, nothing of it is read, and it is
// visited again.
#ifndef INBAND_LOCALTURN_H_
#define INBAND_LOCALTURN_H_

#include <atomic>
#include <chrono>
#include <condition_variable>

#include "inband/StopQuery.h"
#include "model/HbaEntry.h"
#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

// The queue of one kind of read.
//
// Thread safety: any thread; internally locked by a leaf. Nobody enters with a list locked. Ownership: never
// destroyed while a thread may read, so a global one is leaked on purpose.
class LocalReads {
 public:
  static constexpr std::chrono::milliseconds kStuckAfter{10'000};

  explicit LocalReads(std::chrono::milliseconds stuckAfter = kStuckAfter) : m_StuckAfter(stuckAfter) {}

  enum class Result { kEntered, kStopped, kStuck };

  // Waits until nobody reads. kStuck: the read before has made no call for `stuckAfter`.
  Result Enter(const StopQuery& stopped) EXCLUDES(m_Lock);
  // By the reader: it is about to make another call.
  void NoteCall() { m_LastCall.store(Clock::now().time_since_epoch(), std::memory_order_relaxed); }
  void Leave() EXCLUDES(m_Lock);

 private:
  using Clock = std::chrono::steady_clock;

  bool IsStuck() const;

  const std::chrono::milliseconds m_StuckAfter;
  CZylThreadLock m_Lock;
  std::condition_variable_any m_Left;
  bool m_Reading GUARDED_BY(m_Lock) = false;
  // Atomic: the reader notes its calls without the lock.
  std::atomic<Clock::duration> m_LastCall{Clock::duration::zero()};
};

// One read's turn, for a scope. A port of another host waits for nobody.
//
// Thread safety: used by one thread. Ownership: `reads` outlives the turn.
class LocalTurn {
 public:
  LocalTurn(LocalReads& reads, const CHbaEntry& port, const StopQuery& stopped);
  ~LocalTurn();
  LocalTurn(const LocalTurn&) = delete;
  LocalTurn& operator=(const LocalTurn&) = delete;

  // False: nothing is to be read.
  bool HasCome() const { return m_Result == LocalReads::Result::kEntered; }
  // Before each call to the provider.
  void NoteCall() const {
    if (m_Reads != nullptr) m_Reads->NoteCall();
  }

 private:
  LocalReads* const m_Reads;  // null for a port of another host
  const LocalReads::Result m_Result;
};

#endif  // INBAND_LOCALTURN_H_

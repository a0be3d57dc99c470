// A worker as the reads of one host see it: no longer enabled once that host has kept it waiting for too long.
//
// Whoever reads a host looks at its worker before and after each provider call and pauses between tries, so
// what passes between two looks, less the pauses, is one call's time. A call that lasts about as long as a call
// may has run into the limit. Such calls count, and the pauses, and what led to a failure; good answers may
// take as long as they like together.
//
// Thread safety: for the thread that made it. The worker outlives it.
#ifndef OOB_HOSTPATIENCE_H_
#define OOB_HOSTPATIENCE_H_

#include <chrono>
#include <utility>

#include "thread/zyl_thread_pool.h"

class HostPatience final : public CZylTpThread {
 public:
  using Milliseconds = std::chrono::milliseconds;

  // A host is given up after this many calls in a row that ran into the limit, or when all that counts has
  // taken so many limits' time together.
  static constexpr int kMostInRow = 3;
  static constexpr int kMostLimits = 6;

  HostPatience(const CZylTpThread& worker, Milliseconds callLimit);

  // 1 while the worker is enabled and the host is not given up.
  int IsEnabled() const override;
  bool IsExhausted() const { return m_InRow >= kMostInRow || m_Wasted >= kMostLimits * m_CallLimit; }

  // Another port begins: what came before belongs to the ports before it.
  void BeginPort() {
    Look();
    m_Unjudged = {};
  }
  // The host has answered: its calls are no longer in a row.
  void NoteAnswer() {
    m_InRow = 0;
    m_Unjudged = {};
  }
  // What was asked since the last note has come to nothing.
  void NoteFailure() { m_Wasted += std::exchange(m_Unjudged, Clock::duration{}); }

  bool HasRunIntoLimit() const { return IsLimit(m_LongestCall); }
  // Whether a call that failed has cost more than a refusal does.
  bool HasWaited() const { return m_LongestCall >= m_CallLimit / 20; }

 private:
  using Clock = std::chrono::steady_clock;

  void Look() const;
  bool IsLimit(Clock::duration call) const { return call >= m_CallLimit * 9 / 10; }

  const CZylTpThread& m_Worker;
  const Milliseconds m_CallLimit;
  // Looking is what takes the time.
  mutable Clock::time_point m_Looked = Clock::now();
  mutable std::chrono::microseconds m_Slept = ZylSlept();
  mutable Clock::duration m_LongestCall{0};
  mutable Clock::duration m_Wasted{0};
  mutable Clock::duration m_Unjudged{0};  // of this port, since the last note; calls below the limit
  mutable int m_InRow = 0;
};

#endif  // OOB_HOSTPATIENCE_H_

// Who may begin: a cycle, a directed refresh or the request of a forced cycle, of which each keeps cycles from
// beginning.
//
// Thread safety: internally locked. The lock is held for the decision alone, and the kill lock of the state
// word is taken inside it. Nobody waits here: who is refused asks again, in steps, and gives up when it is to
// stop. Ownership: the state word outlives the gate.
#ifndef DISCOVERY_CYCLEGATE_H_
#define DISCOVERY_CYCLEGATE_H_

#include "discovery/StateWord.h"
#include "thread/zyl_thread.h"

class CycleGate {
 public:
  explicit CycleGate(StateWord& state) : m_State(state) {}

  enum class Entry {
    kBegun,    // the cycle runs
    kRefused,  // another runs already, or discovery stops
    kHeld,     // a refresh or a request is under way
  };
  Entry BeginCycle() EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    if (m_Refresher != nullptr || m_Forcing) return Entry::kHeld;
    return m_State.BeginCycle() ? Entry::kBegun : Entry::kRefused;
  }

  // A forced cycle is being asked for: a periodic one that began now would have to be killed as well, or the
  // forced one would wait for its end. By one thread at a time.
  void HoldForRequest(bool hold) EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    m_Forcing = hold;
  }

  // `refresher` names who refreshes; one does at a time. A running cycle goes on to its end.
  bool ClaimRefresh(const void* refresher) EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    if (m_Refresher != nullptr) return false;
    m_Refresher = refresher;
    return true;
  }
  bool IsRefreshing(const void* refresher) const EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    return m_Refresher == refresher;
  }
  void LeaveRefresh(const void* refresher) EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    if (m_Refresher == refresher) m_Refresher = nullptr;
  }

 private:
  StateWord& m_State;
  mutable CZylThreadLock m_Lock;
  const void* m_Refresher GUARDED_BY(m_Lock) = nullptr;  // null: no refresh
  bool m_Forcing GUARDED_BY(m_Lock) = false;
};

#endif  // DISCOVERY_CYCLEGATE_H_

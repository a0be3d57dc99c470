#include "discovery/StateWord.h"

bool StateWord::StopRequested() const {
  const std::uint32_t state = Get();
  return (state & kStateKillRequested) != 0 || (state & kStateStarted) == 0 || m_MainThread.Terminated() != 0;
}

bool StateWord::LeaveStarted() {
  constexpr std::uint32_t kBoth = kStateStarted | kStateEnabled;
  std::uint32_t state = Get();
  do {
    if ((state & kBoth) != kBoth) return false;
  } while (!m_State.compare_exchange_weak(state, state & ~kBoth));
  return true;
}

void StateWord::Force() {
  m_State.fetch_or(kStateEnabled | kStateForced);
  m_MainThread.Signal();
}

bool StateWord::BeginCycle() {
  LockGuard guard(m_KillLock);
  if ((Get() & (kStateInCycle | kStateStarted)) != kStateStarted) return false;
  ++m_CycleNumber;
  Clear(kStateKillRequested);
  m_State.fetch_or(kStateInCycle);
  return true;
}

// The signal of a kill that nobody waited for would start the next cycle at once; it goes first, since from
// then on a signal asks for a cycle.
std::uint32_t StateWord::EndCycle(bool served) {
  LockGuard guard(m_KillLock);
  if (IsKilled()) m_MainThread.UnSignal();
  const std::uint32_t ended = kStateInCycle | (served ? kStateForced : 0U);
  return m_State.fetch_and(~ended);
}

bool StateWord::Kill() {
  if (!InCycle()) return false;
  m_State.fetch_or(kStateKillRequested);
  m_MainThread.Signal();
  return true;
}

bool StateWord::RequestKill(unsigned int* cycle) {
  LockGuard guard(m_KillLock);
  if (!Kill()) return false;
  ++m_KillWaiters;
  *cycle = m_CycleNumber.load();
  return true;
}

// The last of several killers clears the request, so that none takes it away from another. A later cycle has
// cleared it, and what stands there now is its own.
void StateWord::DropKillWaiter(unsigned int cycle) {
  LockGuard guard(m_KillLock);
  if (--m_KillWaiters == 0 && m_CycleNumber.load() == cycle) Clear(kStateKillRequested);
}

void StateWord::RequestKillUnwaited() {
  LockGuard guard(m_KillLock);
  Kill();
}

void StateWord::DropUnwaitedKill() {
  LockGuard guard(m_KillLock);
  if (m_KillWaiters == 0) Clear(kStateKillRequested);
}

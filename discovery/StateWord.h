// The state word of in-band discovery: what runs, what was asked for, and the kill of a running cycle.
//
// Every transition is a call of this class. Bits that a row does not name stay.
//
// clang-format off
// | call                | needs               | sets                     | clears                           |
// |---------------------|---------------------|--------------------------|----------------------------------|
// | Start               |                     | enabled, started, forced |                                  |
// | LeaveStarted        | enabled and started |                          | enabled, started                 |
// | Stopped             |                     |                          | started, forced                  |
// | Pause               |                     |                          | enabled                          |
// | Force               |                     | enabled, forced          |                                  |
// | BeginCycle          | started, no cycle   | in cycle                 | kill: it was an earlier cycle's  |
// | EndCycle            |                     |                          | in cycle, and forced if served   |
// | RequestKill         | in cycle            | kill                     |                                  |
// | RequestKillUnwaited | in cycle            | kill                     |                                  |
// | DropKillWaiter      | the last waiter     |                          | kill, unless a later cycle began |
// | DropUnwaitedKill    | no waiter           |                          | kill                             |
// clang-format on
//
// Thread safety: every call may be made from any thread. The word is an atomic that anybody reads; the kill
// lock makes the in-cycle and kill bits change in one step with the count of those who wait for a killed cycle.
// It is a leaf. Ownership: the thread, which is signalled, outlives the object. It need not run.
#ifndef DISCOVERY_STATEWORD_H_
#define DISCOVERY_STATEWORD_H_

#include <atomic>
#include <cstdint>

#include "thread/zyl_thread.h"

// Bits of the state word.
enum DiscoState : std::uint32_t {
  kStateEnabled = 0x01,        // periodic cycles run
  kStateStarted = 0x02,        // between Startup and Terminate
  kStateInCycle = 0x04,        // a cycle runs
  kStateKillRequested = 0x08,  // the running cycle is to stop
  kStateForced = 0x10,         // a full cycle was asked for, or is running
};

class StateWord {
 public:
  // `mainThread` runs the cycles.
  explicit StateWord(CZylThread& mainThread) : m_MainThread(mainThread) {}

  std::uint32_t Get() const { return m_State.load(); }
  bool HasAll(std::uint32_t bits) const { return (Get() & bits) == bits; }
  bool IsStarted() const { return HasAll(kStateStarted); }
  bool IsForced() const { return HasAll(kStateForced); }
  bool InCycle() const { return HasAll(kStateInCycle); }
  bool IsKilled() const { return HasAll(kStateKillRequested); }
  // Whether a cycle is to end: a kill, or a shut-down that has given up waiting for one.
  bool StopRequested() const;

  void Start() { m_State.fetch_or(kStateEnabled | kStateStarted | kStateForced); }
  // In one step; false, and nothing, when either bit was clear already.
  bool LeaveStarted();
  void Stopped() { Clear(kStateStarted | kStateForced); }
  void Pause() { Clear(kStateEnabled); }
  // Wakes the main thread.
  void Force();

  // False when a cycle runs already or discovery stops.
  bool BeginCycle() EXCLUDES(m_KillLock);
  // Answers what the state was. `served`: the cycle was the forced one, or a full one that serves the request.
  std::uint32_t EndCycle(bool served) EXCLUDES(m_KillLock);

  // Has the running cycle stop and wakes the main thread. False when none runs; else the caller waits while
  // IsRunning(*cycle), and then drops itself.
  bool RequestKill(unsigned int* cycle) EXCLUDES(m_KillLock);
  bool IsRunning(unsigned int cycle) const { return InCycle() && m_CycleNumber.load() == cycle; }
  void DropKillWaiter(unsigned int cycle) EXCLUDES(m_KillLock);
  // For a caller that the cycle may be waiting for. The end of the cycle drops the request.
  void RequestKillUnwaited() EXCLUDES(m_KillLock);
  void DropUnwaitedKill() EXCLUDES(m_KillLock);

 private:
  void Clear(std::uint32_t bits) { m_State.fetch_and(~bits); }
  bool Kill() REQUIRES(m_KillLock);

  CZylThread& m_MainThread;
  // Atomic: read and written by the application's threads and by the discovery threads, each on its own.
  std::atomic<std::uint32_t> m_State{0};
  std::atomic<unsigned int> m_CycleNumber{0};  // of the running cycle, or of the last one
  CZylThreadLock m_KillLock;
  unsigned int m_KillWaiters GUARDED_BY(m_KillLock) = 0;
};

#endif  // DISCOVERY_STATEWORD_H_

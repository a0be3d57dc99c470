// What the application asks of cycles: to begin one at once, and to stop the one that runs.
//
// Thread safety: every call may be made from any thread. Inside a callback none waits, for the cycle may be
// waiting for this very thread: the request is left behind and carried out later.
// Ownership: the parts outlive the object.
#ifndef DISCOVERY_CYCLEREQUESTS_H_
#define DISCOVERY_CYCLEREQUESTS_H_

#include "discovery/Parts.h"

class CycleRequests {
 public:
  explicit CycleRequests(Parts& parts) : m_Parts(parts) {}

  // Kills a periodic cycle, in-band or remote, and asks for a full one on both sides. 1: it was asked for. 0:
  // one is asked for or runs already.
  int StartDiscoveryCycle() EXCLUDES(m_ForceLock);
  // Waits until the running cycle has stopped, at most about 10 seconds when `giveUp` is not 0.
  void KillDiscoveryCycle(int giveUp);

 private:
  int ForceCycle() REQUIRES(m_ForceLock);
  bool AlreadyForced(const COOBHbaDiscover* oob) const;
  void KillForForcedCycle(COOBHbaDiscover* oob);
  int RequestForcedCycle();
  void AwaitCycleEnd(int giveUp, unsigned int cycle) const;

  Parts& m_Parts;
  CZylThreadLock m_ForceLock;  // one StartDiscoveryCycle at a time
};

#endif  // DISCOVERY_CYCLEREQUESTS_H_

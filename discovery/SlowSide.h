// Slow discovery as the controller has it: from the first start to the stop there is one, in which nothing runs
// when discovery is local only.
//
// Thread safety: every call may be made from any thread.
// Ownership: shared with whoever is inside a call. A slow cycle that is cut short keeps its discoverer alive.
#ifndef DISCOVERY_SLOWSIDE_H_
#define DISCOVERY_SLOWSIDE_H_

#include <memory>

#include "inband/SlowHbaDiscover.h"
#include "model/DiscoveryOwner.h"
#include "model/HbaList.h"
#include "thread/SharedSlot.h"

class SlowSide {
 public:
  // Makes the discoverer when there is none, and starts it with an owner. The owner outlives its thread.
  void Start(DiscoveryOwner* owner);
  // One that is in a cycle ends by itself.
  void Stop();
  bool Exists() const { return m_Discoverer.Get() != nullptr; }

  // Null when nothing runs.
  std::shared_ptr<CHbaList> GetHbaList() const;
  // As the calls of the discoverer; nothing without one.
  void Pause(int pause);
  void Reset();
  void ChangeDiscoveryInterval(unsigned int seconds);

 private:
  SharedSlot<CSlowHbaDiscover> m_Discoverer;
};

#endif  // DISCOVERY_SLOWSIDE_H_

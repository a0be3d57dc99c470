// Out-of-band discovery as the controller has it: from the start, unless local only or not wanted, to the stop.
//
// Thread safety: every call may be made from any thread; start and stop by one at a time.
// Ownership: shared with whoever is inside a call.
#ifndef DISCOVERY_REMOTESIDE_H_
#define DISCOVERY_REMOTESIDE_H_

#include <memory>

#include "model/DiscoveryOwner.h"
#include "oob/OobHbaDiscover.h"
#include "thread/SharedSlot.h"

class RemoteSide {
 public:
  // Interval in seconds. The owner outlives the discoverer's thread. Waits a moment for its first cycle.
  void Start(DiscoveryOwner& owner, unsigned int interval);
  // Joins the thread. One that never ran stays: its hosts are refused as those of a controller that does not
  // run.
  void Stop();
  void Drop() { m_Discoverer.Set(nullptr); }

  // Null: none.
  std::shared_ptr<COOBHbaDiscover> Get() const { return m_Discoverer.Get(); }
  // The port of this host's own agent.
  unsigned short GetIpPortNumber() const;

  // As the calls of the same names in COOBHbaDiscover. Without one: adding is 1, removing 0.
  int AddOOBHost(const char* host);
  int RemoveOOBHost(const char* host);
  int AddCimHost(const CIMCredentials* credentials);
  int RemoveCimHost(const CIMCredentials* credentials);

 private:
  SharedSlot<COOBHbaDiscover> m_Discoverer;
};

#endif  // DISCOVERY_REMOTESIDE_H_

// What discovery knows: the current list, which all cycles merge into, the list that a full cycle gathers, and
// the snapshots that the enumeration calls walk.
//
// Thread safety: every call may be made from any thread.
// Ownership: lists are shared-owned; whoever copied a pointer keeps its list alive, also past a stop. The
// remote side, which knows the port of this host's agent, outlives the picture.
#ifndef DISCOVERY_CURRENTPICTURE_H_
#define DISCOVERY_CURRENTPICTURE_H_

#include <memory>

#include "discovery/RemoteSide.h"
#include "model/HbaList.h"
#include "model/Systems.h"
#include "rmapi/rmapi.h"
#include "thread/SharedSlot.h"

// Empties a slot once nobody is inside its list any more; the list lives on while somebody holds it.
void FreeHbaList(SharedSlot<CHbaList>& slot);
void FreeSystemList(SharedSlot<CSystemList>& slot);

class CurrentPicture {
 public:
  explicit CurrentPicture(const RemoteSide& remote) : m_Remote(remote) {}

  // ---- The lists that discovery works on ----

  // An empty current list.
  void Open() { m_Current.Set(std::make_shared<CHbaList>(ListRank::kCurrent)); }
  void Close();
  // Null unless open.
  std::shared_ptr<CHbaList> GetCurrentList() const { return m_Current.Get(); }
  // A cycle's list: a new one in a full cycle, null in a lite one. The one before is dropped.
  std::shared_ptr<CHbaList> Gather(bool full);
  void DropGathered() { FreeHbaList(m_Gathered); }
  // Of a full cycle: takes the ports of boards as soon as these are read; null in a lite one.
  std::shared_ptr<CHbaList> GetSeen() const { return m_Seen.Get(); }
  // Merges the gathered list into the current one and drops it. 1: the application has something new to see.
  int UpdateDiscoveryLists();

  // ---- What the application reads; null when not open ----

  std::shared_ptr<CHbaList> GetCurrentHbaList() const { return CopyPorts(IsSecured(), false); }
  // The same in two steps, of which the first asks the provider. `withEarly`: also what the running cycle has
  // read so far and the current list does not have.
  static bool IsSecured();
  std::shared_ptr<CHbaList> CopyPorts(bool secured, bool withEarly) const;
  std::shared_ptr<CSystemList> GetCurrentSystemList() const;
  // Takes over the names of an iSCSI port from the current list; 0 when the port is unknown or another kind.
  int GetiSCSINames(const HBA_NAME& wwpn, CDiscISCSINames* names) const;

 private:
  const RemoteSide& m_Remote;
  SharedSlot<CHbaList> m_Current;
  SharedSlot<CHbaList> m_Gathered;
  SharedSlot<CHbaList> m_Seen;
};

#endif  // DISCOVERY_CURRENTPICTURE_H_

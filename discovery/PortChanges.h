// What differs between two pictures of one port, change by change.
//
// Thread safety: functions without shared state; entries are read only. Ownership: a change refers to the
// entries it is about and to their lists, and is good while it is being visited.
#ifndef DISCOVERY_PORTCHANGES_H_
#define DISCOVERY_PORTCHANGES_H_

#include <functional>

#include "include/hbadiscovery.h"
#include "model/HbaEntry.h"

struct PortChange {
  unsigned int kind = 0;              // HBADISC_CHANGE_
  const CHbaEntry* before = nullptr;  // the port; null: it was, or is, not there
  const CHbaEntry* after = nullptr;
  const CVPortEntry* vport = nullptr;  // whose target it is; null: the port's own
  // What came, went or became another, of the kind; null: was not, or is not, there.
  const void* oldItem = nullptr;  // CTargetEntry, CVPortEntry or CVFEntry
  const void* newItem = nullptr;
};

using PortChangeVisitor = std::function<void(const PortChange& change)>;

// Calls `visit` with each change from `before` to `after`, of which at most one is null, in the order in which
// they are to be told.
void VisitPortChanges(const CHbaEntry* before, const CHbaEntry* after, const PortChangeVisitor& visit);

// The change as applications read it; sequence and time stay as they are.
void FillRecord(const PortChange& change, hbadisc_change* record);

#endif  // DISCOVERY_PORTCHANGES_H_

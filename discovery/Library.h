// What the exported calls share.
//
// Thread safety: each part is internally locked. Ownership: never destroyed: threads may run until the process
// is gone.
#ifndef DISCOVERY_LIBRARY_H_
#define DISCOVERY_LIBRARY_H_

#include "discovery/EnumerationWalk.h"
#include "discovery/HbaDiscover.h"
#include "discovery/PortRecords.h"
#include "model/Systems.h"
#include "thread/SharedSlot.h"

struct Library {
  CHbaDiscover controller;
  EnumerationWalk walk;
  SharedSlot<CSystemList> systems;  // the snapshot of the system calls
};

// Constructed when the library is loaded.
Library& TheLibrary();

// A callback that waited for another thread's walk, while that thread waits for the callback in a control call,
// would wait for ever.
inline bool WalkerMayAwaitUs(std::thread::id walker) {
  return TheLibrary().controller.MayBeAwaitedBy(walker);
}

// No exception crosses the interface: what cannot be allocated gives the call's nothing-found value.
template <class Result, class Body>
Result Guarded(Result nothing, Body body) {
  try {
    return body();
  } catch (...) {
    return nothing;
  }
}

// Begins a walk over what `take`, called once the walk is this thread's, returns.
template <class Record, class Take>
int BeginWalk(Record* record, Take take) {
  EnumerationWalk& walk = TheLibrary().walk;
  if (record == nullptr) {
    walk.Abandon();
    return 0;
  }
  if (!walk.Enter(WalkerMayAwaitUs)) return 0;
  try {
    walk.DropSnapshot();
    return static_cast<int>(
        walk.Begin(take(), [record](const CHbaEntry& entry) noexcept { FillRecord(entry, record); }));
  } catch (...) {
    walk.Abandon();
    return 0;
  }
}

template <class Record>
int ContinueWalk(Record* record) {
  EnumerationWalk& walk = TheLibrary().walk;
  if (record == nullptr) {
    walk.Abandon();
    return 0;
  }
  return walk.Next([record](const CHbaEntry& entry) noexcept { FillRecord(entry, record); }) ? 1 : 0;
}

#endif  // DISCOVERY_LIBRARY_H_

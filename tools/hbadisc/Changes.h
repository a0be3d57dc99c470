// What differs between two pictures of the ports.
//
// Thread safety: functions without shared state.
#ifndef TOOLS_HBADISC_CHANGES_H_
#define TOOLS_HBADISC_CHANGES_H_

#include <string>
#include <vector>

#include "tools/hbadisc/JsonWriter.h"

namespace hbadisc {

enum class ChangeKind { Added, Removed, Changed };

struct Change {
  ChangeKind kind = ChangeKind::Changed;
  std::string port;               // "0x..." name of the port
  std::vector<std::string> path;  // below the port; empty: the port itself. Items of lists stand by their name
  Json before;                    // null when added
  Json after;                     // null when removed
};

// Compares two lists of ports as ToJson writes them, so that a new key there is watched at once. Ports in the
// order of their names; of a port, its changes in the order of its keys.
std::vector<Change> Compare(const Json& before, const Json& after);

// Also for the keys of an event document: "added", "removed", "changed".
std::string_view KindText(ChangeKind kind);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_CHANGES_H_

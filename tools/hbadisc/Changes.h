// What has changed, as the library records it, port by port and value by value.
//
// Thread safety: one thread. Ownership: plain values.
#ifndef TOOLS_HBADISC_CHANGES_H_
#define TOOLS_HBADISC_CHANGES_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "include/hbadiscovery.h"
#include "tools/hbadisc/JsonWriter.h"
#include "tools/hbadisc/Port.h"

namespace hbadisc {

enum class ChangeKind { Added, Removed, Changed };

struct Change {
  ChangeKind kind = ChangeKind::Changed;
  std::string port;               // "0x..." name of the port
  std::vector<std::string> path;  // below the port; empty: the port itself. Items of lists stand by their name
  Json before;                    // null when added
  Json after;                     // null when removed
};

// Also for the keys of an event document: "added", "removed", "changed".
std::string_view KindText(ChangeKind kind);

// Follows the library's picture.
class Follower {
 public:
  // Ports outside the scope are not followed. To be made before discovery starts: then every port is new.
  explicit Follower(Scope scope);

  // All that is there, as after the first look, whose records tell port by port how it went on.
  std::vector<Change> Begin() { return WalkAgain(); }
  // What has changed since the last call. `lost` becomes true when it was too much to be told one by one, so
  // that only ports which came or went are.
  std::vector<Change> Next(bool* lost);

  std::size_t PortCount() const { return m_Kinds.size(); }
  // Becomes readable when there is something new; the library's own. Forget makes it wait for the next.
  int Descriptor() const { return m_Descriptor; }
  void Forget() const;

 private:
  std::vector<Change> WalkAgain();
  void Take(const hbadisc_change& record, std::vector<Change>& changes);
  void TakeValue(const hbadisc_change& record, std::vector<Change>& changes) const;

  const Scope m_Scope;
  const int m_Descriptor;
  std::uint64_t m_Sequence = 0;
  std::map<Wwn, PortKind> m_Kinds;  // of the ports that are followed
};

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_CHANGES_H_

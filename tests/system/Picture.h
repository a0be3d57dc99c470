// The kept picture as an application holds it: read whole, or brought up to date by the records of changes.
#ifndef TESTS_SYSTEM_PICTURE_H_
#define TESTS_SYSTEM_PICTURE_H_

#include <cstring>

#include "tests/system/Harness.h"

namespace systemtest {

using Bytes = std::string;

template <class Record>
Bytes BytesOf(const Record& record, std::size_t size = sizeof(Record)) {
  return {reinterpret_cast<const char*>(&record), size};
}

// A port and all that hangs off it, everything as bytes.
struct KeptPort {
  hba_discovery_info_V4 record{};
  Bytes names;
  std::map<std::pair<Bytes, Bytes>, Bytes> targets;  // by virtual port (zeros: none) and the target's own key
  std::map<Bytes, Bytes> vports;                     // by name: the node name
  std::set<Bytes> functions;

  // Without the counts, which follow from the rest.
  Bytes Comparable() const {
    hba_discovery_info_V4 own = record;
    own.base.base.base.targetCount = 0;
    own.base.base.vportCount = 0;
    own.base.vfCount = 0;
    Bytes text = BytesOf(own) + names;
    for (const auto& [key, target] : targets) text += key.first + target;
    for (const auto& [name, node] : vports) text += name + node;
    for (const Bytes& function : functions) text += function;
    return text;
  }
};

class Picture {
 public:
  // Walks; `sequence` is the number of the last change in it.
  static Picture Read(const Library& library, std::uint64_t* sequence);
  void Apply(const hbadisc_change& change);
  std::map<std::string, KeptPort> ports;  // by name
};

}  // namespace systemtest

#endif  // TESTS_SYSTEM_PICTURE_H_

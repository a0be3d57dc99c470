// What one look has shown.
//
// Thread safety: plain values. Ownership: owns what it holds.
#ifndef TOOLS_HBADISC_PICTURE_H_
#define TOOLS_HBADISC_PICTURE_H_

#include <optional>
#include <string>
#include <vector>

#include "tools/hbadisc/Port.h"
#include "tools/hbadisc/Unanswered.h"

namespace hbadisc {

struct Picture {
  std::vector<Port> ports;             // in order of port name
  std::vector<Unanswered> unanswered;  // what could not be asked
  std::vector<RemoteHost> hosts;       // of the hosts file; none when only this host was wanted
  bool complete = false;               // the first discovery cycle had ended
  std::optional<bool> changed;         // by reading one port again; unset: that was not done
  std::string trouble;                 // why the provider has nothing to look at on this host; empty: it has
};

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_PICTURE_H_

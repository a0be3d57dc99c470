// One look of the library and what has changed since the one before.
//
// Thread safety: plain values and functions without shared state. Ownership: an event owns what it holds.
#ifndef TOOLS_HBADISC_EVENT_H_
#define TOOLS_HBADISC_EVENT_H_

#include <string>
#include <vector>

#include "tools/hbadisc/Changes.h"
#include "tools/hbadisc/Time.h"
#include "tools/hbadisc/Unanswered.h"

namespace hbadisc {

struct Event {
  unsigned int number = 0;  // from 1
  Moment time = 0;
  unsigned int reason = 0;  // HBADISC_REASON_ bits; 0: seen between two callbacks
  bool first = false;       // the first look has ended with it
  std::size_t portCount = 0;
  std::vector<Change> changes;
  std::vector<RemoteHost> hosts;  // that answer no more, or again

  bool HasNews() const { return !changes.empty() || !hosts.empty(); }
};

// "forced", "changed" and so on: the bits of a reason.
std::vector<std::string> ReasonNames(unsigned int reason);

// Its time is UTC.
Json ToJson(const Event& event);

// One line for people; its time is local.
std::string EventLine(const Event& event, bool colour);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_EVENT_H_

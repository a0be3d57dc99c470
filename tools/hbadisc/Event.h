// One callback of the library and what has changed since the one before.
//
// Thread safety: plain values and functions without shared state. Ownership: an event owns what it holds.
#ifndef TOOLS_HBADISC_EVENT_H_
#define TOOLS_HBADISC_EVENT_H_

#include <chrono>
#include <string>
#include <vector>

#include "tools/hbadisc/Changes.h"

namespace hbadisc {

struct Event {
  unsigned int number = 0;  // from 1
  std::chrono::system_clock::time_point time;
  unsigned int reason = 0;  // HBADISC_REASON_ bits
  std::size_t portCount = 0;
  std::vector<Change> changes;
};

// "forced", "changed" and so on: the bits of a reason.
std::vector<std::string> ReasonNames(unsigned int reason);

// Its time is UTC.
Json ToJson(const Event& event);

// One line for people; its time is local.
std::string EventLine(const Event& event, bool colour);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_EVENT_H_

// Moments as texts.
//
// Thread safety: functions without shared state.
#ifndef TOOLS_HBADISC_TIME_H_
#define TOOLS_HBADISC_TIME_H_

#include <cstdint>
#include <string>

namespace hbadisc {

// Milliseconds since the epoch, as the library tells them.
using Moment = std::int64_t;

Moment Now();
// "2026-11-25T21:44:10Z".
std::string IsoTime(Moment moment);
// "2026-11-25 22:44:10", where this machine is.
std::string LocalTime(Moment moment);
// "12 s", "3 min", "2 h", "5 d": how long ago it was.
std::string AgeText(Moment moment, Moment now);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_TIME_H_

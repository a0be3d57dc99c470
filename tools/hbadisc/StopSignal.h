// The user's wish to end a program that otherwise runs on: SIGINT, SIGTERM or SIGHUP.
//
// The first signal is remembered and posted as a notice; a second one of its kind ends the program at once.
//
// Thread safety: Requested from any thread; one object at a time. Ownership: `notices` has to outlive the
// object.
#ifndef TOOLS_HBADISC_STOPSIGNAL_H_
#define TOOLS_HBADISC_STOPSIGNAL_H_

#include "tools/hbadisc/Notices.h"

namespace hbadisc {

class StopSignal {
 public:
  // Handles the signals from now on.
  explicit StopSignal(const Notices& notices);
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;
  ~StopSignal();

  static bool Requested();
};

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_STOPSIGNAL_H_

// One run of the library's discovery, from start to stop.
//
// Thread safety: one thread. Ownership: `notices` has to outlive the object; at most one object at a time,
// because the library has one controller a process.
#ifndef TOOLS_HBADISC_DISCOVERY_H_
#define TOOLS_HBADISC_DISCOVERY_H_

#include "tools/hbadisc/Notices.h"
#include "tools/hbadisc/Port.h"

namespace hbadisc {

class Discovery {
 public:
  // Starts; every callback is posted to `notices`. `interval` is the seconds between cycles, 0: only the first
  // one, which starts at once. Remote hosts are asked unless the scope is this host.
  Discovery(unsigned int interval, Scope scope, const Notices& notices);
  Discovery(const Discovery&) = delete;
  Discovery& operator=(const Discovery&) = delete;
  // Stops, as a failed program.
  ~Discovery();

  // Stops discovery. When the library does not stop in time, because an adapter does not answer, the process
  // ends here, with `exitCode`: its work is done, and the thread that hangs cannot be ended alone.
  void Stop(int exitCode);

 private:
  bool m_Stopped = false;
};

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_DISCOVERY_H_

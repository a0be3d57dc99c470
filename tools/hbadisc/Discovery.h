// One run of the library's discovery, from start to stop.
//
// Thread safety: one thread. Ownership: `notices` has to outlive the object; at most one object at a time,
// because the library has one controller a process.
#ifndef TOOLS_HBADISC_DISCOVERY_H_
#define TOOLS_HBADISC_DISCOVERY_H_

#include <chrono>
#include <future>
#include <optional>

#include "tools/hbadisc/Notices.h"
#include "tools/hbadisc/Port.h"

namespace hbadisc {

class Discovery {
 public:
  // Starts; every callback is posted to `notices`. The first cycle starts at once, others when they are asked
  // for. Remote hosts are asked unless the scope is this host. A hurried one makes no pauses.
  Discovery(Scope scope, const Notices& notices, bool hurried = false);
  Discovery(const Discovery&) = delete;
  Discovery& operator=(const Discovery&) = delete;
  // Stops, as a failed program.
  ~Discovery();

  // False when the start has not returned within `limit` (none: as long as it takes), because the provider
  // does not answer. Nothing else is to be asked of the library then.
  bool HasStarted(std::optional<std::chrono::milliseconds> limit) const;

  // Stops discovery. When the library does not stop in time, because an adapter does not answer, the process
  // ends here, with `exitCode`: its work is done, and the thread that hangs cannot be ended alone.
  void Stop(int exitCode);
  // Ends the process without stopping discovery first.
  [[noreturn]] static void Leave(int exitCode);

 private:
  std::shared_future<void> m_Started;
  bool m_Stopped = false;
};

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_DISCOVERY_H_

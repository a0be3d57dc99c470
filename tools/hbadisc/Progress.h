// What is known while the first look goes on.
//
// Thread safety: one thread.
#ifndef TOOLS_HBADISC_PROGRESS_H_
#define TOOLS_HBADISC_PROGRESS_H_

#include <chrono>
#include <string>

#include "tools/hbadisc/Port.h"

namespace hbadisc {

// "Looking for adapter ports: 12 ports, 3 of 20 hosts, 5 s".
std::string ProgressText(Scope scope, std::chrono::milliseconds elapsed);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_PROGRESS_H_

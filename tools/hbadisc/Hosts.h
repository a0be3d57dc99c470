// The commands about the remote hosts that discovery asks: list, add, remove.
//
// Thread safety: one thread a process, which the library has one controller for.
#ifndef TOOLS_HBADISC_HOSTS_H_
#define TOOLS_HBADISC_HOSTS_H_

#include "tools/hbadisc/Options.h"
#include "tools/hbadisc/Output.h"

namespace hbadisc {

bool IsHostCommand(Command command);

// The result is the exit code: that of the last host that could not be added or removed, kOk when all could.
int RunHosts(const Options& options, Output& output, Messages& messages);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_HOSTS_H_

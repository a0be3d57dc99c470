// The commands that look once: list, show and targets.
//
// Thread safety: one thread a process, which the library has one controller for.
#ifndef TOOLS_HBADISC_COMMANDS_H_
#define TOOLS_HBADISC_COMMANDS_H_

#include "tools/hbadisc/Options.h"
#include "tools/hbadisc/Output.h"

namespace hbadisc {

// Runs whichever command was asked for; the result is the exit code. Throws Failure, OutputError, or what the
// standard library throws; in JSON a document that says why has been written then.
int RunCommand(const Options& options, Output& output, Messages& messages);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_COMMANDS_H_

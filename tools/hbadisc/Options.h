// What the user asks for on the command line.
//
// Thread safety: functions without shared state.
#ifndef TOOLS_HBADISC_OPTIONS_H_
#define TOOLS_HBADISC_OPTIONS_H_

#include <chrono>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/hbadisc/Port.h"
#include "tools/hbadisc/Source.h"
#include "tools/hbadisc/Wwn.h"

namespace hbadisc {

enum class Command { List, Show, Targets, Watch, Refresh, ListHosts, AddHosts, RemoveHosts };

enum class Format { Table, JsonDocument, JsonLines };

struct Options {
  Command command = Command::List;
  Format format = Format::Table;
  Source source;
  std::string hostsDirectory;  // of the hosts file; empty: where the provider has it
  Scope scope = Scope::Everywhere;
  std::optional<std::chrono::seconds> timeout = std::chrono::seconds(30);  // of the first cycle; none: no limit
  bool verbose = false;
  bool cycle = false;                 // look once as applications do, with the pauses of a cycle
  Wwn wwpn;                           // of show, targets and refresh
  unsigned int what = 0;              // of refresh, HBADISC_REFRESH_ bits
  unsigned int intervalSeconds = 90;  // of watch
  unsigned int callbackCount = 0;     // of watch: lines; 0: until it is stopped
  bool changesOnly = false;           // of watch
  bool ask = true;                    // of the list of hosts
  std::vector<std::string> hosts;     // to add or remove
};

// Nothing to do but to print: help, the version, or why the command line makes no sense.
struct Notification {
  int exitCode = 0;
  std::string text;  // for standard output with exit code 0, else for standard error
};

std::variant<Options, Notification> ParseOptions(int argc, const char* const* argv);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_OPTIONS_H_

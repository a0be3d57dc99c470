// The agent's command line.
#ifndef AGENT_OPTIONS_H_
#define AGENT_OPTIONS_H_

#include <string>
#include <variant>

#include "agent/Server.h"

namespace agent {

struct Options {
  std::string fabricFile;  // empty: the sysfs
  std::string sysfsRoot = "/sys";
  std::string user;  // empty: nobody, when started as root
  ServerOptions server;
};

// What is to be said in place of running: help, the version, or what is wrong with the command line.
struct Saying {
  int exitCode = 0;
  std::string text;
};

std::variant<Options, Saying> ParseOptions(int argc, const char* const* argv);

}  // namespace agent

#endif  // AGENT_OPTIONS_H_

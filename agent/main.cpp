// hbadisc-agent: lets remote discovery see this machine's adapter ports, or the hosts of a fabric file.
#include <sys/signalfd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <sstream>

#include "agent/Options.h"
#include "agent/Privileges.h"
#include "agent/Server.h"
#include "provider/base/FileDescriptor.h"
#include "provider/base/ProviderLog.h"

namespace agent {

namespace {

// Becomes readable when the process is to end. Blocks these signals here and in the threads to come.
provider::FileDescriptor StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return provider::FileDescriptor(signalfd(-1, &signals, SFD_CLOEXEC));
}

void LogLines(const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) provider::LogLine(line);
}

ServedHosts OpenHosts(const Options& options) {
  if (options.fabricFile.empty()) return ServedHosts::OfSysfs(options.sysfsRoot);
  return ServedHosts::OfFabric(options.fabricFile, !options.server.listen.empty());
}

void Serve(const Options& options) {
  ForbidNewRights();
  const provider::FileDescriptor stop = StopSignals();
  if (!stop.IsOpen()) throw std::runtime_error("no descriptor for signals");
  RaiseDescriptorLimit();
  Server server(OpenHosts(options), options.server);
  DropPrivileges(options.user);
  LogLines(server.Addresses());
  if (server.IsOpenToOthers()) {
    provider::LogLine(
        "warning: others than this machine can connect; all who can may read, and nothing is encrypted");
  }
  server.Run(stop.Get());
}

int Main(int argc, const char* const* argv) {
  // Whoever reads the log may go away.
  std::signal(SIGPIPE, SIG_IGN);
  provider::LogToStandardError("hbadisc-agent");
  try {
    const auto parsed = ParseOptions(argc, argv);
    if (const auto* saying = std::get_if<Saying>(&parsed)) {
      (saying->exitCode == 0 ? std::cout : std::cerr) << saying->text;
      return saying->exitCode;
    }
    Serve(std::get<Options>(parsed));
    return 0;
  } catch (const std::exception& error) {
    provider::LogLine(error.what());
    return 1;
  }
}

}  // namespace

}  // namespace agent

int main(int argc, char** argv) {
  return agent::Main(argc, argv);
}

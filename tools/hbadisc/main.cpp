// hbadisc: shows the adapter ports of this host.
#include <unistd.h>

#include <csignal>
#include <exception>
#include <variant>

#include "tools/hbadisc/Commands.h"
#include "tools/hbadisc/Options.h"
#include "tools/hbadisc/Output.h"

namespace hbadisc {

namespace {

int Tell(const Notification& notification, Output& output, Messages& messages) {
  if (notification.exitCode == kOk) {
    output.Write(notification.text);
  } else {
    messages.Say(notification.text);
    messages.Say("try 'hbadisc --help'");
  }
  return notification.exitCode;
}

int Run(int argc, char** argv, Output& output, Messages& messages) {
  const auto parsed = ParseOptions(argc, argv);
  if (const auto* notification = std::get_if<Notification>(&parsed))
    return Tell(*notification, output, messages);
  const Options& options = std::get<Options>(parsed);
  messages.SetVerbose(options.verbose);
  return RunCommand(options, output, messages);
}

int Main(int argc, char** argv) {
  // A reader that goes away is an error of write, not the death of the process.
  std::signal(SIGPIPE, SIG_IGN);
  Output output(ClaimStandardOutput());
  Messages messages(STDERR_FILENO);
  try {
    return Run(argc, argv, output, messages);
  } catch (const OutputError& error) {
    if (*error.what()) messages.Say(error.what());
  } catch (const Failure& failure) {
    messages.Say(failure.what());
    return failure.Code();
  } catch (const std::exception& error) {
    messages.Say(error.what());
  }
  return kFailed;
}

}  // namespace

}  // namespace hbadisc

int main(int argc, char** argv) {
  return hbadisc::Main(argc, argv);
}

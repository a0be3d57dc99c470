#include "tools/hbadisc/Commands.h"

#include "include/hbadiscovery.h"
#include "tools/hbadisc/Answer.h"
#include "tools/hbadisc/Discovery.h"
#include "tools/hbadisc/PortReader.h"
#include "tools/hbadisc/Watch.h"
#include "tools/hbadisc/Words.h"

namespace hbadisc {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds kProgressStep{1000};
constexpr int kNoOutput = -1;

// False when the time limit runs out first.
bool WaitForFirstCycle(const Notices& notices, std::optional<seconds> limit, Messages& messages) {
  const auto begin = steady_clock::now();
  for (milliseconds elapsed{0}; !limit || elapsed < *limit;) {
    const milliseconds step = limit ? std::min(kProgressStep, *limit - elapsed) : kProgressStep;
    const std::optional<Notice> notice = notices.Wait(step, kNoOutput);
    if (notice && notice->reason & HBADISC_REASON_FORCED) return true;
    elapsed = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    messages.Progress("Looking for adapter ports, " + std::to_string(elapsed.count() / 1000) + " s");
  }
  return false;
}

int LookOnce(const Options& options, Output& output, Messages& messages) {
  const Notices notices;
  Discovery discovery(0, notices);
  messages.Detail("discovery is started");
  const bool complete = WaitForFirstCycle(notices, options.timeout, messages);
  messages.ClearProgress();
  const Details details = options.command == Command::List ? Details::None : Details::All;
  const Picture picture{ReadPorts(details), complete};
  messages.Detail(std::string(complete ? "the first look has ended: " : "no more waiting: ") +
                  Counted(picture.ports.size(), "port"));
  const Answer answer = MakeAnswer(options, picture, output.Colour());
  output.Write(answer.data);
  if (!answer.message.empty()) messages.Say(answer.message);
  messages.Detail("stopping discovery");
  discovery.Stop(answer.code);
  return answer.code;
}

}  // namespace

int RunCommand(const Options& options, Output& output, Messages& messages) {
  try {
    ChooseSource(options.source, LookUpSymbol);
    if (options.command != Command::Watch) return LookOnce(options, output, messages);
  } catch (const OutputError&) {
    throw;
  } catch (const std::exception& error) {
    output.Write(FailureData(options, error.what()));
    throw;
  }
  return RunWatch(options, output, messages);
}

}  // namespace hbadisc

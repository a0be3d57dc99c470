#include "tools/hbadisc/Commands.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "include/hbadiscovery.h"
#include "tools/hbadisc/Answer.h"
#include "tools/hbadisc/Changes.h"
#include "tools/hbadisc/Discovery.h"
#include "tools/hbadisc/Hosts.h"
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

// The callback with one of these reasons; none when the time limit runs out first.
std::optional<Notice> WaitFor(unsigned int reasons, const Notices& notices, std::optional<seconds> limit,
                              const std::string& progress, Messages& messages) {
  const auto begin = steady_clock::now();
  for (milliseconds elapsed{0}; !limit || elapsed < *limit;) {
    const milliseconds step = limit ? std::min(kProgressStep, *limit - elapsed) : kProgressStep;
    const std::optional<Notice> notice = notices.Wait(step, kNoOutput);
    if (notice && (notice->reason & reasons) != 0) return notice;
    elapsed = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    messages.Progress(progress + ", " + std::to_string(elapsed.count() / 1000) + " s");
  }
  return std::nullopt;
}

// False when there is no such port or it does not answer in time.
bool ReadAgain(const Options& options, const Notices& notices, Messages& messages) {
  const auto name = std::bit_cast<HBA_NAME>(options.wwpn.bytes);
  return HBADisc_DirectedDiscoveryUpdate(name, options.what) != 0 &&
         WaitFor(HBADISC_REASON_DIRECTED, notices, options.timeout, "Reading the port again", messages);
}

// By what is shown of it. To the library the mark of having been read again is a change, too.
bool IsChanged(const Wwn& port, const std::vector<Port>& before, const std::vector<Port>& after) {
  const std::vector<Change> changes = Compare(ToJson(before), ToJson(after));
  return std::any_of(changes.begin(), changes.end(),
                     [&](const Change& change) { return change.port == HexText(port); });
}

int LookOnce(const Options& options, Output& output, Messages& messages) {
  const Notices notices;
  Discovery discovery(0, options.scope, notices);
  messages.Detail("discovery is started");
  Picture picture;
  picture.complete =
      WaitFor(HBADISC_REASON_FORCED, notices, options.timeout, "Looking for adapter ports", messages)
          .has_value();
  const Details details = options.command == Command::List ? Details::None : Details::All;
  picture.ports = ReadPorts(details, options.scope);
  if (options.command == Command::Refresh && ReadAgain(options, notices, messages)) {
    const std::vector<Port> before = std::exchange(picture.ports, ReadPorts(details, options.scope));
    picture.changed = IsChanged(options.wwpn, before, picture.ports);
  }
  messages.ClearProgress();
  picture.trouble = ProviderTrouble(LookUpSymbol);
  messages.Detail(std::string(picture.complete ? "the first look has ended: " : "no more waiting: ") +
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
    if (!options.hostsDirectory.empty()) ChooseHostsDirectory(options.hostsDirectory, LookUpSymbol);
    if (IsHostCommand(options.command)) return RunHosts(options, output, messages);
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

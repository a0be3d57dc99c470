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
#include "tools/hbadisc/Progress.h"
#include "tools/hbadisc/Watch.h"
#include "tools/hbadisc/Words.h"

namespace hbadisc {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds kProgressStep{1000};
constexpr int kNoOutput = -1;

using TimeLimit = std::optional<milliseconds>;

// The callback with one of these reasons; none when the time limit runs out first. `progress` gives the text
// for the time that it has taken.
template <class Progress>
std::optional<Notice> WaitFor(unsigned int reasons, const Notices& notices, TimeLimit limit, Progress progress,
                              Messages& messages) {
  const auto begin = steady_clock::now();
  for (milliseconds elapsed{0}; !limit || elapsed < *limit;) {
    const milliseconds step = limit ? std::min(kProgressStep, *limit - elapsed) : kProgressStep;
    const std::optional<Notice> notice = notices.Wait(step, kNoOutput);
    if (notice && (notice->reason & reasons) != 0) return notice;
    elapsed = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    if (messages.ShowsProgress()) messages.Progress(progress(elapsed));
  }
  return std::nullopt;
}

TimeLimit LimitOf(const Options& options) {
  if (!options.timeout) return std::nullopt;
  return std::chrono::duration_cast<milliseconds>(*options.timeout);
}

// False when there is no such port or it does not answer in time.
bool ReadAgain(const Options& options, const Notices& notices, Messages& messages) {
  const auto name = std::bit_cast<HBA_NAME>(options.wwpn.bytes);
  const auto progress = [](milliseconds elapsed) {
    return "Reading the port again, " + std::to_string(elapsed.count() / 1000) + " s";
  };
  return HBADisc_DirectedDiscoveryUpdate(name, options.what) != 0 &&
         WaitFor(HBADISC_REASON_DIRECTED, notices, LimitOf(options), progress, messages);
}

// By what is shown of it. To the library the mark of having been read again is a change, too.
bool HasChanged(const Wwn& port, Follower& follower) {
  bool lost = false;
  const std::vector<Change> changes = follower.Next(&lost);
  return std::any_of(changes.begin(), changes.end(),
                     [&](const Change& change) { return change.port == HexText(port); });
}

// What there is to show when the first look has ended, or its time is over.
Picture ReadPicture(const Options& options, bool complete) {
  Picture picture;
  picture.complete = complete;
  picture.ports = ReadPorts(options.command == Command::List ? Details::None : Details::All, options.scope);
  picture.unanswered = ReadUnanswered(options.scope);
  if (options.scope != Scope::LocalHost) picture.hosts = ReadHosts();
  return picture;
}

int LookOnce(const Options& options, Output& output, Messages& messages) {
  const Notices notices;
  Follower follower(options.scope);
  // Without remote hosts there is nobody to wait for.
  Discovery discovery(HasHosts() ? options.scope : Scope::LocalHost, notices, !options.cycle);
  Picture picture;
  if (discovery.HasStarted(LimitOf(options))) {
    messages.Detail("discovery is started");
    const auto progress = [&](milliseconds elapsed) { return ProgressText(options.scope, elapsed); };
    const bool complete =
        WaitFor(HBADISC_REASON_FORCED, notices, LimitOf(options), progress, messages).has_value();
    picture = ReadPicture(options, complete);
    if (options.command == Command::Refresh) {
      follower.Begin();
      if (ReadAgain(options, notices, messages)) {
        picture = ReadPicture(options, complete);
        picture.changed = HasChanged(options.wwpn, follower);
      }
    }
    picture.trouble = ProviderTrouble(LookUpSymbol);
  } else {
    picture.trouble = "the provider (librmapi.so) does not answer";
  }
  messages.ClearProgress();
  messages.Detail(std::string(picture.complete ? "the first look has ended: " : "no more waiting: ") +
                  Counted(picture.ports.size(), "port"));
  const Answer answer = MakeAnswer(options, picture, output.Colour());
  output.Write(answer.data);
  if (!answer.message.empty()) messages.Say(answer.message);
  // Nobody needs discovery any more, and stopping it takes a second, or longer when an adapter does not answer.
  discovery.Leave(answer.code);
}

}  // namespace

int RunCommand(const Options& options, Output& output, Messages& messages) {
  try {
    ChooseSource(options.source, LookUpSymbol);
    if (!options.hostsDirectory.empty()) ChooseHostsDirectory(options.hostsDirectory, LookUpSymbol);
    for (const std::string& trouble : AccessTroubles(LookUpSymbol)) messages.Say(trouble);
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

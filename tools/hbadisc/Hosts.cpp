#include "tools/hbadisc/Hosts.h"

#include <algorithm>
#include <chrono>

#include "include/hbadiscovery.h"
#include "tools/hbadisc/Answer.h"
#include "tools/hbadisc/Discovery.h"
#include "tools/hbadisc/JsonWriter.h"
#include "tools/hbadisc/Progress.h"
#include "tools/hbadisc/Table.h"
#include "tools/hbadisc/Unanswered.h"

namespace hbadisc {

namespace {

void WriteHosts(const Options& options, const std::vector<Json>& hosts, Output& output) {
  if (options.format == Format::JsonDocument) {
    output.Write(Dump(Document({{"hosts", hosts}}), Layout::Indented));
    return;
  }
  for (const Json& host : hosts) output.Write(Dump(Document(host), Layout::OneLine));
}

void WriteTable(const std::vector<RemoteHost>& hosts, Output& output) {
  Table table({{"HOST"}, {"NAME"}, {"STATE"}, {"PORTS", Align::Right}, {"LAST ANSWER"}});
  const Moment now = Now();
  for (const RemoteHost& host : hosts) {
    const Style style = IsSilent(host) ? Style::Bad : WasAsked(host) ? Style::Good : Style::Plain;
    table.AddRow({{host.host},
                  {host.name.value_or("")},
                  {host.stateText, style},
                  {std::to_string(host.ports)},
                  {host.answered ? AgeText(*host.answered, now) + " ago" : ""}});
  }
  output.Write(table.Render(output.Colour()));
}

// Asks all of them for what they have; false when the time limit runs out first.
bool AskHosts(const Options& options, Messages& messages, Discovery& discovery) {
  using std::chrono::milliseconds;
  constexpr milliseconds kStep{1000};
  if (!discovery.HasStarted(options.timeout)) return false;
  const auto begin = std::chrono::steady_clock::now();
  for (milliseconds elapsed{0}; !options.timeout || elapsed < *options.timeout;) {
    if (HBADisc_WaitForFirstPicture(static_cast<unsigned int>(kStep.count())) != 0) return true;
    elapsed = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
    if (messages.ShowsProgress()) messages.Progress(ProgressText(Scope::RemoteHosts, elapsed));
  }
  return false;
}

int TellHosts(const Options& options, Output& output, Messages& messages) {
  const std::vector<RemoteHost> hosts = ReadHosts();
  messages.ClearProgress();
  if (options.format == Format::Table) {
    WriteTable(hosts, output);
  } else {
    std::vector<Json> lines;
    lines.reserve(hosts.size());
    for (const RemoteHost& host : hosts) lines.push_back(ToJson(host));
    WriteHosts(options, lines, output);
  }
  if (hosts.empty() && options.format == Format::Table) messages.Say("there are no remote hosts");
  return std::any_of(hosts.begin(), hosts.end(), IsSilent) ? kPartial : kOk;
}

int ListHosts(const Options& options, Output& output, Messages& messages) {
  if (!options.ask || ReadHosts().empty()) return TellHosts(options, output, messages);
  const Notices notices;
  Discovery discovery(Scope::RemoteHosts, notices, true);
  const bool all = AskHosts(options, messages, discovery);
  int code = TellHosts(options, output, messages);
  if (!all) {
    code = kPartial;
    messages.Say(TimeLimitText(options));
  }
  discovery.Stop(code);
  return code;
}

struct Outcome {
  ExitCode code = kOk;
  const char* word = "";  // in JSON
  const char* text = "";  // for people, behind the host
};

// "10.1.2.3:23333" or "[fe80::1]:23333" in two; an IPv6 address without brackets has no port.
struct HostAndPort {
  explicit HostAndPort(const std::string& text) : host(text) {
    const std::size_t colon = text.rfind(':');
    if (text.starts_with('[')) {
      const std::size_t end = text.find(']');
      host = text.substr(1, end - 1);
      if (colon != std::string::npos && colon > end) port = text.substr(colon + 1);
    } else if (colon != std::string::npos && colon == text.find(':')) {
      host = text.substr(0, colon);
      port = text.substr(colon + 1);
    }
  }

  std::string host;
  std::string port;
};

constexpr const char* kRefused =
    "is not added: no such host; or a port that is not allowed (1025 to 65534, as in 10.1.2.3:23333); or the"
    " settings turn remote hosts off";

// What HBADisc_AddOOBHostA answers.
Outcome AddHost(const std::string& host) {
  // The library takes these two, but does not find them again in its file.
  const std::string port = HostAndPort(host).port;
  if (port == "1024" || port == "65535") return {kFailed, "refused", kRefused};
  switch (HBADisc_AddOOBHostA(host.c_str())) {
    case 0:
      return {kOk, "added", "is added"};
    case -3:
      return {kOk, "known", "is listed already"};
    case -2:
      return {kFailed, "not_written", "is not added: the hosts file cannot be written"};
    case -4:
      return {kFailed, "this_host", "is this host, whose ports are shown anyway"};
    case 2:
      return {kFailed, "no_answer",
              "is not added: it does not answer, has no adapter port, or reports no name"};
    default:
      return {kFailed, "refused", kRefused};
  }
}

Outcome RemoveHost(const std::string& host) {
  if (HBADisc_RemoveOOBHostA(host.c_str()) == 1) return {kOk, "removed", "is removed"};
  const std::vector<RemoteHost> hosts = ReadHosts();
  const bool isListed = std::any_of(hosts.begin(), hosts.end(), [&](const RemoteHost& listed) {
    return HostAndPort(listed.host).host == HostAndPort(host).host;
  });
  if (isListed) return {kFailed, "not_written", "is not removed: the hosts file cannot be written"};
  return {kNotFound, "not_listed", "is not listed"};
}

int ChangeHosts(const Options& options, Output& output, Messages& messages) {
  const Notices notices;
  // Only a running discovery takes hosts, and asks them who they are.
  Discovery discovery(Scope::RemoteHosts, notices);
  if (!discovery.HasStarted(options.timeout))
    throw Failure(kFailed, "the provider (librmapi.so) does not answer");
  ExitCode code = kOk;
  std::vector<Json> results;
  results.reserve(options.hosts.size());
  for (const std::string& host : options.hosts) {
    const Outcome outcome = options.command == Command::AddHosts ? AddHost(host) : RemoveHost(host);
    if (outcome.code != kOk) code = outcome.code;
    messages.Say(host + ' ' + outcome.text);
    results.push_back({{"host", host}, {"result", outcome.word}});
  }
  if (options.format != Format::Table) WriteHosts(options, results, output);
  discovery.Stop(code);
  return code;
}

}  // namespace

bool IsHostCommand(Command command) {
  return command == Command::ListHosts || command == Command::AddHosts || command == Command::RemoveHosts;
}

int RunHosts(const Options& options, Output& output, Messages& messages) {
  return options.command == Command::ListHosts ? ListHosts(options, output, messages)
                                               : ChangeHosts(options, output, messages);
}

}  // namespace hbadisc

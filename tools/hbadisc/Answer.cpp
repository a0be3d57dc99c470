#include "tools/hbadisc/Answer.h"

#include <algorithm>
#include <optional>
#include <set>

#include "tools/hbadisc/JsonWriter.h"
#include "tools/hbadisc/TableWriter.h"
#include "tools/hbadisc/Words.h"

namespace hbadisc {

namespace {

const Port* Find(const Picture& picture, const Wwn& wwpn) {
  const auto found = std::find_if(picture.ports.begin(), picture.ports.end(),
                                  [&](const Port& port) { return port.wwpn == wwpn; });
  return found == picture.ports.end() ? nullptr : &*found;
}

// Names of virtual ports are easily taken for names of ports.
const Port* FindOwner(const Picture& picture, const Wwn& vport) {
  for (const Port& port : picture.ports) {
    if (!port.details) continue;
    for (const VirtualPort& candidate : port.details->virtualPorts) {
      if (candidate.wwpn == vport) return &port;
    }
  }
  return nullptr;
}

// What did not answer, each in a sentence. Ports of a silent host go without saying, as do those of a board.
std::vector<std::string> SilentOnes(const Picture& picture) {
  std::vector<std::string> sentences;
  std::set<std::string> silentHosts;
  for (const RemoteHost& host : picture.hosts) {
    if (!IsSilent(host)) continue;
    silentHosts.insert(host.host.substr(0, host.host.find(':')));
    sentences.push_back(Sentence(host));
  }
  std::set<std::optional<Wwn>> ofBoards;
  bool counted = true;
  for (const Unanswered& unanswered : picture.unanswered) {
    if (unanswered.what == "boards") counted = false;
    if (unanswered.board) ofBoards.insert(unanswered.port);
    const bool isPort = unanswered.what == "port";
    const bool isLocal = unanswered.host.empty();
    if (isPort && isLocal && (!counted || ofBoards.contains(unanswered.port))) continue;
    if (isPort && silentHosts.contains(unanswered.host)) continue;
    sentences.push_back(Sentence(unanswered));
  }
  return sentences;
}

std::string Joined(const std::vector<std::string>& sentences) {
  std::string text;
  for (const std::string& sentence : sentences) text += (text.empty() ? "" : "\n") + sentence;
  return text;
}

Answer NotFound(const Options& options, const Picture& picture) {
  std::string message = "there is no port " + ColonText(options.wwpn);
  if (const Port* owner = FindOwner(picture, options.wwpn)) {
    message += "; it is a virtual port of " + ColonText(owner->wwpn);
  }
  if (!picture.complete) return {kFailed, {}, message + " so far; " + TimeLimitText(options)};
  const std::vector<std::string> silent = SilentOnes(picture);
  if (silent.empty()) return {kNotFound, {}, message};
  return {kPartial, {}, message + " among those that answer; " + Joined(silent)};
}

Answer NothingToList(const Picture& picture) {
  const std::string message = "no adapter ports were found";
  if (picture.trouble.empty()) return {kOk, {}, message};
  return {kFailed, {}, message + ": " + picture.trouble};
}

Answer CheckRefresh(const Options& options, const Picture& picture) {
  if (picture.changed) return {kOk, {}, *picture.changed ? "the port has changed" : "nothing has changed"};
  if (!options.timeout) return {kFailed, {}, "the port could not be read again"};
  const auto seconds = static_cast<std::size_t>(options.timeout->count());
  return {
      kPartial, {}, "the port was not read again within " + Counted(seconds, "second") + " (see --timeout)"};
}

// A list is whole only when everybody has answered.
Answer CheckList(const Options& options, const Picture& picture) {
  const std::vector<std::string> silent = SilentOnes(picture);
  Answer answer;
  if (!picture.complete) {
    const bool nothing = picture.ports.empty();
    answer = {nothing ? kFailed : kPartial,
              {},
              TimeLimitText(options) + (nothing ? "" : ": there may be more to show")};
    if (!picture.trouble.empty()) answer.message += "\n" + picture.trouble;
  } else if (picture.ports.empty()) {
    answer = NothingToList(picture);
  }
  // Without anything to look at, nothing can answer.
  if (silent.empty() || (picture.complete && !picture.trouble.empty() && picture.ports.empty())) return answer;
  if (answer.code == kOk) answer.code = kPartial;
  answer.message += (answer.message.empty() ? "" : "\n") + Joined(silent);
  return answer;
}

Answer CheckPort(const Options& options, const Picture& picture, const Port* port) {
  if (!port) return NotFound(options, picture);
  if (!picture.complete) return {kPartial, {}, TimeLimitText(options) + ": there may be more to show"};
  if (port->silence) {
    return {kPartial,
            {},
            "port " + ColonText(port->wwpn) + " does not answer: " + port->silence->reason +
                "; what is shown is older"};
  }
  if (options.command == Command::Refresh) return CheckRefresh(options, picture);
  return {};
}

Json NoBody(Command command) {
  switch (command) {
    case Command::List:
      return {{"ports", Json::array()}, {"unanswered", Json::array()}, {"hosts", Json::array()}};
    case Command::Targets:
      return {{"port", nullptr}, {"targets", Json::array()}, {"vports", Json::array()}};
    case Command::Watch:
      return {{"events", Json::array()}};
    case Command::Refresh:
      return {{"port", nullptr}, {"changed", nullptr}};
    case Command::ListHosts:
    case Command::AddHosts:
    case Command::RemoveHosts:
      return {{"hosts", Json::array()}};
    case Command::Show:
      break;
  }
  return {{"port", nullptr}};
}

Json Body(Command command, const Picture& picture, const Port* port) {
  if (command == Command::List) {
    return {{"ports", ToJson(picture.ports)},
            {"unanswered", ToJsonList(picture.unanswered)},
            {"hosts", ToJsonList(picture.hosts)}};
  }
  if (!port) return NoBody(command);
  if (command == Command::Targets) return TargetsJson(*port);
  if (command == Command::Refresh) {
    return {{"port", ToJson(*port)}, {"changed", picture.changed ? Json(*picture.changed) : Json()}};
  }
  return {{"port", ToJson(*port)}};
}

// The members before the body say how much of it to believe.
Json WithState(bool complete, const Json& error, const Json& body) {
  Json document = Document({{"complete", complete}, {"error", error}});
  document.update(body);
  return document;
}

std::vector<Json> Lines(Command command, const Picture& picture, const Port* port) {
  std::vector<Json> lines;
  if (command == Command::List) {
    for (const Port& listed : picture.ports) lines.push_back(Document(ToJson(listed)));
  } else if (port && command == Command::Targets) {
    lines = TargetLines(*port);
  } else if (port) {
    lines.push_back(Document(ToJson(*port)));
  }
  return lines;
}

std::string Tables(Command command, const Picture& picture, const Port* port, bool colour) {
  if (command == Command::List) return PortTable(picture.ports, colour);
  if (!port) return {};
  return command == Command::Targets ? TargetTables(*port, colour) : PortSheet(*port, colour);
}

std::string Data(const Options& options, const Picture& picture, const Port* port, const Answer& answer,
                 bool colour) {
  if (options.format == Format::Table) return Tables(options.command, picture, port, colour);
  if (options.format == Format::JsonDocument) {
    const Json error = answer.code == kOk ? Json() : Json(answer.message);
    return Dump(WithState(picture.complete, error, Body(options.command, picture, port)), Layout::Indented);
  }
  std::string text;
  for (const Json& line : Lines(options.command, picture, port)) text += Dump(line, Layout::OneLine);
  return text;
}

}  // namespace

Answer MakeAnswer(const Options& options, const Picture& picture, bool colour) {
  const Port* port = options.command == Command::List ? nullptr : Find(picture, options.wwpn);
  Answer answer =
      options.command == Command::List ? CheckList(options, picture) : CheckPort(options, picture, port);
  answer.data = Data(options, picture, port, answer, colour);
  if (answer.data.empty() && answer.message.empty()) {
    answer.message = "port " + ColonText(options.wwpn) + " has no targets";
  }
  return answer;
}

std::string TimeLimitText(const Options& options) {
  const auto seconds = static_cast<std::size_t>(options.timeout->count());
  return "the first look at the ports did not end within " + Counted(seconds, "second") + " (see --timeout)";
}

std::string FailureData(const Options& options, const std::string& reason) {
  if (options.format != Format::JsonDocument) return {};
  return Dump(WithState(false, reason, NoBody(options.command)), Layout::Indented);
}

}  // namespace hbadisc

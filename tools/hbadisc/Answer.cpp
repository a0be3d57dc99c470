#include "tools/hbadisc/Answer.h"

#include <algorithm>

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

Answer NotFound(const Options& options, const Picture& picture) {
  std::string message = "there is no port " + ColonText(options.wwpn);
  if (const Port* owner = FindOwner(picture, options.wwpn)) {
    message += "; it is a virtual port of " + ColonText(owner->wwpn);
  }
  if (picture.complete) return {kNotFound, {}, message};
  return {kFailed, {}, message + " so far; " + TimeLimitText(options)};
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

Answer CheckPicture(const Options& options, const Picture& picture, const Port* port) {
  const bool list = options.command == Command::List;
  if (!list && !port) return NotFound(options, picture);
  if (!picture.complete && list && picture.ports.empty()) return {kFailed, {}, TimeLimitText(options)};
  if (!picture.complete) return {kPartial, {}, TimeLimitText(options) + ": there may be more to show"};
  if (list && picture.ports.empty()) return NothingToList(picture);
  if (options.command == Command::Refresh) return CheckRefresh(options, picture);
  return {};
}

Json NoBody(Command command) {
  switch (command) {
    case Command::List:
      return {{"ports", Json::array()}};
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
  if (command == Command::List) return {{"ports", ToJson(picture.ports)}};
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
  Answer answer = CheckPicture(options, picture, port);
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

#include "tools/hbadisc/TableWriter.h"

#include <algorithm>
#include <string_view>

#include "tools/hbadisc/JsonWriter.h"
#include "tools/hbadisc/Words.h"

namespace hbadisc {

namespace {

constexpr std::string_view kIndent = "  ";

std::string LinkCell(const Port& port) {
  std::string text(LinkText(port.link));
  if (port.functionLink != Link::Unknown && port.functionLink != port.link) {
    text.append("/").append(LinkText(port.functionLink));
  }
  // What was seen when it last answered.
  if (port.silence) text += text.empty() ? "no answer" : ", no answer";
  return text;
}

std::string ViaCell(const Port& port) {
  if (!port.via) return {};
  return port.via->address + (port.proxyOnly ? " (only)" : "");
}

std::string NumberCell(std::optional<std::uint32_t> number) {
  return number ? std::to_string(*number) : "-";
}

std::string WwnCell(const std::optional<Wwn>& wwn) {
  return wwn ? ColonText(*wwn) : "";
}

std::string YesNo(bool value) {
  return value ? "yes" : "no";
}

std::string BusTargetLun(const FcTarget& target) {
  return NumberCell(target.bus) + ':' + NumberCell(target.target) + ':' + NumberCell(target.lun);
}

std::string FcTargetTable(const std::vector<FcTarget>& targets, bool colour, std::string_view indent) {
  Table table({{"WWPN"}, {"WWNN"}, {"BUS:TGT:LUN"}, {"FCP LUN"}, {"DEVICE"}, {"FC ID"}, {"READY"}});
  for (const FcTarget& target : targets) {
    table.AddRow({{ColonText(target.wwpn)},
                  {WwnCell(target.wwnn)},
                  {BusTargetLun(target)},
                  {HexText(target.fcpLun, 16)},
                  {target.device},
                  {target.fcAddressId ? HexText(*target.fcAddressId, 6) : ""},
                  {YesNo(target.ready), target.ready ? Style::Good : Style::Bad}});
  }
  return table.Render(colour, indent);
}

std::string IscsiTargetTable(const std::vector<IscsiTarget>& targets, bool colour, std::string_view indent) {
  Table table({{"NAME"}, {"SECOND NAME"}, {"SESSIONS"}, {"CONNECTED"}});
  for (const IscsiTarget& target : targets) {
    table.AddRow({{target.name},
                  {target.secondName},
                  {YesNo(target.hasSessions)},
                  {YesNo(target.connected), target.connected ? Style::Good : Style::Bad}});
  }
  return table.Render(colour, indent);
}

std::string Heading(const std::string& text, bool colour) {
  return Styled(text, Style::Heading, colour) + '\n';
}

std::string OwnTargets(const PortDetails& details, bool colour, std::string_view indent) {
  return IscsiTargetTable(details.iscsiTargets, colour, indent) +
         FcTargetTable(details.fcTargets, colour, indent);
}

std::string VirtualPortSections(const PortDetails& details, bool colour) {
  std::string text;
  for (const VirtualPort& vport : details.virtualPorts) {
    text += '\n' + Heading("Virtual port " + ColonText(vport.wwpn) + ", node " +
                               ValueText(vport.wwnn ? Json(HexText(*vport.wwnn)) : Json()) + ", " +
                               Counted(vport.targets.size(), "target"),
                           colour);
    text += FcTargetTable(vport.targets, colour, kIndent);
  }
  return text;
}

std::string VirtualFunctionSection(const PortDetails& details, bool colour) {
  if (details.virtualFunctions.empty()) return {};
  std::string text = '\n' + Heading("Virtual functions", colour);
  for (const Wwn& address : details.virtualFunctions) text.append(kIndent).append(ColonText(address)) += '\n';
  return text;
}

// Keys whose values have sections of their own.
bool HasSection(std::string_view key) {
  return key == "targets" || key == "vports" || key == "virtual_functions";
}

std::string SpeedText(std::uint64_t bitsPerSecond) {
  constexpr std::uint64_t kMega = 1000000;
  constexpr std::uint64_t kGiga = 1000 * kMega;
  if (bitsPerSecond % kGiga == 0) return std::to_string(bitsPerSecond / kGiga) + " Gbit/s";
  return std::to_string(bitsPerSecond / kMega) + " Mbit/s";
}

std::string SpeedTexts(const Json& speeds) {
  std::string text;
  for (const Json& speed : speeds) text += (text.empty() ? "" : ", ") + SpeedText(speed.get<std::uint64_t>());
  return text;
}

// Sets of bits are read in hexadecimal, other numbers are not.
std::string AttributeText(std::string_view key, const Json& value) {
  if (key == "link_speed" && value.is_number()) return SpeedText(value.get<std::uint64_t>());
  if (key == "supported_speeds" && value.is_array()) return SpeedTexts(value);
  const bool bits = key == "special_features" || key == "target_bind_type";
  return bits ? HexText(value.get<std::uint32_t>(), 0) : Printable(ValueText(value));
}

// "  Label        value" of every single attribute.
std::string AttributeLines(const Port& port) {
  std::vector<std::pair<std::string, std::string>> lines;
  std::size_t width = 0;
  const Json attributes = ToJson(port);
  for (const auto& [key, value] : attributes.items()) {
    if (HasSection(key)) continue;
    lines.emplace_back(Label(key), AttributeText(key, value));
    width = std::max(width, lines.back().first.size());
  }
  std::string text;
  for (const auto& [label, value] : lines) {
    text.append(kIndent).append(label).append(width + 2 - label.size(), ' ').append(value) += '\n';
  }
  return text;
}

}  // namespace

std::string PortTable(const std::vector<Port>& ports, bool colour) {
  const bool remote = std::any_of(ports.begin(), ports.end(), [](const Port& port) { return !port.local; });
  std::vector<Column> columns = {{"WWPN"},
                                 {"WHERE"},
                                 {"KIND"},
                                 {"LINK"},
                                 {"MODEL"},
                                 {"SYSTEM"},
                                 {"TARGETS", Align::Right},
                                 {"VPORTS", Align::Right},
                                 {"VFS", Align::Right}};
  if (remote) columns.push_back({"VIA"});
  Table table(columns);
  for (const Port& port : ports) {
    std::vector<Cell> row = {{ColonText(port.wwpn)},
                             {port.local ? "local" : "remote"},
                             {std::string(KindText(port.kind))},
                             {LinkCell(port), port.silence ? Style::Warning : StyleOf(port.link)},
                             {port.model},
                             {port.system},
                             {std::to_string(port.targetCount)},
                             {std::to_string(port.vportCount)},
                             {std::to_string(port.vfCount)}};
    if (remote) row.push_back({ViaCell(port)});
    table.AddRow(row);
  }
  return table.Render(colour);
}

std::string PortSheet(const Port& port, bool colour) {
  const PortDetails details = port.details.value_or(PortDetails{});
  std::string text = Heading("Port " + ColonText(port.wwpn), colour) + AttributeLines(port);
  const std::string targets = OwnTargets(details, colour, kIndent);
  if (!targets.empty()) text += '\n' + Heading("Targets", colour) + targets;
  return text + VirtualPortSections(details, colour) + VirtualFunctionSection(details, colour);
}

std::string TargetTables(const Port& port, bool colour) {
  const PortDetails details = port.details.value_or(PortDetails{});
  const std::string own = OwnTargets(details, colour, "");
  const std::string virtualPorts = VirtualPortSections(details, colour);
  if (own.empty() && !virtualPorts.empty()) return virtualPorts.substr(1);
  return own + virtualPorts;
}

Style StyleOf(Link link) {
  switch (link) {
    case Link::Up:
      return Style::Good;
    case Link::Down:
      return Style::Bad;
    case Link::OverTemperature:
      return Style::Warning;
    case Link::Unknown:
      break;
  }
  return Style::Plain;
}

}  // namespace hbadisc

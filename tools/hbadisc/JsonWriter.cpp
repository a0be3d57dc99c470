#include "tools/hbadisc/JsonWriter.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

namespace hbadisc {

namespace {

Json OrNull(std::string_view text) {
  return text.empty() ? Json() : Json(text);
}

template <class Number>
Json OrNull(const std::optional<Number>& number) {
  return number ? Json(*number) : Json();
}

Json OrNull(const std::optional<Wwn>& wwn) {
  return wwn ? Json(HexText(*wwn)) : Json();
}

Json MomentOrNull(const std::optional<Moment>& moment) {
  return moment ? Json(IsoTime(*moment)) : Json();
}

Json ToJson(const Silence& silence) {
  return {{"status", silence.status}, {"reason", silence.reason}, {"since", IsoTime(silence.since)}};
}

Json ToJson(const std::vector<Wwn>& names) {
  Json list = Json::array();
  for (const Wwn& name : names) list.push_back(HexText(name));
  return list;
}

Json ToJson(const Proxy& proxy) {
  return {{"address", OrNull(proxy.address)}, {"port", OrNull(proxy.port)}, {"cim", proxy.cim}};
}

Json PortTargets(const PortDetails& details) {
  Json list = ToJsonList(details.iscsiTargets);
  for (const FcTarget& target : details.fcTargets) list.push_back(ToJson(target));
  return list;
}

void AddDetails(Json& json, const PortDetails& details) {
  json["iscsi_names"] = details.iscsiNames ? ToJson(*details.iscsiNames) : Json();
  json["targets"] = PortTargets(details);
  json["vports"] = ToJsonList(details.virtualPorts);
  json["virtual_functions"] = ToJson(details.virtualFunctions);
}

void AddTargetLines(std::vector<Json>& lines, const Port& port, const Json& vport, const Json& targets) {
  for (const Json& target : targets) {
    lines.push_back(Document({{"port", HexText(port.wwpn)}, {"vport", vport}, {"target", target}}));
  }
}

}  // namespace

std::string Dump(const Json& value, Layout layout) {
  return value.dump(layout == Layout::Indented ? 2 : -1, ' ', false, Json::error_handler_t::replace) + '\n';
}

Json Document(const Json& body) {
  Json document = {{"format_version", kFormatVersion}};
  document.update(body);
  return document;
}

Json ToJson(const FcTarget& target) {
  constexpr int kFcIdDigits = 6;
  return {{"wwpn", HexText(target.wwpn)},
          {"wwnn", OrNull(target.wwnn)},
          {"bus", OrNull(target.bus)},
          {"target", OrNull(target.target)},
          {"lun", OrNull(target.lun)},
          {"fcp_lun", HexText(target.fcpLun, 16)},
          {"device", OrNull(target.device)},
          {"fc_address_id", target.fcAddressId ? Json(HexText(*target.fcAddressId, kFcIdDigits)) : Json()},
          {"bind_type", target.bindType},
          {"ready", target.ready}};
}

Json ToJson(const IscsiTarget& target) {
  return {{"name", OrNull(target.name)},
          {"second_name", OrNull(target.secondName)},
          {"has_sessions", target.hasSessions},
          {"connected", target.connected}};
}

Json ToJson(const IscsiNames& names) {
  return {{"initiator_name", OrNull(names.initiatorName)},
          {"default_name", OrNull(names.defaultName)},
          {"alias", OrNull(names.alias)}};
}

Json ToJson(const VirtualPort& vport) {
  return {{"wwpn", HexText(vport.wwpn)},
          {"wwnn", OrNull(vport.wwnn)},
          {"target_count", vport.targetCount},
          {"targets", ToJsonList(vport.targets)}};
}

Json ToJson(const Unanswered& unanswered) {
  return {{"what", unanswered.what},
          {"board", OrNull(unanswered.board)},
          {"port", OrNull(unanswered.port)},
          {"host", OrNull(unanswered.host)},
          {"status", unanswered.status},
          {"reason", unanswered.reason},
          {"tries", unanswered.tries},
          {"since", MomentOrNull(unanswered.since)},
          {"last_answer", MomentOrNull(unanswered.lastAnswer)}};
}

Json ToJson(const RemoteHost& host) {
  return {{"host", host.host},
          {"name", host.name ? Json(*host.name) : Json()},
          {"state", host.stateText},
          {"ports", host.ports},
          {"asked", MomentOrNull(host.asked)},
          {"answered", MomentOrNull(host.answered)}};
}

Json ToJson(const Port& port) {
  Json json = {{"wwpn", HexText(port.wwpn)},
               {"wwnn", OrNull(port.wwnn)},
               {"local", port.local},
               {"kind", KindText(port.kind)},
               {"link", OrNull(LinkText(port.link))},
               {"function_link", OrNull(LinkText(port.functionLink))},
               {"model", OrNull(port.model)},
               {"model_number", port.modelNumber},
               {"target_mode", port.targetMode},
               {"manufacturer", OrNull(port.manufacturer)},
               {"serial_number", OrNull(port.serialNumber)},
               {"system", OrNull(port.system)},
               {"fabric_name", OrNull(port.fabricName)},
               {"port_number", OrNull(port.position.portNumber)},
               {"pci_bus", OrNull(port.position.pciBus)},
               {"pci_function", OrNull(port.position.pciFunction)},
               {"sub_adapter", OrNull(port.position.subAdapter)},
               {"vpd_port_number", OrNull(port.position.vpdPortNumber)},
               {"special_features", port.specialFeatures},
               {"target_bind_type", port.targetBindType},
               {"target_count", port.targetCount},
               {"vport_count", port.vportCount},
               {"vf_count", port.vfCount},
               {"found_on", ToJson(port.foundOn)},
               {"via", port.via ? ToJson(*port.via) : Json()},
               {"proxy_only", port.proxyOnly},
               {"link_speed", OrNull(port.linkSpeed)},
               {"supported_speeds", port.supportedSpeeds.empty() ? Json() : Json(port.supportedSpeeds)},
               {"firmware_version", OrNull(port.firmwareVersion)},
               {"driver_name", OrNull(port.driverName)},
               {"driver_version", OrNull(port.driverVersion)},
               {"boot_version", OrNull(port.bootVersion)},
               {"pci_address", OrNull(port.pciAddress)},
               {"part_number", OrNull(port.partNumber)},
               {"lun_count", OrNull(port.lunCount)},
               {"block_device_count", OrNull(port.blockDeviceCount)},
               {"block_devices", OrNull(port.blockDevices)},
               {"unanswered", port.silence ? ToJson(*port.silence) : Json()}};
  if (port.details) AddDetails(json, *port.details);
  return json;
}

Json ToJson(const std::vector<Port>& ports) {
  return ToJsonList(ports);
}

Json TargetsJson(const Port& port) {
  const PortDetails details = port.details.value_or(PortDetails{});
  Json vports = Json::array();
  for (const VirtualPort& vport : details.virtualPorts) {
    vports.push_back({{"wwpn", HexText(vport.wwpn)}, {"targets", ToJsonList(vport.targets)}});
  }
  return {{"port", HexText(port.wwpn)}, {"targets", PortTargets(details)}, {"vports", vports}};
}

std::vector<Json> TargetLines(const Port& port) {
  const PortDetails details = port.details.value_or(PortDetails{});
  std::vector<Json> lines;
  AddTargetLines(lines, port, Json(), PortTargets(details));
  for (const VirtualPort& vport : details.virtualPorts) {
    AddTargetLines(lines, port, HexText(vport.wwpn), ToJsonList(vport.targets));
  }
  return lines;
}

std::string_view KindText(PortKind kind) {
  switch (kind) {
    case PortKind::Fcoe:
      return "FCoE";
    case PortKind::Iscsi:
      return "iSCSI";
    case PortKind::Nic:
      return "NIC";
    case PortKind::NicRoce:
      return "NIC+RoCE";
    case PortKind::Fc:
      break;
  }
  return "FC";
}

std::string_view LinkText(Link link) {
  switch (link) {
    case Link::Up:
      return "up";
    case Link::Down:
      return "down";
    case Link::OverTemperature:
      return "overheated";
    case Link::Unknown:
      break;
  }
  return {};
}

std::string HexText(std::uint64_t value, int digits) {
  std::array<char, 24> text{};
  std::snprintf(text.data(), text.size(), "0x%0*llx", digits, static_cast<unsigned long long>(value));
  return text.data();
}

}  // namespace hbadisc

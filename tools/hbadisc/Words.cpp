#include "tools/hbadisc/Words.h"

#include <algorithm>
#include <map>

namespace hbadisc {

namespace {

using Dictionary = std::map<std::string_view, std::string_view>;

// Members of objects ("key value") and lists, one after another.
std::string Joined(const Json& values) {
  std::string text;
  for (const auto& [key, value] : values.items()) {
    if (!text.empty()) text += ", ";
    if (values.is_object()) text += KeyWords(key) + ' ';
    text += ValueText(value);
  }
  return text;
}

}  // namespace

std::string KeyWords(std::string_view key) {
  static const Dictionary words = {{"wwpn", "WWPN"},
                                   {"wwnn", "WWNN"},
                                   {"pci_bus", "PCI bus"},
                                   {"pci_function", "PCI function"},
                                   {"sub_adapter", "sub-adapter"},
                                   {"vpd_port_number", "VPD port number"},
                                   {"target_count", "targets"},
                                   {"vport_count", "virtual ports"},
                                   {"vports", "virtual ports"},
                                   {"vf_count", "virtual functions"},
                                   {"cim", "CIM"},
                                   {"iscsi_names", "iSCSI names"},
                                   {"pci_address", "PCI address"},
                                   {"lun_count", "LUNs"},
                                   {"block_device_count", "disk count"},
                                   {"fcp_lun", "FCP LUN"},
                                   {"lun", "LUN"},
                                   {"fc_address_id", "FC address id"}};
  const auto found = words.find(key);
  if (found != words.end()) return std::string(found->second);
  std::string text(key);
  std::replace(text.begin(), text.end(), '_', ' ');
  return text;
}

std::string Label(std::string_view key) {
  std::string text = KeyWords(key);
  // "iSCSI" keeps its small letter.
  if (!text.starts_with("iS") && text[0] >= 'a' && text[0] <= 'z')
    text[0] = static_cast<char>(text[0] - 'a' + 'A');
  return text;
}

std::string_view ItemWords(std::string_view key) {
  static const Dictionary words = {{"targets", "target"},
                                   {"vports", "virtual port"},
                                   {"virtual_functions", "virtual function"},
                                   {"found_on", "found-on port"}};
  const auto found = words.find(key);
  return found == words.end() ? std::string_view() : found->second;
}

std::string ValueText(const Json& value) {
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (value.is_string()) return NameText(value.get<std::string>());
  if (value.is_structured() && !value.empty()) return Joined(value);
  if (value.is_number()) return value.dump();
  return "-";
}

std::string NameText(const std::string& text) {
  constexpr std::size_t kNameLength = 18;
  if (text.size() != kNameLength || !text.starts_with("0x")) return text;
  const std::optional<Wwn> wwn = ParseWwn(text);
  return wwn ? ColonText(*wwn) : text;
}

std::string Counted(std::size_t count, std::string_view singular) {
  return std::to_string(count) + ' ' + std::string(singular) + (count == 1 ? "" : "s");
}

}  // namespace hbadisc

#include "provider/sysfs/SysfsBoard.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "provider/sysfs/SysfsRecords.h"

namespace provider {

namespace {

constexpr std::uint32_t kPortTypeFc = 0;
constexpr std::uint32_t kPortTypeFcoe = 2;
constexpr std::uint32_t kLinkUp = 1;
constexpr std::uint32_t kLinkDown = 2;
constexpr std::uint16_t kUnknown16 = 0xFFFF;
// A model number must not be 0; this is no PCI device's id.
constexpr std::uint32_t kUnknownModel = 0xFFFF;

std::string Hex4(std::uint32_t number) {
  std::array<char, 16> text;
  std::snprintf(text.data(), text.size(), "%04x", number);
  return text.data();
}

bool HasPciIds(const FcPortFacts& facts) {
  return facts.pci.has_value() && facts.pci->vendor != 0 && facts.pci->device != 0;
}

std::string PciText(const PciDevice& pci) {
  return (pci.driver.empty() ? "PCI" : pci.driver) + ' ' + Hex4(pci.vendor) + ':' + Hex4(pci.device);
}

std::string ManufacturerText(const FcPortFacts& facts) {
  if (!facts.manufacturer.empty()) return facts.manufacturer;
  if (HasPciIds(facts)) return "PCI vendor " + Hex4(facts.pci->vendor);
  return facts.net.has_value() ? "Linux" : "unknown";
}

std::string ModelText(const FcPortFacts& facts) {
  if (!facts.model.empty()) return facts.model;
  if (!facts.modelDescription.empty()) return facts.modelDescription;
  if (facts.net.has_value()) {
    const std::string port = (facts.driver.empty() ? "fcoe" : facts.driver) + " over " + facts.net->name;
    return HasPciIds(facts) ? port + " (" + PciText(*facts.pci) + ')' : port;
  }
  if (HasPciIds(facts)) return PciText(*facts.pci);
  if (!facts.symbolicName.empty()) return facts.symbolicName;
  return facts.driver.empty() ? "unknown" : facts.driver;
}

std::string SerialNumberText(const FcPortFacts& facts) {
  if (!facts.serialNumber.empty()) return facts.serialNumber;
  return facts.net.has_value() ? facts.net->macAddress : std::string();
}

std::uint32_t ModelId(const FcPortFacts& facts) {
  return HasPciIds(facts) ? facts.pci->device : kUnknownModel;
}

std::uint32_t SubVendorId(const FcPortFacts& facts) {
  return facts.pci.has_value() ? facts.pci->subVendor : 0;
}
std::uint32_t SubDeviceId(const FcPortFacts& facts) {
  return facts.pci.has_value() ? facts.pci->subDevice : 0;
}

// A reader of the attributes draws these conclusions from the numbers; the record must not differ.
std::uint32_t SpecialFeatures(const FcPortFacts& facts) {
  std::uint32_t features = facts.isFcoe ? std::uint32_t{RM_FEATURE_FCOE} | RM_FEATURE_CONVERGED : 0u;
  const std::uint32_t model = ModelId(facts);
  if (model == 0xFE05 || model == 0xFED5) features |= RM_FEATURE_MARDEL;
  const std::uint32_t subDevice = SubDeviceId(facts);
  if (SubVendorId(facts) == 0x103C && (subDevice == 0x3391 || subDevice == 0x3392))
    features |= RM_FEATURE_SORTANE;
  return features;
}

std::optional<std::uint32_t> PortNumber(const FcPortFacts& facts) {
  // One PCI function may carry several ports, which then count up from 0.
  if (facts.net.has_value() && facts.net->port != 0) return facts.net->port;
  if (facts.pci.has_value()) return facts.pci->address.function;
  return std::nullopt;
}

std::string PortNumberText(const FcPortFacts& facts) {
  const std::optional<std::uint32_t> number = PortNumber(facts);
  return number.has_value() ? std::to_string(*number) : std::string();
}

std::uint32_t LinkStatus(bool isUp) {
  return isUp ? kLinkUp : kLinkDown;
}

// The wire under an FCoE port is its network device's, the FC login comes on top of it.
std::uint32_t PhysicalLink(const FcPortFacts& facts) {
  return LinkStatus(facts.net.has_value() ? facts.net->hasCarrier : facts.isOnline);
}

std::uint32_t FunctionLink(const FcPortFacts& facts) {
  return LinkStatus(facts.isOnline);
}

template <std::size_t Size>
std::string FieldText(const char (&field)[Size]) {
  return std::string(field, strnlen(field, Size));
}

template <std::size_t Size>
void CopyTerminated(char (&field)[Size], const std::string& text) {
  CopyText(field, text.substr(0, Size - 1));
}

}  // namespace

Board MakeSysfsBoard(const FcPortFacts& facts, const std::string& hostName) {
  constexpr unsigned kFunctionShift = 8;
  Board board;
  HBA_info_v4& info = board.info;
  CopyName(info.portWwn, facts.portName);
  CopyName(info.nodeWwn, facts.nodeName);
  CopyName(info.fabricName, facts.fabricName);
  info.modelId = ModelId(facts) | (facts.isTargetMode ? std::uint32_t{RM_MODEL_TARGET_MODE} : 0u);
  CopyTerminated(info.hostName, hostName);
  CopyTerminated(info.manufacturer, ManufacturerText(facts));
  CopyText(info.model, ModelText(facts));
  CopyText(info.serialNumber, SerialNumberText(facts));
  CopyText(info.vpdPortNumber, PortNumberText(facts));
  // Only FCoE ports are told their physical port by attribute.
  info.physicalPort = static_cast<std::uint16_t>(facts.isFcoe ? PortNumber(facts).value_or(0) : 0);
  info.functionNumber = facts.pci.has_value() ? facts.pci->address.function : kUnknown16;
  info.busNumber = facts.pci.has_value() ? facts.pci->address.bus : kUnknown16;
  info.specialFeatures = SpecialFeatures(facts);
  board.linkStatus = PhysicalLink(facts);
  if (facts.isFcoe) board.linkStatus |= FunctionLink(facts) << kFunctionShift;
  return board;
}

Attributes MakeSysfsAttributes(const FcPortFacts& facts, const std::string& hostName) {
  const HBA_info_v4 info = MakeSysfsBoard(facts, hostName).info;
  // Every number is there even when it says nothing: a reader takes the absence of one as the failure of the
  // next.
  Attributes attributes = MakeSysfsPortAttributes(facts);
  attributes[RM_ATTR_HOST_NAME] = FieldText(info.hostName);
  attributes[RM_ATTR_MANUFACTURER] = FieldText(info.manufacturer);
  attributes[RM_ATTR_SERIAL_NUMBER] = FieldText(info.serialNumber);
  attributes[RM_ATTR_MODEL] = FieldText(info.model);
  attributes[RM_ATTR_MODEL_NAME] = FieldText(info.model);
  attributes[RM_ATTR_VPD_PORT_NUMBER] = FieldText(info.vpdPortNumber);
  attributes[RM_ATTR_NODE_NAME] = facts.nodeName;
  attributes[RM_ATTR_FABRIC_NAME] = facts.fabricName;
  attributes[RM_ATTR_MODEL_ID] = ModelId(facts);
  attributes[RM_ATTR_TARGET_MODE] = std::uint32_t{facts.isTargetMode};
  attributes[RM_ATTR_PCI_BUS] = std::uint32_t{info.busNumber};
  attributes[RM_ATTR_PCI_FUNCTION] = std::uint32_t{info.functionNumber};
  attributes[RM_ATTR_PHYSICAL_PORT] = std::uint32_t{info.physicalPort};
  attributes[RM_ATTR_PORT_TYPE] = facts.isFcoe ? kPortTypeFcoe : kPortTypeFc;
  attributes[RM_ATTR_SUB_VENDOR_ID] = SubVendorId(facts);
  attributes[RM_ATTR_SUB_DEVICE_ID] = SubDeviceId(facts);
  return attributes;
}

Attributes MakeSysfsPortAttributes(const FcPortFacts& facts) {
  Attributes attributes;
  attributes[RM_ATTR_PHYSICAL_LINK] = PhysicalLink(facts);
  if (facts.isFcoe) attributes[RM_ATTR_FUNCTION_LINK] = FunctionLink(facts);
  return attributes;
}

Attributes MakeSysfsServerAttributes(const std::string& hostName) {
  return {{RM_ATTR_SERVER_NAME, hostName}};
}

}  // namespace provider

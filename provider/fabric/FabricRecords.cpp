#include "provider/fabric/FabricRecords.h"

#include <algorithm>

#include "provider/host/AdapterModels.h"
#include "rmapi/PortDetails.h"

namespace provider {

namespace {

constexpr std::uint32_t kOverheatedLink = 0xEE000000;
constexpr std::uint16_t kUnknown16 = 0xFFFF;
constexpr std::uint32_t kSortaneSubVendor = 0x103C;
constexpr std::uint32_t kSortaneSubDevices[] = {0x3391, 0x3392};
constexpr std::uint32_t kMardelModels[] = {0xFE05, 0xFED5};

// Fills the field and leaves the rest zero; a text as long as the field has no NUL, and a longer one is cut.
template <class Character, std::size_t Size>
void CopyText(Character (&field)[Size], const std::string& text) {
  std::copy_n(text.begin(), std::min(text.size(), Size), field);
}

template <class Field>
void CopyName(Field& field, const Wwn& name) {
  std::copy(name.begin(), name.end(), field);
}

bool IsConverged(const FabricBoard& board) {
  return board.kind != FabricKind::kFc;
}

template <class Numbers>
bool IsOneOf(const Numbers& numbers, const std::optional<std::uint32_t>& number) {
  return std::find(std::begin(numbers), std::end(numbers), number) != std::end(numbers);
}

std::uint32_t KindFeatures(const FabricBoard& board) {
  constexpr std::uint32_t kTovrinType = 4;
  constexpr std::uint32_t kKelsoType = 7;
  switch (board.kind) {
    case FabricKind::kIscsi:
      return RM_FEATURE_CONVERGED | RM_FEATURE_ISCSI;
    case FabricKind::kFcoe:
      return RM_FEATURE_CONVERGED | RM_FEATURE_FCOE;
    case FabricKind::kNic:
      return RM_FEATURE_CONVERGED | RM_FEATURE_NIC;
    case FabricKind::kNicRoce:
      return RM_FEATURE_CONVERGED | RM_FEATURE_NIC | RM_FEATURE_ROCE;
    case FabricKind::kFc:
      break;
  }
  if (board.portType == kTovrinType) return RM_FEATURE_TOVRIN;
  if (board.portType == kKelsoType) return RM_FEATURE_KELSO;
  return 0;
}

std::uint32_t SpecialFeatures(const FabricBoard& board) {
  std::uint32_t features = KindFeatures(board);
  if (IsOneOf(kMardelModels, board.modelId)) features |= RM_FEATURE_MARDEL;
  if (board.subVendorId == kSortaneSubVendor && IsOneOf(kSortaneSubDevices, board.subDeviceId)) {
    features |= RM_FEATURE_SORTANE;
  }
  if (board.attribute585 == 2u) features |= RM_FEATURE_ATTRIBUTE_585;
  if (board.attribute587.value_or(0) != 0) features |= RM_FEATURE_ATTRIBUTE_587;
  if (board.subAdapterId.has_value()) features |= RM_FEATURE_SUB_ADAPTER;
  return features;
}

std::uint16_t Number16(const std::optional<std::uint32_t>& number, std::uint16_t unknown) {
  return static_cast<std::uint16_t>(number.value_or(unknown));
}

std::string ModelText(const FabricBoard& board) {
  if (board.modelName.has_value()) return *board.modelName;
  if (board.model.has_value()) return *board.model;
  return HasFcTargets(board.kind) ? AdapterModelText(board.modelId.value_or(0)) : std::string();
}

std::uint32_t LinkWord(const FabricBoard& board, const FabricBoardState& state) {
  constexpr unsigned kFunctionShift = 8;
  if (state.overheated) return kOverheatedLink;
  std::uint32_t word = state.link.physical;
  if (IsConverged(board)) word |= static_cast<std::uint32_t>(state.link.function) << kFunctionShift;
  return word;
}

template <class T>
void Put(Attributes& attributes, RM_AttributeId id, const std::optional<T>& value) {
  if (value.has_value()) attributes[id] = *value;
}

void PutLink(Attributes& attributes, const FabricBoard& board, const FabricBoardState& state) {
  attributes[RM_ATTR_PHYSICAL_LINK] = std::uint32_t{state.link.physical};
  if (IsConverged(board)) attributes[RM_ATTR_FUNCTION_LINK] = std::uint32_t{state.link.function};
}

void PutRaw(Attributes& attributes, const FabricBoard& board) {
  for (const auto& [id, value] : board.attributes) {
    attributes.erase(id);
    if (value.has_value()) attributes[id] = *value;
  }
}

// No speed without a link.
void PutDetails(Attributes& attributes, const FabricBoard& board, const FabricBoardState& state) {
  if (board.details.empty()) return;
  attributes.insert(board.details.begin(), board.details.end());
  attributes[kPortDetailsMark] = std::string(kPortDetailsText);
  const bool isUp = state.link.physical == 1 && !state.overheated;
  if (const auto speed = attributes.find(kDetailLinkSpeed); speed != attributes.end() && !isUp) {
    speed->second = std::uint32_t{0};
  }
}

}  // namespace

Board MakeFabricBoard(const std::string& hostName, const FabricBoard& board, const FabricBoardState& state) {
  Board made;
  HBA_info_v4& info = made.info;
  CopyName(info.portWwn, board.portName);
  CopyName(info.nodeWwn, board.nodeName);
  CopyName(info.fabricName, board.fabricName.value_or(Wwn{}));
  info.modelId = board.modelId.value_or(0) | (board.targetMode ? std::uint32_t{RM_MODEL_TARGET_MODE} : 0u);
  CopyText(info.hostName, hostName);
  CopyText(info.manufacturer, board.manufacturer.value_or(""));
  CopyText(info.model, ModelText(board));
  CopyText(info.serialNumber, board.serialNumber.value_or(""));
  CopyText(info.vpdPortNumber, board.vpdPortNumber.value_or(""));
  info.physicalPort = Number16(board.physicalPort, 0);
  info.functionNumber = Number16(board.pciFunction, kUnknown16);
  info.specialFeatures = SpecialFeatures(board);
  info.busNumber = Number16(board.pciBus, kUnknown16);
  CopyText(info.subAdapterId, board.subAdapterId.value_or(""));
  made.linkStatus = LinkWord(board, state);
  return made;
}

Attributes MakeFabricLegacyAttributes(const std::string& hostName, const FabricBoard& board) {
  Attributes attributes;
  attributes[RM_ATTR_HOST_NAME] = hostName;
  attributes[HasFcTargets(board.kind) ? RM_ATTR_NODE_NAME : RM_ATTR_FUNCTION_NODE_NAME] = board.nodeName;
  Put(attributes, RM_ATTR_MANUFACTURER, board.manufacturer);
  Put(attributes, RM_ATTR_SERIAL_NUMBER, board.serialNumber);
  Put(attributes, RM_ATTR_MODEL, board.model);
  Put(attributes, RM_ATTR_MODEL_NAME, board.modelName);
  Put(attributes, RM_ATTR_MODEL_ID, board.modelId);
  Put(attributes, RM_ATTR_FABRIC_NAME, board.fabricName);
  Put(attributes, RM_ATTR_VPD_PORT_NUMBER, board.vpdPortNumber);
  if (board.targetMode) attributes[RM_ATTR_TARGET_MODE] = std::uint32_t{1};
  Put(attributes, RM_ATTR_PCI_BUS, board.pciBus);
  Put(attributes, RM_ATTR_PORT_TYPE, board.portType);
  Put(attributes, RM_ATTR_SUB_VENDOR_ID, board.subVendorId);
  Put(attributes, RM_ATTR_SUB_DEVICE_ID, board.subDeviceId);
  Put(attributes, RM_ATTR_PHYSICAL_PORT, board.physicalPort);
  Put(attributes, RM_ATTR_PCI_FUNCTION, board.pciFunction);
  Put(attributes, RM_ATTR_585, board.attribute585);
  Put(attributes, RM_ATTR_SUB_ADAPTER_ID, board.subAdapterId);
  Put(attributes, RM_ATTR_587, board.attribute587);
  PutRaw(attributes, board);
  return attributes;
}

Attributes MakeFabricAttributes(const std::string& hostName, const FabricBoard& board,
                                const FabricBoardState& state) {
  Attributes attributes = MakeFabricLegacyAttributes(hostName, board);
  PutLink(attributes, board, state);
  PutDetails(attributes, board, state);
  PutRaw(attributes, board);
  return attributes;
}

Attributes MakeFabricPortAttributes(const FabricBoard& board, const FabricBoardState& state) {
  Attributes attributes;
  PutLink(attributes, board, state);
  PutRaw(attributes, board);
  return attributes;
}

Attributes MakeFabricServerAttributes(const std::string& hostName) {
  return {{RM_ATTR_SERVER_NAME, hostName}};
}

RM_NodeInfoEntry MakeFabricNode(const FabricTarget& target) {
  RM_NodeInfoEntry node{};
  node.bindType = target.bindType;
  CopyText(node.osDeviceName, target.device);
  node.bus = target.bus;
  node.target = target.target;
  node.lun = target.lun;
  node.fcAddressId = target.fcId;
  CopyName(node.nodeWwn, target.nodeName);
  CopyName(node.portWwn, target.portName);
  node.fcpLun = target.fcpLun;
  CopyText(node.lunId, target.lunId);
  node.nodeState = target.nodeState;
  return node;
}

RM_VPortEntry MakeFabricVirtualPort(const FabricVirtualPort& port) {
  RM_VPortEntry entry{};
  CopyName(entry.portWwn, port.portName);
  CopyName(entry.nodeWwn, port.nodeName);
  return entry;
}

RM_VPortTargetEntry MakeFabricVirtualPortTarget(const FabricTarget& target) {
  RM_VPortTargetEntry entry{};
  CopyText(entry.osDeviceName, target.device);
  entry.bus = target.bus;
  entry.target = target.target;
  entry.lun = target.lun;
  entry.fcAddressId = target.fcId;
  CopyName(entry.nodeWwn, target.nodeName);
  CopyName(entry.portWwn, target.portName);
  entry.fcpLun = target.fcpLun;
  return entry;
}

_RM_ISCSI_TARGET MakeFabricIscsiTarget(const FabricIscsiTarget& target) {
  _RM_ISCSI_TARGET entry{};
  constexpr std::size_t kFirst = sizeof(entry.targetName);
  CopyText(entry.targetName, target.name);
  CopyText(entry.secondName, target.name.size() > kFirst ? target.name.substr(kFirst) : target.secondName);
  if (target.sessions) entry.flags[0] |= RM_ISCSI_HAS_SESSIONS;
  if (target.connected) entry.flags[0] |= RM_ISCSI_CONNECTED;
  return entry;
}

}  // namespace provider

// The keys of one board.
#include "provider/fabric/FabricSchema.h"
#include "provider/host/AdapterModels.h"
#include "provider/host/WorldWideName.h"
#include "rmapi/PortDetails.h"

namespace provider {

namespace {

constexpr std::uint32_t kFirstModelId = 0x6A01;  // of FC; the other kinds follow
constexpr std::uint32_t kBusUnknown = 0xFFFF;
constexpr std::uint32_t kMost16 = 0xFFFF;
constexpr std::uint32_t kMost32 = 0xFFFFFFFF;
constexpr std::uint32_t kAnyText = 1024;
constexpr std::size_t kMostAttributes = 64;

// The record's fields; a text may fill the last four without a NUL.
constexpr std::size_t kLongestManufacturer = 31;
constexpr std::size_t kLongestModel = 80;
constexpr std::size_t kLongestSerialNumber = 60;
constexpr std::size_t kLongestPortNumber = 8;
constexpr std::size_t kLongestSubAdapterId = 32;
constexpr std::size_t kLongestIscsiName = 256;

constexpr std::string_view kKinds[] = {"fc", "fcoe", "iscsi", "nic", "nic-roce"};
constexpr std::uint32_t kPortTypes[] = {0, 2, 1, 3, 6};  // of the kinds, in their order

// A key that is missing leaves `value` as it is; null takes the value away.
template <class T, class Read>
void ReadNullable(FabricObject& board, std::string_view key, std::optional<T>& value, Read read) {
  const std::optional<FabricValue> given = board.Find(key);
  if (!given.has_value()) return;
  value.reset();
  if (!given->IsNull()) value = read(*given);
}

void ReadText(FabricObject& board, std::string_view key, std::size_t most, std::optional<std::string>& value) {
  ReadNullable(board, key, value, [most](const FabricValue& given) { return given.Text(most); });
}

void ReadNumber(FabricObject& board, std::string_view key, std::uint32_t most,
                std::optional<std::uint32_t>& value) {
  ReadNullable(board, key, value, [most](const FabricValue& given) { return given.Number32(most); });
}

std::uint32_t ReadPortType(const FabricValue& value) {
  const std::uint32_t type = value.Number32(kMost32);
  if (type == 1 || type == 2 || type == 3 || type == 6) value.Refuse("a port type of FC: not 1, 2, 3 or 6");
  return type;
}

void ReadIdentity(FabricObject& object, FabricBoard& board, FabricTotals& totals) {
  const FabricValue portName = object.Require("wwpn", "the port's name");
  board.portName = portName.Name();
  if (!totals.portNames.insert(board.portName).second)
    portName.Refuse("a name that no other port of the file has");
  board.nodeName = board.portName;
  board.nodeName[0] = 0x20;
  if (const auto name = object.Find("wwnn")) board.nodeName = name->Name();
  if (HasFcTargets(board.kind)) {
    if (const auto name = object.Find("fabric_name")) board.fabricName = name->Name();
  }
}

void ReadModel(FabricObject& object, FabricBoard& board) {
  board.portType = kPortTypes[static_cast<std::size_t>(board.kind)];
  if (board.kind == FabricKind::kFc) ReadNullable(object, "port_type", board.portType, ReadPortType);
  board.modelId = kFirstModelId + static_cast<std::uint32_t>(board.kind);
  ReadNumber(object, "model_id", kMost32 >> 3, board.modelId);
  board.model = AdapterModelText(board.modelId.value_or(0));
  if (board.model->empty()) board.model.reset();
  ReadText(object, "model", kLongestModel, board.model);
  if (HasFcTargets(board.kind)) ReadText(object, "model_name", kLongestModel, board.modelName);
  board.manufacturer = "Varnix";
  ReadText(object, "manufacturer", kLongestManufacturer, board.manufacturer);
  ReadText(object, "serial_number", kLongestSerialNumber, board.serialNumber);
  board.subVendorId = 0;
  board.subDeviceId = 0;
  ReadNumber(object, "sub_vendor_id", kMost16, board.subVendorId);
  ReadNumber(object, "sub_device_id", kMost16, board.subDeviceId);
}

void ReadLocation(FabricObject& object, FabricBoard& board) {
  board.physicalPort = 0;
  board.pciFunction = 0;
  board.pciBus = kBusUnknown;
  ReadNumber(object, "physical_port", kMost16, board.physicalPort);
  ReadNumber(object, "pci_function", kMost16, board.pciFunction);
  ReadNumber(object, "pci_bus", kMost16, board.pciBus);
  if (board.physicalPort.has_value()) board.vpdPortNumber = std::to_string(*board.physicalPort);
  ReadText(object, "vpd_port_number", kLongestPortNumber, board.vpdPortNumber);
  ReadText(object, "sub_adapter_id", kLongestSubAdapterId, board.subAdapterId);
}

constexpr std::size_t kLongestDetail = 255;

// What inventories ask for beyond the record; what is left out is not known.
void ReadDetails(const FabricValue& value, FabricBoard& board) {
  FabricObject object(value);
  for (const PortDetailKey& detail : kPortDetailKeys) {
    const auto given = object.Find(detail.key);
    if (!given.has_value()) continue;
    if (detail.isNumber) {
      board.details[detail.id] = given->Number32(kMost32 - 1);
    } else {
      board.details[detail.id] = given->Text(kLongestDetail);
    }
  }
  object.Finish();
}

AttributeValue ReadAttributeValue(const FabricValue& value) {
  if (value.IsObject()) {
    FabricObject object(value);
    const Wwn name = object.Require("name", "a name of 8 bytes").Name();
    object.Finish();
    return name;
  }
  if (value.IsText()) return value.Text(kAnyText);
  return value.Number32(kMost32);
}

// Anything at all, by number, in place of what follows from the other keys.
void ReadRawAttributes(const FabricValue& value, FabricBoard& board) {
  const std::vector<FabricValue> elements = value.Elements(kMostAttributes);
  for (const FabricValue& element : elements) {
    FabricObject object(element);
    const std::uint32_t id = object.Require("id", "an attribute's number").Number32(kMost32);
    const FabricValue given = object.Require("value", "a text, a number, {\"name\": ...} or null");
    std::optional<AttributeValue>& attribute = board.attributes[id];
    attribute.reset();
    if (!given.IsNull()) attribute = ReadAttributeValue(given);
    object.Finish();
  }
}

void ReadBehaviour(FabricObject& object, FabricBoard& board) {
  board.driverType = 2;
  board.bindType = 1;
  if (const auto value = object.Find("driver_type")) board.driverType = value->Number32(kMost32);
  if (const auto value = object.Find("bind_type")) board.bindType = value->Number32(kMost32);
  if (const auto value = object.Find("target_mode")) board.targetMode = value->Flag();
  if (const auto value = object.Find("legacy_attributes")) board.legacyAttributes = value->Flag();
  ReadNumber(object, "attribute_585", kMost32, board.attribute585);
  ReadNumber(object, "attribute_587", kMost32, board.attribute587);
  if (const auto value = object.Find("details")) ReadDetails(*value, board);
  if (const auto value = object.Find("attributes")) ReadRawAttributes(*value, board);
}

void ReadIscsi(FabricObject& object, FabricBoard& board) {
  const FabricValue value = object.Require("iscsi", "an object with the initiator's names");
  FabricObject names(value);
  board.iscsi.initiatorName = names.Require("initiator_name", "the initiator's name").Text(kLongestIscsiName);
  if (const auto name = names.Find("default_name")) board.iscsi.defaultName = name->Text(kLongestIscsiName);
  if (const auto name = names.Find("alias")) board.iscsi.alias = name->Text(kLongestIscsiName);
  names.Finish();
}

void ReadInitialState(FabricObject& object, FabricBoard& board, FabricTotals& totals) {
  FabricBoardState& state = board.initial;
  if (const auto value = object.Find("present")) state.present = value->Flag();
  if (const auto value = object.Find("overheated")) state.overheated = value->Flag();
  if (const auto value = object.Find("link")) state.link = ReadFabricLink(*value);
  state.targets = std::make_shared<std::vector<FabricTarget>>();
  state.virtualPorts = std::make_shared<std::vector<FabricVirtualPort>>();
  state.iscsiTargets = std::make_shared<std::vector<FabricIscsiTarget>>();
  state.functions = std::make_shared<std::vector<HBA_NAME>>();
  if (HasFcTargets(board.kind)) {
    if (const auto value = object.Find("targets"))
      state.targets = ReadFabricTargets(*value, board.bindType, totals);
    if (const auto value = object.Find("virtual_ports"))
      state.virtualPorts = ReadFabricVirtualPorts(*value, totals);
  }
  if (board.kind == FabricKind::kIscsi) {
    if (const auto value = object.Find("iscsi_targets"))
      state.iscsiTargets = ReadFabricIscsiTargets(*value, totals);
  }
  if (HasFunctions(board.kind)) {
    if (const auto value = object.Find("virtual_functions"))
      state.functions = ReadFabricFunctions(*value, totals);
  }
}

std::uint8_t ReadLinkByte(const FabricValue& value) {
  constexpr std::string_view kStates[] = {"up", "down"};  // 1 and 2
  if (value.IsText()) return static_cast<std::uint8_t>(value.Word(kStates) + 1);
  return static_cast<std::uint8_t>(value.Number(0, 0xFF));
}

}  // namespace

FabricLink ReadFabricLink(const FabricValue& value) {
  FabricLink link;
  if (!value.IsObject()) {
    link.physical = ReadLinkByte(value);
    link.function = link.physical;
    return link;
  }
  FabricObject object(value);
  if (const auto byte = object.Find("physical")) link.physical = ReadLinkByte(*byte);
  if (const auto byte = object.Find("function")) link.function = ReadLinkByte(*byte);
  object.Finish();
  return link;
}

FabricBoard ReadFabricBoard(const FabricValue& value, FabricTotals& totals) {
  FabricObject object(value);
  FabricBoard board;
  board.kind = static_cast<FabricKind>(object.Require("kind", "the kind of port").Word(kKinds));
  ReadIdentity(object, board, totals);
  ReadModel(object, board);
  ReadLocation(object, board);
  ReadBehaviour(object, board);
  if (board.kind == FabricKind::kIscsi) ReadIscsi(object, board);
  ReadInitialState(object, board, totals);
  if (const auto comment = object.Find("comment")) comment->Text(kAnyText);
  object.Finish();
  return board;
}

}  // namespace provider

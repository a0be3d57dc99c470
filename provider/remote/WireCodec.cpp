#include "provider/remote/WireCodec.h"

#include <climits>
#include <utility>

#include "provider/remote/WireReader.h"

namespace provider {

namespace {

constexpr unsigned kFormatVersion = 1;
constexpr std::size_t kMostAttributes = 256;
constexpr std::size_t kLongestAttribute = RM_ATTRIBUTE_ROOM;

// ---- Words for people

constexpr std::pair<int, const char*> kStatusTexts[] = {
    {RM_STATUS_OK, "ok"},
    {RM_STATUS_FAILED, "failed, ask again"},
    {RM_STATUS_NOT_SUPPORTED, "not supported"},
    {RM_STATUS_BUFFER_TOO_SMALL, "too many for the room there is"},
    {RM_STATUS_LOCKED, "in use"},
    {RM_STATUS_MORE_DATA, "too many for the room there is"},
    {RM_STATUS_NOT_FOUND, "not found"},
    {RM_STATUS_OVER_TEMPERATURE, "above operating temperature"},
    {RM_STATUS_TRY_AGAIN, "try again"},
    {RM_STATUS_HOST_UNUSABLE, "host unusable"},
    {RM_STATUS_BUSY, "busy"},
};

constexpr std::pair<unsigned int, const char*> kAttributeNames[] = {
    {RM_ATTR_SERVER_NAME, "server_name"},
    {RM_ATTR_HOST_NAME, "host_name"},
    {RM_ATTR_MANUFACTURER, "manufacturer"},
    {RM_ATTR_SERIAL_NUMBER, "serial_number"},
    {RM_ATTR_MODEL, "model"},
    {RM_ATTR_NODE_NAME, "node_wwn"},
    {RM_ATTR_MODEL_ID, "model_id"},
    {RM_ATTR_FABRIC_NAME, "fabric_name"},
    {RM_ATTR_MODEL_NAME, "model_name"},
    {RM_ATTR_VPD_PORT_NUMBER, "vpd_port_number"},
    {RM_ATTR_TARGET_MODE, "target_mode"},
    {RM_ATTR_PCI_BUS, "pci_bus"},
    {RM_ATTR_PORT_TYPE, "port_type"},
    {RM_ATTR_SUB_DEVICE_ID, "sub_device_id"},
    {RM_ATTR_PHYSICAL_PORT, "physical_port"},
    {RM_ATTR_PCI_FUNCTION, "pci_function"},
    {RM_ATTR_SUB_VENDOR_ID, "sub_vendor_id"},
    {RM_ATTR_FUNCTION_NODE_NAME, "node_wwn"},
    {RM_ATTR_SUB_ADAPTER_ID, "sub_adapter_id"},
    {RM_ATTR_PHYSICAL_LINK, "physical_link"},
    {RM_ATTR_FUNCTION_LINK, "function_link"},
};

template <class Table, class Key>
const char* TextOf(const Table& table, Key key, const char* otherwise) {
  for (const auto& [known, text] : table) {
    if (known == key) return text;
  }
  return otherwise;
}

// ---- Values

WireJson EncodeValue(std::uint32_t number) {
  return number;
}
WireJson EncodeValue(bool flag) {
  return flag;
}
WireJson EncodeValue(const HBA_NAME& name) {
  Wwn wwn;
  std::copy(std::begin(name.wwn), std::end(name.wwn), wwn.begin());
  return EncodeName(wwn);
}

// A copy, because one list of fields serves both directions.
template <class Record>
WireJson EncodeValue(Record record) {
  WireJson object = WireJson::object();
  VisitFields(record, FieldWriter(object));
  return object;
}

WireJson EncodeAttribute(unsigned int id, const AttributeValue& value) {
  WireJson object = WireJson::object();
  object["id"] = id;
  object["name"] = TextOf(kAttributeNames, id, "");
  if (const auto* text = std::get_if<std::string>(&value)) {
    object["type"] = "text";
    object["value"] = EncodeText(*text);
  } else if (const auto* number = std::get_if<std::uint32_t>(&value)) {
    object["type"] = "number";
    object["value"] = *number;
  } else {
    object["type"] = "name";
    object["value"] = EncodeName(std::get<Wwn>(value));
  }
  return object;
}

WireJson EncodeValue(const Attributes& attributes) {
  WireJson array = WireJson::array();
  for (const auto& [id, value] : attributes) array.push_back(EncodeAttribute(id, value));
  return array;
}

void DecodeValue(const WireJson& json, std::uint32_t& number) {
  number = static_cast<std::uint32_t>(DecodeNumber(json, UINT32_MAX));
}
void DecodeValue(const WireJson& json, bool& flag) {
  flag = DecodeFlag(json);
}
void DecodeValue(const WireJson& json, HBA_NAME& name) {
  const Wwn wwn = DecodeName(json);
  std::copy(wwn.begin(), wwn.end(), name.wwn);
}

template <class Record>
void DecodeValue(const WireJson& json, Record& record) {
  VisitFields(record, FieldReader(json));
}

AttributeValue DecodeAttribute(const WireJson& object) {
  const std::string type = DecodeText(Member(object, "type"), sizeof("number"));
  const WireJson& value = Member(object, "value");
  if (type == "text") return DecodeText(value, kLongestAttribute);
  if (type == "number") return static_cast<std::uint32_t>(DecodeNumber(value, UINT32_MAX));
  if (type == "name") return DecodeName(value);
  throw WireError("expected an attribute's type");
}

void DecodeValue(const WireJson& json, Attributes& attributes) {
  if (!json.is_array() || json.size() > kMostAttributes) throw WireError("expected a shorter array");
  for (const WireJson& element : json) {
    const auto id = static_cast<unsigned int>(DecodeNumber(Member(element, "id"), UINT32_MAX));
    if (!attributes.emplace(id, DecodeAttribute(element)).second) throw WireError("an attribute appears twice");
  }
}

// ---- Documents

WireJson BeginDocument(const std::string& path, int status) {
  WireJson document = WireJson::object();
  document["format_version"] = kFormatVersion;
  document["path"] = path;
  document["status"] = status;
  document["status_text"] = TextOf(kStatusTexts, status, "error");
  return document;
}

bool IsTooSmall(int status) {
  return status == RM_STATUS_BUFFER_TOO_SMALL || status == RM_STATUS_MORE_DATA;
}

template <class T>
void EncodeInto(WireJson& document, const Answer<T>& answer) {
  if (answer.status == RM_STATUS_OK || answer.status == RM_STATUS_OVER_TEMPERATURE) {
    document["value"] = EncodeValue(answer.value);
  }
}

// A scripted count other than the true one is not told with status 0: whoever asks another host never hears of
// more records than there are.
template <class Record>
void EncodeInto(WireJson& document, const ListAnswer<Record>& answer) {
  if (IsTooSmall(answer.status)) {
    document["needed"] = answer.claimedCount.value_or(static_cast<std::uint32_t>(answer.records.size()));
  }
  if (answer.status != RM_STATUS_OK) return;
  WireJson& records = document["records"] = WireJson::array();
  for (const Record& record : answer.records) records.push_back(EncodeValue(record));
}

template <class T>
void DecodeFrom(const WireDocument& document, const std::string& /*text*/, Answer<T>& answer) {
  if (answer.status == RM_STATUS_OK || answer.status == RM_STATUS_OVER_TEMPERATURE) {
    DecodeValue(Member(document.members, "value"), answer.value);
  }
}

template <class Record>
void DecodeFrom(const WireDocument& document, const std::string& text, ListAnswer<Record>& answer) {
  if (IsTooSmall(answer.status)) {
    answer.claimedCount =
        static_cast<std::uint32_t>(DecodeNumber(Member(document.members, "needed"), UINT32_MAX));
  }
  if (answer.status != RM_STATUS_OK) return;
  if (!document.recordCount.has_value() || *document.recordCount > kMostWireRecords) {
    throw WireError("expected a shorter array");
  }
  answer.records.reserve(*document.recordCount);
  ReadRecords(text, [&answer](const WireJson& record) { DecodeValue(record, answer.records.emplace_back()); });
}

}  // namespace

template <class Result>
std::string EncodeAnswer(const std::string& path, const Result& answer) {
  constexpr int kIndent = 1;  // a line for each value, for people
  WireJson document = BeginDocument(path, answer.status);
  EncodeInto(document, answer);
  std::string text = document.dump(kIndent) + '\n';
  if (text.size() <= kMostWireBytes) return text;
  return BeginDocument(path, RM_STATUS_FAILED).dump(kIndent) + '\n';
}

template <class Result>
Result DecodeAnswer(const std::string& text) {
  const WireDocument document = ReadDocument(text);
  if (DecodeNumber(Member(document.members, "format_version"), UINT32_MAX) != kFormatVersion) {
    throw WireError("another format");
  }
  Result answer;
  answer.status = static_cast<int>(DecodeNumber(Member(document.members, "status"), INT_MAX));
  DecodeFrom(document, text, answer);
  return answer;
}

#define INSTANTIATE(...)                                                                 \
  template std::string EncodeAnswer(const std::string& path, const __VA_ARGS__& answer); \
  template __VA_ARGS__ DecodeAnswer(const std::string& text)

INSTANTIATE(Answer<bool>);
INSTANTIATE(Answer<std::uint32_t>);
INSTANTIATE(Answer<Board>);
INSTANTIATE(Answer<Attributes>);
INSTANTIATE(Answer<IscsiNames>);
INSTANTIATE(ListAnswer<unsigned int>);
INSTANTIATE(ListAnswer<HBA_NAME>);
INSTANTIATE(ListAnswer<RM_NodeInfoEntry>);
INSTANTIATE(ListAnswer<RM_VPortEntry>);
INSTANTIATE(ListAnswer<RM_VPortTargetEntry>);
INSTANTIATE(ListAnswer<_RM_ISCSI_TARGET>);

#undef INSTANTIATE

}  // namespace provider

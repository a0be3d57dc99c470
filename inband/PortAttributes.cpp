#include "inband/PortAttributes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>

#include "inband/AttributeBuffer.h"
#include "inband/Gathering.h"
#include "inband/InitiatorNames.h"
#include "inband/PortDetailReader.h"
#include "rmapi/rmapi.h"

namespace {

constexpr unsigned int kMaskError = kLogLocalPorts | kLogDetails;
constexpr unsigned int kMaskFound = kLogInBand | kLogOob;

// Why a look-up did not do; such a status only skips what comes after it.
constexpr int kNoHostName = 501;
constexpr int kNoManufacturer = 502;
constexpr int kModelIdZero = 503;
constexpr int kNoModelId = 504;
constexpr int kNoSerialNumber = 505;

constexpr std::uint32_t kMardelModelIds[] = {0xFE05, 0xFED5};
constexpr std::uint32_t SortaneSubVendorIDs[] = {0x103C};
constexpr std::uint32_t SortaneSubDeviceIDs[] = {0x3391, 0x3392};
constexpr std::uint32_t kModelIdUnknown = 0xFF00;          // stands in the word for a model that is not known
constexpr std::uint32_t kModelFlagRefreshed = 0x80000000;  // set by a directed refresh, no part of the number
constexpr std::uint16_t kUnknown = 0xFFFF;
constexpr std::uint32_t kFCoEPortType = 2;
constexpr std::uint32_t kFeature585Set = 2;

struct PortClass {
  unsigned int features;
  bool isFC;
  const char* text;  // null: not worth a line
};

constexpr PortClass kOrdinaryPort = {0, true, nullptr};

// By port type.
constexpr PortClass kPortClasses[] = {
    kOrdinaryPort,
    {RM_FEATURE_CONVERGED | RM_FEATURE_ISCSI, false, "GetRemotePortAttr: CNA iSCSI port"},
    {RM_FEATURE_CONVERGED | RM_FEATURE_FCOE, true, "GetRemotePortAttr: CNA FCoE port"},
    {RM_FEATURE_CONVERGED | RM_FEATURE_NIC, false, "GetRemotePortAttr: CNA NIC port"},
    {RM_FEATURE_TOVRIN, true, "GetRemotePortAttr: Tovrin FC port"},
    kOrdinaryPort,
    {RM_FEATURE_CONVERGED | RM_FEATURE_NIC | RM_FEATURE_ROCE, false, "GetRemotePortAttr: CNA NIC+RoCE port"},
    {RM_FEATURE_KELSO, true, "GetRemotePortAttr: Kelso FC port"},
};

template <typename Table>
bool IsOneOf(const Table& table, std::uint32_t value) {
  return std::find(std::begin(table), std::end(table), value) != std::end(table);
}

// Copies at most `size` bytes into a field that is zero; a text that fills the field has no NUL.
void CopyText(char* field, std::size_t size, const char* text) {
  std::memcpy(field, text, strnlen(text, size));
}

// One read of a port. m_Status is one running status that every look-up overwrites, so a step that needs a zero
// one depends on the look-up before it; look-ups that must not count use a scratch status.
class AttributeReader {
 public:
  AttributeReader(CHbaEntry* entry, CZylTpThread* thread)
      : m_Entry(*entry), m_Info(*entry->GetHbaInfo()), m_Thread(thread) {}

  int Read();

 private:
  const unsigned char* Proxy() const { return m_Entry.GetProxyAddress(); }
  const unsigned char* Wwn() const { return m_Info.portWwn; }
  void LogMissing(const char* what) const { disco_printf(kMaskError, Wwn(), "GetRemotePortAttr: %s", what); }
  void LogCNAPort() const { disco_printf(kLogRemoteAttr, Wwn(), "GetRemotePortAttr: Got ZAPH port"); }

  void Clear();
  void Fetch();
  void ReadHostName();
  void ReadManufacturer();
  void ReadModelId();
  void TakeZeroModelId();
  void ReadSortaneIds();
  void ReadSerialNumber();
  void ReadPlace();
  void ReadPortType();
  void ReadFCPort();
  void ReadFCName(RM_AttributeId id, std::uint8_t* name, const char* whenMissing);
  void ReadFCModelName();
  void ReadOtherPort();
  void ReadISCSINames();
  void ReadLinkStatus();
  std::uint32_t LinkByte(RM_AttributeId id);
  void ReadFeature587();

  CHbaEntry& m_Entry;
  HBA_info_v4& m_Info;
  CZylTpThread* const m_Thread;
  AttributeBuffer m_Buffer;
  int m_Status = RM_STATUS_OK;
  bool m_Legacy = false;           // answered by the older call, which knows no link status
  bool m_OverTemperature = false;  // all is read, but the caller has to know
  std::optional<std::uint32_t> m_PortType;
  PortClass m_Class = kOrdinaryPort;
};

// The port's name and the model word stay: the word keeps what this read does not replace.
void AttributeReader::Clear() {
  HBA_info_v4 cleared{};
  std::memcpy(cleared.portWwn, m_Info.portWwn, sizeof(cleared.portWwn));
  cleared.modelId = m_Info.modelId;
  cleared.functionNumber = kUnknown;
  cleared.busNumber = kUnknown;
  m_Info = cleared;
}

void AttributeReader::Fetch() {
  m_Status = m_Buffer.Fill(RM_GetDiscoveryAttributes, Proxy(), Wwn());
  if (m_Status == RM_STATUS_NOT_SUPPORTED) {
    m_Legacy = true;
    m_Status = m_Buffer.Fill(RM_GetHBAAttributes, Proxy(), Wwn());
  }
  if (m_Status == RM_STATUS_OVER_TEMPERATURE) {
    m_OverTemperature = true;
    m_Status = RM_STATUS_OK;
  }
}

void AttributeReader::ReadHostName() {
  const char* name = m_Buffer.Text(RM_ATTR_HOST_NAME, &m_Status);
  if (name == nullptr || name[0] == '\0') {
    m_Status = kNoHostName;
    LogMissing("NO HOST NAME for HBA!");
    return;
  }
  CopyText(m_Info.hostName, sizeof(m_Info.hostName) - 1, name);
}

void AttributeReader::ReadManufacturer() {
  if (m_Status != RM_STATUS_OK) return;
  const char* name = m_Buffer.Text(RM_ATTR_MANUFACTURER, &m_Status);
  if (name == nullptr) {
    m_Status = kNoManufacturer;
    LogMissing("Could not get board mfg. attribute value");
    return;
  }
  CopyText(m_Info.manufacturer, sizeof(m_Info.manufacturer) - 1, name);
}

void AttributeReader::ReadModelId() {
  if (m_Status != RM_STATUS_OK) return;
  const auto id = m_Buffer.Number(RM_ATTR_MODEL_ID, &m_Status);
  if (!id) {
    m_Status = kNoModelId;
    LogMissing("Could not get Model ID");
    return;
  }
  if (*id == 0) return TakeZeroModelId();
  m_Info.modelId = *id;
  if (!IsOneOf(kMardelModelIds, *id)) return;
  m_Info.specialFeatures |= RM_FEATURE_MARDEL;
  disco_printf(kMaskFound, Wwn(), "Discovered Mardel port: Model ID = %x", *id);
}

void AttributeReader::TakeZeroModelId() {
  if (IsCimHost(Proxy()) != 0) {
    m_Status = kModelIdZero;
    m_Info.modelId = 0;
    LogMissing("Model ID = 0");
    return;
  }
  m_Info.modelId |= kModelIdUnknown;
  disco_printf(kMaskFound, Wwn(), "Model Id not obtained from CimServer = %x", m_Info.modelId);
}

void AttributeReader::ReadSortaneIds() {
  if (m_Status != RM_STATUS_OK) return;
  const auto vendor = m_Buffer.Number(RM_ATTR_SUB_VENDOR_ID, &m_Status);
  if (!vendor || !IsOneOf(SortaneSubVendorIDs, *vendor)) return;
  const auto device = m_Buffer.Number(RM_ATTR_SUB_DEVICE_ID, &m_Status);
  if (!device || !IsOneOf(SortaneSubDeviceIDs, *device)) return;
  m_Info.specialFeatures |= RM_FEATURE_SORTANE;
  disco_printf(kMaskFound, Wwn(), "GetRemotePortAttr: Got Sortane port subvenid=0x%x subdevid=0x%x", *vendor,
               *device);
}

void AttributeReader::ReadSerialNumber() {
  if (m_Status != RM_STATUS_OK) return;
  const char* number = m_Buffer.Text(RM_ATTR_SERIAL_NUMBER, &m_Status);
  if (number == nullptr) {
    LogMissing("Could not get HBA serial number");
    m_Status = kNoSerialNumber;
    return;
  }
  CopyText(m_Info.serialNumber, sizeof(m_Info.serialNumber), number);
}

// Where the port sits. Read whatever came before, and forgets what went wrong there.
void AttributeReader::ReadPlace() {
  if (const auto number = m_Buffer.Number(RM_ATTR_PCI_FUNCTION, &m_Status)) {
    m_Info.functionNumber = static_cast<std::uint16_t>(*number);
    disco_printf(kLogRemoteAttr, Wwn(), "GetRemotePortAttr: Function Number=%d", m_Info.functionNumber);
  }
  if (const auto number = m_Buffer.Number(RM_ATTR_PCI_BUS, &m_Status)) {
    m_Info.busNumber = static_cast<std::uint16_t>(*number);
    disco_printf(kLogRemoteAttr, Wwn(), "GetRemotePortAttr: Bus Number=%d", m_Info.busNumber);
  }
  if (const char* id = m_Buffer.Text(RM_ATTR_SUB_ADAPTER_ID, &m_Status)) {
    CopyText(m_Info.subAdapterId, sizeof(m_Info.subAdapterId), id);
    m_Info.specialFeatures |= RM_FEATURE_SUB_ADAPTER;
    disco_printf(kLogRemoteAttr, Wwn(), "GetRemotePortAttr: subadapterid=%.32s", m_Info.subAdapterId);
  }
}

void AttributeReader::ReadPortType() {
  m_PortType = m_Buffer.Number(RM_ATTR_PORT_TYPE, &m_Status);
  if (m_PortType && *m_PortType < std::size(kPortClasses)) m_Class = kPortClasses[*m_PortType];
  m_Info.specialFeatures |= m_Class.features;
  if (m_Class.text != nullptr) disco_printf(kLogRemoteAttr, Wwn(), "%s", m_Class.text);
  if (m_Buffer.Number(RM_ATTR_585, &m_Status) == kFeature585Set)
    m_Info.specialFeatures |= RM_FEATURE_ATTRIBUTE_585;
  m_Status = RM_STATUS_OK;
}

void AttributeReader::ReadFCName(RM_AttributeId id, std::uint8_t* name, const char* whenMissing) {
  if (const unsigned char* value = m_Buffer.Name(id, &m_Status)) {
    std::memcpy(name, value, sizeof(HBA_NAME));
  } else {
    LogMissing(whenMissing);
  }
}

void AttributeReader::ReadFCModelName() {
  int scratch = RM_STATUS_OK;
  const char* name = m_Buffer.Text(RM_ATTR_MODEL_NAME, &scratch);
  if (name == nullptr) name = m_Buffer.Text(RM_ATTR_MODEL, &scratch);
  char looked[2 * sizeof(m_Info.model)] = {};
  if (name == nullptr) {
    RM_GetAdapterType(m_Info.modelId & ~(kModelFlagRefreshed | RM_MODEL_TARGET_MODE), looked);
    name = looked;
  }
  CopyText(m_Info.model, sizeof(m_Info.model), name);
}

void AttributeReader::ReadFCPort() {
  ReadFCName(RM_ATTR_FABRIC_NAME, m_Info.fabricName, "Could not get fabric name attribute value");
  ReadFCName(RM_ATTR_NODE_NAME, m_Info.nodeWwn, "Could not get node WWN attribute value");
  if (m_PortType == kFCoEPortType) {
    if (const auto number = m_Buffer.Number(RM_ATTR_PHYSICAL_PORT, &m_Status)) {
      m_Info.physicalPort = static_cast<std::uint16_t>(*number);
      LogCNAPort();
    } else {
      LogMissing("Could not get Physical Port Number attribute value");
    }
  }
  if (const char* number = m_Buffer.Text(RM_ATTR_VPD_PORT_NUMBER, &m_Status)) {
    CopyText(m_Info.vpdPortNumber, sizeof(m_Info.vpdPortNumber), number);
  } else {
    LogMissing("Could not get HBA port number attribute value");
  }
  int scratch = RM_STATUS_OK;
  if (m_Buffer.Number(RM_ATTR_TARGET_MODE, &scratch).value_or(0) != 0) {
    m_Info.modelId |= RM_MODEL_TARGET_MODE;
    disco_printf(kMaskFound, Wwn(), "Discovered target mode port");
  }
  ReadFCModelName();
  m_Status = RM_STATUS_OK;
}

void AttributeReader::ReadISCSINames() {
  InitiatorNames names;
  m_Status = names.Read(Proxy(), Wwn());
  if (m_Status != RM_STATUS_OK) {
    disco_printf(kMaskError, Wwn(), "GetRemotePortAttr: Could not get iSCSI names (error %d)", m_Status);
    m_Status = kNoISCSINames;
    return;
  }
  names.StoreIn(m_Entry.GetISCSINames());
  disco_printf(kLogRemoteAttr, Wwn(), "GetRemotePortAttr: iSCSI initiator name='%s'\n",
               names.GetInitiatorName());
}

void AttributeReader::ReadOtherPort() {
  LogCNAPort();
  if (const unsigned char* value = m_Buffer.Name(RM_ATTR_FUNCTION_NODE_NAME, &m_Status)) {
    std::memcpy(m_Info.nodeWwn, value, sizeof(m_Info.nodeWwn));
  }
  if (const char* name = m_Buffer.Text(RM_ATTR_MODEL, &m_Status)) {
    CopyText(m_Info.model, sizeof(m_Info.model) - 1, name);
  }
  if (const auto number = m_Buffer.Number(RM_ATTR_PHYSICAL_PORT, &m_Status)) {
    m_Info.physicalPort = static_cast<std::uint16_t>(*number);
    LogCNAPort();
  }
  if ((m_Class.features & RM_FEATURE_ISCSI) != 0) ReadISCSINames();
}

std::uint32_t AttributeReader::LinkByte(RM_AttributeId id) {
  const unsigned char* value = m_Buffer.Bytes(id, &m_Status);
  return value == nullptr ? 0U : *value;
}

void AttributeReader::ReadLinkStatus() {
  if (m_OverTemperature) {
    m_Entry.SetLinkStatus(kLinkOverTemperature);
    return;
  }
  std::uint32_t link = 0;
  if (!m_Legacy) {
    link = LinkByte(RM_ATTR_PHYSICAL_LINK);
    if ((m_Info.specialFeatures & RM_FEATURE_CONVERGED) != 0) link |= LinkByte(RM_ATTR_FUNCTION_LINK) << 8;
  }
  m_Entry.SetLinkStatus(link);
}

void AttributeReader::ReadFeature587() {
  int scratch = RM_STATUS_OK;
  if (m_Buffer.Number(RM_ATTR_587, &scratch).value_or(0) != 0)
    m_Info.specialFeatures |= RM_FEATURE_ATTRIBUTE_587;
}

int AttributeReader::Read() {
  Clear();
  Fetch();
  if (IsWorkerEnabled(m_Thread) && m_Status == RM_STATUS_OK) {
    ReadHostName();
    ReadManufacturer();
    ReadModelId();
    ReadSortaneIds();
    ReadSerialNumber();
    ReadPlace();
    ReadPortType();
    if (m_Class.isFC) {
      ReadFCPort();
    } else {
      ReadOtherPort();
    }
    ReadLinkStatus();
    ReadFeature587();
    m_Entry.SetDetails(ReadPortDetails(m_Buffer));
    m_Entry.SetSpecialFeatures(m_Info.specialFeatures);
  }
  return m_OverTemperature ? RM_STATUS_OVER_TEMPERATURE : m_Status;
}

}  // namespace

int GetRemotePortAttr(CHbaEntry* entry, CZylTpThread* thread) {
  return AttributeReader(entry, thread).Read();
}

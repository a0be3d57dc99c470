#include "discovery/PortRecords.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "rmapi/rmapi.h"

namespace {

constexpr std::uint16_t kNoNumber = 0xFFFF;
constexpr unsigned int kNumberedKinds = RM_FEATURE_ISCSI | RM_FEATURE_NIC | RM_FEATURE_FCOE;
constexpr std::size_t kSystemNameLength = 31;

bool IsLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Read as hexadecimal as soon as there is a letter in it, else as decimal; 0 when it cannot be read.
std::uint16_t SubAdapterNumber(std::string_view text) {
  char terminated[sizeof(HBA_info_v4::subAdapterId) + 1] = {};
  text.copy(terminated, sizeof terminated - 1);
  const bool hexadecimal = std::any_of(text.begin(), text.end(), IsLetter);
  return static_cast<std::uint16_t>(std::strtoul(terminated, nullptr, hexadecimal ? 16 : 10));
}

// The first character's distance from '0', whatever character it is.
std::uint16_t FirstDigit(const char* text) {
  return text[0] == '\0' ? std::uint16_t{0} : static_cast<std::uint16_t>(text[0] - '0');
}

hba_port_position PositionOf(const HBA_info_v4& info, unsigned int features) {
  hba_port_position position{};
  const bool numberedKind = (features & kNumberedKinds) != 0;
  const std::string_view subAdapter(info.subAdapterId, strnlen(info.subAdapterId, sizeof info.subAdapterId));
  if (!numberedKind && subAdapter.empty()) {
    std::memcpy(position.vpdPortNumber, info.vpdPortNumber, sizeof position.vpdPortNumber);
    return position;
  }
  position.numbers.portNumber =
      numberedKind || subAdapter.empty() ? info.physicalPort : FirstDigit(info.vpdPortNumber);
  position.numbers.functionNumber = info.functionNumber;
  position.numbers.busNumber = info.busNumber;
  position.numbers.subAdapter = subAdapter.empty() ? kNoNumber : SubAdapterNumber(subAdapter);
  return position;
}

void FillFoundOn(const CHbaEntry& entry, hba_discovery_info* record) {
  const auto slots = static_cast<unsigned int>(std::size(record->foundOn));
  const unsigned int count = std::min(entry.GetFoundOnPortCount(), slots);
  for (unsigned int i = 0; i < count; ++i) {
    const unsigned char* name = entry.GetFoundOnPort(i);
    if (name == nullptr) continue;
    std::memcpy(record->foundOn[record->foundOnCount++].wwn, name, sizeof record->foundOn[0].wwn);
  }
}

template <std::size_t Size>
void CopyText(char (&field)[Size], std::string_view text) {
  text.copy(field, Size - 1);
}

template <std::size_t Size>
void CopyName(const char* name, char (&field)[Size]) {
  if (name != nullptr) CopyText(field, name);
}

// As many whole words as fit.
template <std::size_t Size>
void CopyWords(char (&field)[Size], std::string_view words) {
  if (words.size() >= Size) {
    const std::size_t end = words.rfind(' ', Size - 1);
    words = words.substr(0, end == std::string_view::npos ? 0 : end);
  }
  CopyText(field, words);
}

constexpr std::uint64_t kMegabit = 1000000;

void FillSpeeds(const PortDetails& details, hba_discovery_info_V4* record) {
  if (details.linkSpeed) record->linkSpeed = *details.linkSpeed * kMegabit;
  if (details.supportedSpeeds.empty()) return;
  record->supportedSpeeds[0] = 0;
  const std::size_t count = std::min(details.supportedSpeeds.size(), std::size(record->supportedSpeeds));
  for (std::size_t i = 0; i < count; ++i) record->supportedSpeeds[i] = details.supportedSpeeds[i] * kMegabit;
}

}  // namespace

int StatusOf(const AnswerRecord& asked) noexcept {
  return asked.Fails() ? asked.status : HBADISC_STATUS_WAITING;
}

void FillRecord(const CHbaEntry& entry, hba_discovery_info* record) noexcept {
  *record = {};
  record->isLocal = entry.IsLocalPort() != 0 ? 1 : 0;
  std::memcpy(&record->port, entry.GetHbaInfo(), sizeof record->port);
  if (record->isLocal == 0) FillFoundOn(entry, record);
  record->targetCount = entry.GetTargetCount();
  record->targetBindType = entry.GetTargetBindType();
  std::memcpy(record->proxyAddress, entry.GetProxyAddress(), sizeof record->proxyAddress);
  record->proxyOnly = entry.ProxyOnly() != 0 ? 1 : 0;
  record->linkStatus = entry.GetLinkStatus();
}

void FillRecord(const CHbaEntry& entry, hba_discovery_info_V2* record) noexcept {
  *record = {};
  FillRecord(entry, &record->base);
  const HBA_info_v4& info = *entry.GetHbaInfoV4();
  record->specialFeatures = entry.GetSpecialFeatures();
  record->position = PositionOf(info, record->specialFeatures);
  std::memcpy(record->serialNumber, info.serialNumber, sizeof record->serialNumber);
  record->vportCount = entry.GetVPortCount();
}

void FillRecord(const CHbaEntry& entry, hba_discovery_info_V3* record) noexcept {
  *record = {};
  FillRecord(entry, &record->base);
  if (const _RM_IP_INFO* address = entry.GetProxyIpInfo(); address != nullptr) {
    record->hasProxyIpInfo = 1;
    record->proxyIpInfo = *address;
  }
  record->vfCount = entry.GetVFCount();
}

void FillRecord(const CHbaEntry& entry, hba_discovery_info_V4* record) noexcept {
  std::memset(record, 0, sizeof *record);  // its padding, too: records are compared by their bytes
  FillRecord(entry, &record->base);
  if (const auto& asked = entry.GetUnanswered(); asked) {
    record->unanswered = 1;
    record->status = StatusOf(*asked);
    record->unansweredSince = asked->since != 0 ? asked->since : asked->asking;
  }
  record->lunCount = HBADISC_UNKNOWN_32;
  record->blockDeviceCount = HBADISC_UNKNOWN_32;
  record->linkSpeed = HBADISC_UNKNOWN_64;
  record->supportedSpeeds[0] = HBADISC_UNKNOWN_64;
  if (entry.GetDetails() == nullptr) return;
  const PortDetails& details = *entry.GetDetails();
  record->lunCount = details.lunCount.value_or(HBADISC_UNKNOWN_32);
  record->blockDeviceCount = details.blockDeviceCount.value_or(HBADISC_UNKNOWN_32);
  FillSpeeds(details, record);
  CopyText(record->firmwareVersion, details.firmwareVersion);
  CopyText(record->driverName, details.driverName);
  CopyText(record->driverVersion, details.driverVersion);
  CopyText(record->bootVersion, details.bootVersion);
  CopyText(record->pciAddress, details.pciAddress);
  CopyText(record->partNumber, details.partNumber);
  CopyWords(record->blockDevices, details.blockDevices);
}

void FillRecord(const CDiscISCSINames& names, discovery_iscsi_names* record) noexcept {
  *record = {};
  CopyName(names.GetInitiatorName(), record->initiatorName);
  CopyName(names.GetDefaultName(), record->defaultName);
  CopyName(names.GetAlias(), record->alias);
}

void FillRecord(CSystemEntry& system, system_discovery_info* record) {
  record->isLocalSystem = system.IsLocalSystem() != 0 ? 1 : 0;
  const char* name = system.GetSystemName();
  std::strncpy(record->systemName, name == nullptr ? "" : name, kSystemNameLength);
  record->portCount = system.GetHbaCount();
  // The ports follow the record, packed: as bytes, since nothing promises the caller's alignment.
  char* place = reinterpret_cast<char*>(record) + sizeof *record;
  for (unsigned int i = 0; i < record->portCount; ++i) {
    hba_discovery_info port;
    FillRecord(*system.GetHbaEntry(i), &port);
    std::memcpy(place + i * sizeof port, &port, sizeof port);
  }
}

#include "inband/PortDetailReader.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "rmapi/PortDetails.h"

// Of the open provider; null in others.
extern "C" int RMOpen_HasPortDetails(void) __attribute__((weak));

namespace {

constexpr std::size_t kMostSpeeds = 8;

std::optional<std::uint32_t> Number(const AttributeBuffer& attributes, PortDetailId id) {
  int status = RM_STATUS_OK;
  return attributes.Number(id, &status);
}

std::string Text(const AttributeBuffer& attributes, unsigned int id) {
  int status = RM_STATUS_OK;
  const char* text = attributes.Text(id, &status);
  return text == nullptr ? std::string() : std::string(text);
}

// Empty unless all of it is numbers.
std::vector<std::uint32_t> Numbers(const std::string& text) {
  std::istringstream words(text);
  std::vector<std::uint32_t> numbers;
  for (std::uint32_t number = 0; words >> number;) numbers.push_back(number);
  if (!words.eof()) return {};
  std::sort(numbers.begin(), numbers.end());
  numbers.resize(std::min(numbers.size(), kMostSpeeds));
  return numbers;
}

}  // namespace

std::shared_ptr<const PortDetails> ReadPortDetails(const AttributeBuffer& attributes) {
  if (Text(attributes, kPortDetailsMark) != kPortDetailsText) return nullptr;
  auto details = std::make_shared<PortDetails>();
  details->linkSpeed = Number(attributes, kDetailLinkSpeed);
  details->supportedSpeeds = Numbers(Text(attributes, kDetailSupportedSpeeds));
  details->firmwareVersion = Text(attributes, kDetailFirmwareVersion);
  details->driverName = Text(attributes, kDetailDriverName);
  details->driverVersion = Text(attributes, kDetailDriverVersion);
  details->bootVersion = Text(attributes, kDetailBootVersion);
  details->pciAddress = Text(attributes, kDetailPciAddress);
  details->partNumber = Text(attributes, kDetailPartNumber);
  details->blockDevices = Text(attributes, kDetailBlockDevices);
  details->blockDeviceCount = Number(attributes, kDetailBlockDeviceCount);
  details->lunCount = Number(attributes, kDetailLunCount);
  return details;
}

std::shared_ptr<const PortDetails> ReadLocalPortDetails(const unsigned char* wwn) {
  if (RMOpen_HasPortDetails == nullptr || RMOpen_HasPortDetails() == 0) return nullptr;
  AttributeBuffer attributes;
  const int status = attributes.Fill(RM_GetDiscoveryAttributes, nullptr, wwn);
  if (status != RM_STATUS_OK && status != RM_STATUS_OVER_TEMPERATURE) return nullptr;
  return ReadPortDetails(attributes);
}

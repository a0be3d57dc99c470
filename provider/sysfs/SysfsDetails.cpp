#include "provider/sysfs/SysfsDetails.h"

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <set>
#include <string_view>

#include "rmapi/PortDetails.h"

namespace provider {

namespace {

constexpr std::uint32_t kMbitPerGbit = 1000;
constexpr std::size_t kLongestText = 255;

void Put(Attributes& attributes, PortDetailId id, const std::string& text) {
  if (!text.empty()) attributes[id] = text.substr(0, kLongestText);
}

// "16 Gbit"; nothing for "Unknown" and "Not Negotiated".
std::optional<std::uint32_t> ParseSpeed(std::string_view text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{}) return std::nullopt;
  if (std::string_view(end, static_cast<std::size_t>(text.data() + text.size() - end)) != " Gbit")
    return std::nullopt;
  if (number > UINT32_MAX / kMbitPerGbit) return std::nullopt;
  return number * kMbitPerGbit;
}

// "4 Gbit, 8 Gbit, 16 Gbit" as "4000 8000 16000".
std::string SpeedList(const std::string& text) {
  std::set<std::uint32_t> speeds;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find(',', at), text.size());
    const std::size_t begin = std::min(text.find_first_not_of(' ', at), end);
    if (const auto speed = ParseSpeed(std::string_view(text).substr(begin, end - begin))) speeds.insert(*speed);
    at = end + 1;
  }
  std::string list;
  for (const std::uint32_t speed : speeds) list += (list.empty() ? "" : " ") + std::to_string(speed);
  return list;
}

// Drivers name the same thing differently; the first that is there counts.
std::string FirstText(const SysfsDirectory& directory, std::initializer_list<const char*> names) {
  for (const char* const name : names) {
    std::string text = directory.Text(name);
    if (!text.empty()) return text;
  }
  return {};
}

void PutStorage(const FcStorage& storage, Attributes& attributes) {
  attributes[kDetailLunCount] = storage.lunCount;
  attributes[kDetailBlockDeviceCount] = static_cast<std::uint32_t>(storage.blockDevices.size());
  std::string names;
  for (const std::string& name : storage.blockDevices) {
    if (names.size() + name.size() >= kLongestText) break;
    names += (names.empty() ? "" : " ") + name;
  }
  Put(attributes, kDetailBlockDevices, names);
}

}  // namespace

void AddSysfsDetails(const SysfsDirectory& root, const FcPort& port, const FcPortFacts& facts,
                     const FcStorage& storage, Attributes& attributes) {
  attributes[kPortDetailsMark] = std::string(kPortDetailsText);
  const auto speed = ParseSpeed(port.directory.Text("speed"));
  if (!facts.isOnline) {
    attributes[kDetailLinkSpeed] = std::uint32_t{0};
  } else if (speed) {
    attributes[kDetailLinkSpeed] = *speed;
  }
  Put(attributes, kDetailSupportedSpeeds, SpeedList(port.directory.Text("supported_speeds")));
  const SysfsDirectory host = port.ScsiHost().Open("scsi_host/" + ScsiHostName(port.number));
  Put(attributes, kDetailFirmwareVersion, FirstText(host, {"fwrev", "fw_version", "firmware_version"}));
  const std::string driver = facts.pci && !facts.pci->driver.empty() ? facts.pci->driver : facts.driver;
  Put(attributes, kDetailDriverName, driver);
  std::string version = FirstText(host, {"lpfc_drvr_version", "driver_version"});
  if (version.empty() && !driver.empty()) version = root.Text("module/" + driver + "/version");
  Put(attributes, kDetailDriverVersion, version);
  Put(attributes, kDetailBootVersion, FirstText(host, {"option_rom_version", "optrom_bios_version"}));
  if (facts.pci) Put(attributes, kDetailPciAddress, facts.pci->name);
  PutStorage(storage, attributes);
}

}  // namespace provider

// How the kernel names its FC devices, and how it writes their values.
#ifndef PROVIDER_SYSFS_SYSFSNAMES_H_
#define PROVIDER_SYSFS_SYSFSNAMES_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "provider/host/Host.h"

namespace provider {

// "hostN"
std::string ScsiHostName(unsigned int number);
std::optional<unsigned int> ParseScsiHostName(std::string_view name);

// "rport-H:C-N" and "vport-H:C-N", without the host.
struct FcChild {
  unsigned int channel = 0;
  unsigned int number = 0;

  bool operator==(const FcChild&) const = default;
  bool operator<(const FcChild& other) const {
    return std::tie(channel, number) < std::tie(other.channel, other.number);
  }
};

std::string FcChildName(std::string_view kind, unsigned int host, const FcChild& child);
// Nothing when the name is of another kind or of another host's child.
std::optional<FcChild> ParseFcChildName(std::string_view name, std::string_view kind, unsigned int host);
bool IsVirtualPortName(std::string_view name);

// The LUN of "H:C:I:L"; nothing when the name is not the given "H:C:I"'s.
std::optional<std::uint64_t> ParseScsiDeviceName(std::string_view name, std::string_view target);

// "0000:01:00.1"
struct PciAddress {
  std::uint16_t bus = 0;
  std::uint16_t function = 0;
};
std::optional<PciAddress> ParsePciAddress(std::string_view name);

// A world-wide name, which the kernel writes as a number; nothing for 0 and for all ones, its words for "none".
std::optional<Wwn> ParseFcName(std::string_view text);

// "0x010200"; nothing when it is no number or too big.
std::optional<std::uint32_t> ParseHex(std::string_view text);
// "12"; nothing for "-1".
std::optional<std::uint32_t> ParseDecimal(std::string_view text);

// The names of the directories on the way to a device, from what a link to it says.
//
// Thread safety: immutable. Ownership: owns the text.
class DevicePath {
 public:
  // A text that goes up again after it went down leaves the path empty: the kernel writes no such link.
  explicit DevicePath(const std::string& linkText);

  const std::vector<std::string>& Names() const { return m_Names; }
  // The way from the device itself to the directory of that index.
  std::string WayTo(std::size_t index) const;

 private:
  std::vector<std::string> m_Names;
};

}  // namespace provider

#endif  // PROVIDER_SYSFS_SYSFSNAMES_H_

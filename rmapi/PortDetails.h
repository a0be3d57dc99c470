// The attributes of a port beyond those of rmapi.h, as the open provider has them.
//
// Any provider may have attributes under numbers of its own, so no number alone says what a value is. A buffer
// that has the text kPortDetailsText under the number kPortDetailsMark says that it means the numbers below as
// they stand here; in a buffer without it they are not looked at. All of them begin with 0x4458 ("DX"); a new
// one takes the next number and is never given another meaning. What a port does not tell is left out.
//
// Attributes pass through agents by number, so remote ports tell the same as local ones.
#ifndef RMAPI_PORTDETAILS_H_
#define RMAPI_PORTDETAILS_H_

#include <string_view>

inline constexpr unsigned int kPortDetailsMark = 0x44580000;
inline constexpr char kPortDetailsText[] = "draxonite port details 1";

enum PortDetailId : unsigned int {
  kDetailLinkSpeed = 0x44580001,        // Mbit/s, 0 without a link
  kDetailSupportedSpeeds = 0x44580002,  // Mbit/s, ascending, with blanks between: "8000 16000 32000"
  kDetailFirmwareVersion = 0x44580003,
  kDetailDriverName = 0x44580004,
  kDetailDriverVersion = 0x44580005,
  kDetailBootVersion = 0x44580006,  // of the option ROM
  kDetailPciAddress = 0x44580007,   // "0000:3b:00.1"
  kDetailPartNumber = 0x44580008,
  kDetailLunCount = 0x44580009,          // behind all targets
  kDetailBlockDeviceCount = 0x4458000A,  // of these
  kDetailBlockDevices = 0x4458000B,      // names with blanks between: "sda sdb"
};

// Every detail, with the key that fabric files have for it.
struct PortDetailKey {
  PortDetailId id;
  std::string_view key;
  bool isNumber;  // else it is a text
};
inline constexpr PortDetailKey kPortDetailKeys[] = {
    {kDetailLinkSpeed, "link_speed", true},
    {kDetailSupportedSpeeds, "supported_speeds", false},
    {kDetailFirmwareVersion, "firmware_version", false},
    {kDetailDriverName, "driver_name", false},
    {kDetailDriverVersion, "driver_version", false},
    {kDetailBootVersion, "boot_version", false},
    {kDetailPciAddress, "pci_address", false},
    {kDetailPartNumber, "part_number", false},
    {kDetailLunCount, "lun_count", true},
    {kDetailBlockDeviceCount, "block_device_count", true},
    {kDetailBlockDevices, "block_devices", false},
};

#endif  // RMAPI_PORTDETAILS_H_

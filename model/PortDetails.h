// What is known of a port beyond its record: speeds, versions, where it sits, what it leads to.
//
// Thread safety: plain values. Ownership: entries share them; they are never changed once an entry has them.
#ifndef MODEL_PORTDETAILS_H_
#define MODEL_PORTDETAILS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct PortDetails {
  std::optional<std::uint32_t> linkSpeed;      // Mbit/s; 0 without a link
  std::vector<std::uint32_t> supportedSpeeds;  // Mbit/s, ascending; empty: unknown
  std::string firmwareVersion;                 // texts are empty when unknown
  std::string driverName;
  std::string driverVersion;
  std::string bootVersion;
  std::string pciAddress;
  std::string partNumber;
  std::string blockDevices;  // names with blanks between
  std::optional<std::uint32_t> blockDeviceCount;
  std::optional<std::uint32_t> lunCount;
};

#endif  // MODEL_PORTDETAILS_H_

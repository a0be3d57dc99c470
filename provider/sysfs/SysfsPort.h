// What the kernel knows of one FC port of this machine and of the hardware it sits on.
#ifndef PROVIDER_SYSFS_SYSFSPORT_H_
#define PROVIDER_SYSFS_SYSFSPORT_H_

#include <optional>
#include <string>
#include <vector>

#include "provider/sysfs/SysfsDirectory.h"
#include "provider/sysfs/SysfsNames.h"

namespace provider {

// The numbers of the SCSI hosts that are FC ports, virtual ports' own hosts left out, ascending.
std::vector<unsigned int> FcPortNumbers(const SysfsDirectory& root);

// What each FC port of the tree calls itself, virtual ports' own SCSI hosts among them.
struct FcPortName {
  unsigned int number = 0;
  Wwn name{};
  bool isVirtual = false;
  int status = RM_STATUS_OK;  // RM_STATUS_LOCKED: it has a name that cannot be read; else it has none
};
std::vector<FcPortName> ReadFcPortNames(const SysfsDirectory& root);

// One FC port, open: class/fc_host/hostN.
//
// Thread safety: as its directory. Ownership: owns its directory.
struct FcPort {
  FcPort(const SysfsDirectory& root, unsigned int hostNumber);

  // RM_STATUS_OK when the port has a name, which is then in portName; RM_STATUS_NOT_FOUND when there is no such
  // port, it has no name or it is a virtual port's; RM_STATUS_LOCKED when it cannot be read.
  int ReadName();
  // False when the port has gone, or changed its name, since ReadName.
  bool IsStillThere() const;
  // The SCSI host, above what the port sees.
  SysfsDirectory ScsiHost() const { return directory.Open("device"); }

  unsigned int number;
  DevicePath path;
  SysfsDirectory directory;
  Wwn portName{};
};

// A port that was looked for, or the status that says why there is none.
struct FoundFcPort {
  int status = RM_STATUS_NOT_FOUND;
  std::optional<FcPort> port;
};

struct PciDevice {
  PciAddress address;
  std::string name;  // all of the address: "0000:3b:00.1"
  // 0 when the kernel does not tell.
  std::uint32_t vendor = 0;
  std::uint32_t device = 0;
  std::uint32_t subVendor = 0;
  std::uint32_t subDevice = 0;
  std::string driver;
};

// The network device under an FCoE port.
struct NetDevice {
  std::string name;
  std::string macAddress;
  std::uint32_t port = 0;
  bool hasCarrier = false;
};

// Texts are empty when the driver leaves them so.
struct FcPortFacts {
  Wwn portName{};
  Wwn nodeName{};
  Wwn fabricName{};
  bool isOnline = false;
  bool isFcoe = false;
  bool isTargetMode = false;
  std::string manufacturer;
  std::string model;
  std::string modelDescription;
  std::string serialNumber;
  std::string symbolicName;
  std::string driver;
  std::optional<PciDevice> pci;
  std::optional<NetDevice> net;
};

FcPortFacts ReadFcPortFacts(const FcPort& port);

}  // namespace provider

#endif  // PROVIDER_SYSFS_SYSFSPORT_H_

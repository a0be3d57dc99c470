// What an FC port sees: targets with their LUNs, and the virtual ports made on it.
#ifndef PROVIDER_SYSFS_SYSFSTARGETS_H_
#define PROVIDER_SYSFS_SYSFSTARGETS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "provider/sysfs/SysfsDirectory.h"
#include "provider/sysfs/SysfsNames.h"

namespace provider {

// How a port's target ids are bound to targets, in the boundary's numbers; RM_STATUS_NOT_SUPPORTED when the
// kernel does not tell. `fcHost` is class/fc_host/hostN.
Answer<std::uint32_t> ReadBindType(const SysfsDirectory& fcHost);

// What lies behind all targets of a port, its virtual ports' left out.
struct FcStorage {
  std::uint32_t lunCount = 0;
  std::vector<std::string> blockDevices;  // names as "sda", ascending
};

struct FcTargets {
  // One record a LUN, one for a target without LUNs, ordered by bus, target id and LUN.
  std::vector<RM_NodeInfoEntry> nodes;
  FcStorage storage;
};

// `scsiHost` is the SCSI host's own directory.
FcTargets ReadFcTargets(const SysfsDirectory& scsiHost, unsigned int host, std::uint32_t bindType);

struct SysfsVirtualPort {
  Wwn portName{};
  Wwn nodeName{};
  FcChild child;
};

RM_VPortEntry MakeVirtualPort(const SysfsVirtualPort& port);

// In the kernel's order; a name is listed once.
std::vector<SysfsVirtualPort> ReadVirtualPorts(const SysfsDirectory& scsiHost, unsigned int host);

// What the virtual port itself sees and can use: a record of a virtual port's target has no state.
std::vector<RM_VPortTargetEntry> ReadVirtualPortTargets(const SysfsDirectory& scsiHost, unsigned int host,
                                                        const SysfsVirtualPort& port);

}  // namespace provider

#endif  // PROVIDER_SYSFS_SYSFSTARGETS_H_

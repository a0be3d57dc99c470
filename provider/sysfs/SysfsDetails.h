// What the kernel knows of an FC port beyond its record: speeds, versions, where it sits, what it leads to.
#ifndef PROVIDER_SYSFS_SYSFSDETAILS_H_
#define PROVIDER_SYSFS_SYSFSDETAILS_H_

#include "provider/sysfs/SysfsPort.h"
#include "provider/sysfs/SysfsTargets.h"

namespace provider {

// Adds what is known. `root` is the sysfs root, for the driver's module.
void AddSysfsDetails(const SysfsDirectory& root, const FcPort& port, const FcPortFacts& facts,
                     const FcStorage& storage, Attributes& attributes);

}  // namespace provider

#endif  // PROVIDER_SYSFS_SYSFSDETAILS_H_

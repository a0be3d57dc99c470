// The FC ports of this machine as the Linux kernel shows them in sysfs. docs/sysfs-host.md has the whole
// mapping.
#ifndef PROVIDER_SYSFS_SYSFSHOST_H_
#define PROVIDER_SYSFS_SYSFSHOST_H_

#include <chrono>
#include <memory>
#include <string>

#include "provider/host/Host.h"

namespace provider {

// No call of a sysfs host takes longer; one that would answers RM_STATUS_LOCKED.
inline constexpr std::chrono::seconds kSysfsCallLimit{5};

// `root` is where sysfs lies ("/sys"), or a copy of it. An empty host name stands for this machine's own, asked
// for at each call. Nothing is read before the first call, and only the names of ports are remembered, for a
// look.
std::unique_ptr<Host> MakeSysfsHost(const std::string& root, const std::string& hostName = {});

}  // namespace provider

#endif  // PROVIDER_SYSFS_SYSFSHOST_H_

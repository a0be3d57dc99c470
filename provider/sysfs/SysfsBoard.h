// From what the kernel knows of a port to its board record and its attributes, the two saying the same.
#ifndef PROVIDER_SYSFS_SYSFSBOARD_H_
#define PROVIDER_SYSFS_SYSFSBOARD_H_

#include "provider/sysfs/SysfsPort.h"

namespace provider {

Board MakeSysfsBoard(const FcPortFacts& facts, const std::string& hostName);

// Whoever fills a record from these gets MakeSysfsBoard's, byte for byte.
Attributes MakeSysfsAttributes(const FcPortFacts& facts, const std::string& hostName);
// The link alone.
Attributes MakeSysfsPortAttributes(const FcPortFacts& facts);
Attributes MakeSysfsServerAttributes(const std::string& hostName);

}  // namespace provider

#endif  // PROVIDER_SYSFS_SYSFSBOARD_H_

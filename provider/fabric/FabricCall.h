// The boundary's calls as a fabric file names them in its faults.
#ifndef PROVIDER_FABRIC_FABRICCALL_H_
#define PROVIDER_FABRIC_FABRICCALL_H_

#include <cstddef>
#include <string_view>
#include <vector>

namespace provider {

enum class FabricCall {
  kBoardInstances,
  kReadBoard,
  kPortNames,
  kHasPort,
  kIsMakersPort,
  kDiscoveryAttributes,
  kHbaAttributes,
  kPortAttributes,
  kServerAttributes,
  kDriverType,
  kBindType,
  kInitiatorProperties,
  kNodes,
  kVirtualPorts,
  kVirtualPortTargets,
  kIscsiTargets,
  kVirtualFunctions,
  kSecureManagement,
};

// What a call can be scripted to do.
struct FabricCallTraits {
  std::string_view name;  // of the boundary's function
  bool hasPort;           // it is asked of a port
  bool hasStatus;         // it answers a status
  bool isList;            // it answers a count and records
};

const FabricCallTraits& TraitsOf(FabricCall call);

// In the order of FabricCall.
std::vector<std::string_view> FabricCallNames();

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICCALL_H_

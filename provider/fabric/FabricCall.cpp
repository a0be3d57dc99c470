#include "provider/fabric/FabricCall.h"

namespace provider {

namespace {

constexpr FabricCallTraits kTraits[] = {
    {"RM_GetAllLocalHBAInstances", false, true, true},
    {"RM_GetLocalHBAInfoV4", true, true, false},
    {"RM_GetAllNodeAddr", false, true, true},
    {"RM_IsLocalHBA", true, false, false},
    {"RM_IsVarnixPort", true, false, false},
    {"RM_GetDiscoveryAttributes", true, true, false},
    {"RM_GetHBAAttributes", true, true, false},
    {"RM_GetPortAttributes", true, true, false},
    {"RM_GetServerAttributes", true, true, false},
    {"RM_GetDriverType", true, true, false},
    {"RM_GetBindingSupport", true, true, false},
    {"RM_iSCSI_GetInitiatorProperties", true, true, false},
    {"RM_GetAllNodeInfo", true, true, true},
    {"RM_VPList", true, true, true},
    {"RM_VPListTargets", true, true, true},
    {"RM_iSCSI_GetTargets", true, true, true},
    {"RM_GetVirtualFunctionList", true, true, true},
    {"RM_GetSecureMgmtConfig", false, true, false},
};

}  // namespace

const FabricCallTraits& TraitsOf(FabricCall call) {
  return kTraits[static_cast<std::size_t>(call)];
}

std::vector<std::string_view> FabricCallNames() {
  std::vector<std::string_view> names;
  for (const FabricCallTraits& traits : kTraits) names.push_back(traits.name);
  return names;
}

}  // namespace provider

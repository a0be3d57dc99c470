// From a fabric's model to the boundary's records.
#ifndef PROVIDER_FABRIC_FABRICRECORDS_H_
#define PROVIDER_FABRIC_FABRICRECORDS_H_

#include "provider/fabric/FabricModel.h"

namespace provider {

Board MakeFabricBoard(const std::string& hostName, const FabricBoard& board, const FabricBoardState& state);

// Everything that is known of a port; the legacy set lacks the link status.
Attributes MakeFabricAttributes(const std::string& hostName, const FabricBoard& board,
                                const FabricBoardState& state);
Attributes MakeFabricLegacyAttributes(const std::string& hostName, const FabricBoard& board);
Attributes MakeFabricPortAttributes(const FabricBoard& board, const FabricBoardState& state);
Attributes MakeFabricServerAttributes(const std::string& hostName);

RM_NodeInfoEntry MakeFabricNode(const FabricTarget& target);
RM_VPortEntry MakeFabricVirtualPort(const FabricVirtualPort& port);
RM_VPortTargetEntry MakeFabricVirtualPortTarget(const FabricTarget& target);
_RM_ISCSI_TARGET MakeFabricIscsiTarget(const FabricIscsiTarget& target);

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICRECORDS_H_

// The fields of the boundary's records under the names they have in an agent's answers.
//
// One list of fields for each record serves both directions: a visitor either writes the fields or fills them.
// What a list leaves out is padding, and zero.
#ifndef PROVIDER_REMOTE_WIRERECORDS_H_
#define PROVIDER_REMOTE_WIRERECORDS_H_

#include <cstdint>

#include "provider/host/Host.h"

namespace provider {

// Four bytes that are one number on the wire, the first byte the least significant one.
struct FlagBytes {
  std::uint8_t (&bytes)[4];
};

template <class Visitor>
void VisitFields(Board& board, Visitor&& visit) {
  HBA_info_v4& info = board.info;
  visit("port_wwn", info.portWwn);
  visit("node_wwn", info.nodeWwn);
  visit("fabric_name", info.fabricName);
  visit("model_id", info.modelId);
  visit("host_name", info.hostName);
  visit("manufacturer", info.manufacturer);
  visit("model", info.model);
  visit("serial_number", info.serialNumber);
  visit("vpd_port_number", info.vpdPortNumber);
  visit("physical_port", info.physicalPort);
  visit("function_number", info.functionNumber);
  visit("special_features", info.specialFeatures);
  visit("bus_number", info.busNumber);
  visit("sub_adapter_id", info.subAdapterId);
  visit("link_status", board.linkStatus);
}

template <class Visitor>
void VisitFields(RM_NodeInfoEntry& node, Visitor&& visit) {
  visit("port_wwn", node.portWwn);
  visit("node_wwn", node.nodeWwn);
  visit("bind_type", node.bindType);
  visit("os_device_name", node.osDeviceName);
  visit("bus", node.bus);
  visit("target", node.target);
  visit("lun", node.lun);
  visit("fc_address_id", node.fcAddressId);
  visit("fcp_lun", node.fcpLun);
  visit("lun_id", node.lunId);
  visit("node_state", node.nodeState);
}

template <class Visitor>
void VisitFields(RM_VPortEntry& port, Visitor&& visit) {
  visit("port_wwn", port.portWwn);
  visit("node_wwn", port.nodeWwn);
}

template <class Visitor>
void VisitFields(RM_VPortTargetEntry& target, Visitor&& visit) {
  visit("port_wwn", target.portWwn);
  visit("node_wwn", target.nodeWwn);
  visit("os_device_name", target.osDeviceName);
  visit("bus", target.bus);
  visit("target", target.target);
  visit("lun", target.lun);
  visit("fc_address_id", target.fcAddressId);
  visit("fcp_lun", target.fcpLun);
}

template <class Visitor>
void VisitFields(_RM_ISCSI_TARGET& target, Visitor&& visit) {
  visit("target_name", target.targetName);
  visit("second_name", target.secondName);
  visit("flags", FlagBytes{target.flags});
}

template <class Visitor>
void VisitFields(IscsiNames& names, Visitor&& visit) {
  visit("initiator_name", names.initiatorName);
  visit("default_name", names.defaultName);
  visit("alias", names.alias);
}

}  // namespace provider

#endif  // PROVIDER_REMOTE_WIRERECORDS_H_

#include "tests/system/Picture.h"

namespace systemtest {

namespace {

// Iscsi targets are known by their names, the others by port and LUN name.
Bytes KeyOf(const RM_NodeInfoEntry& target, bool isIscsi) {
  return isIscsi ? BytesOf(target, 512) : BytesOf(target.portWwn);
}

bool IsIscsi(const KeptPort& port) {
  return (port.record.base.base.specialFeatures & HBADISC_FEATURE_ISCSI) != 0;
}

std::vector<RM_NodeInfoEntry> TargetsOf(const Library& library, HBA_NAME port, const HBA_NAME* vport) {
  std::vector<RM_NodeInfoEntry> targets(64);
  unsigned int count = 64;
  if (vport == nullptr) {
    library.GetTargetMappings(port, targets.data(), &count);
  } else {
    library.GetVPortTargets(port, *vport, targets.data(), &count);
  }
  targets.resize(count);
  return targets;
}

void ReadBelow(const Library& library, HBA_NAME name, KeptPort& port) {
  const Bytes none(8, '\0');
  for (const auto& target : TargetsOf(library, name, nullptr)) {
    port.targets[{none, KeyOf(target, IsIscsi(port))}] = BytesOf(target);
  }
  discovery_vport_info vports[16];
  unsigned int count = 16;
  library.GetVPorts(name, vports, &count);
  for (unsigned int i = 0; i < count; ++i) {
    const Bytes vport = BytesOf(vports[i].portWwn);
    port.vports[vport] = BytesOf(vports[i].nodeWwn);
    for (const auto& target : TargetsOf(library, name, &vports[i].portWwn)) {
      port.targets[{vport, KeyOf(target, false)}] = BytesOf(target);
    }
  }
  std::uint32_t functions[1 + 2 * 16] = {16};
  if (library.GetVirtualFunctionAddrs(name, reinterpret_cast<discovery_vf_addrs*>(functions)) == 0) {
    for (std::uint32_t i = 0; i < functions[0]; ++i) port.functions.insert(BytesOf(functions[1 + 2 * i], 8));
  }
  discovery_iscsi_names names;
  library.GetiSCSINames(name, &names);
  port.names = BytesOf(names);
}

}  // namespace

Picture Picture::Read(const Library& library, std::uint64_t* sequence) {
  Picture picture;
  hba_discovery_info_V4 record;
  for (int more = library.GetFirstHbaV4(&record, sequence); more != 0; more = library.GetNextHbaV4(&record)) {
    HBA_NAME name;
    std::memcpy(&name, record.base.base.base.port.portWwn, sizeof name);
    KeptPort& port = picture.ports[Digits(name.wwn)];
    port.record = record;
    ReadBelow(library, name, port);
  }
  return picture;
}

void Picture::Apply(const hbadisc_change& change) {
  const std::string name = Digits(change.port.wwn);
  if (change.kind == HBADISC_CHANGE_REMOVED) {
    ports.erase(name);
    return;
  }
  const bool isThere = (change.values & HBADISC_CHANGE_HAS_AFTER) != 0;
  KeptPort& port = ports[name];
  std::uint32_t& link = port.record.base.base.base.linkStatus;
  const auto item = [isThere](auto& map, const auto& key, const Bytes& value) {
    isThere ? void(map[key] = value) : void(map.erase(key));
  };
  switch (change.kind) {
    case HBADISC_CHANGE_ADDED:
      port.record = change.after.port;
      port.names = Bytes(sizeof(discovery_iscsi_names), '\0');
      return;
    case HBADISC_CHANGE_LINK:
      link = change.after.link == HBADISC_LINK_OVER_TEMPERATURE ? change.after.link
                                                                : (link & 0xFF00) | change.after.link;
      return;
    case HBADISC_CHANGE_FUNCTION_LINK:
      if (link != HBADISC_LINK_OVER_TEMPERATURE) link = (link & 0xFF) | change.after.link << 8;
      return;
    case HBADISC_CHANGE_ATTRIBUTES: {
      const hba_discovery_info_V4 before = port.record;
      port.record = change.after.port;
      port.record.base.base.base.linkStatus = before.base.base.base.linkStatus;
      port.record.unanswered = before.unanswered;
      port.record.status = before.status;
      port.record.unansweredSince = before.unansweredSince;
      return;
    }
    case HBADISC_CHANGE_UNANSWERED:
      port.record.unanswered = change.after.port.unanswered;
      port.record.status = change.after.port.status;
      port.record.unansweredSince = change.after.port.unansweredSince;
      return;
    case HBADISC_CHANGE_ISCSI_NAMES:
      port.names = BytesOf(change.after.iscsiNames);
      return;
    case HBADISC_CHANGE_TARGET: {
      const RM_NodeInfoEntry& target = isThere ? change.after.target : change.before.target;
      const bool isIscsi = IsIscsi(port) && BytesOf(change.vport) == Bytes(8, '\0');
      return item(port.targets, std::pair(BytesOf(change.vport), KeyOf(target, isIscsi)), BytesOf(target));
    }
    case HBADISC_CHANGE_VPORT: {
      const discovery_vport_info& vport = isThere ? change.after.vport : change.before.vport;
      return item(port.vports, BytesOf(vport.portWwn), BytesOf(vport.nodeWwn));
    }
    case HBADISC_CHANGE_FUNCTION:
      if (isThere) {
        port.functions.insert(BytesOf(change.after.function));
      } else {
        port.functions.erase(BytesOf(change.before.function));
      }
      return;
    default:
      ADD_FAILURE() << "kind " << change.kind;
  }
}

}  // namespace systemtest

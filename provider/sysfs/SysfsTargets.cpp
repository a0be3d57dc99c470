#include "provider/sysfs/SysfsTargets.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <tuple>

#include "provider/sysfs/SysfsRecords.h"

namespace provider {

namespace {

constexpr std::string_view kRemotePort = "rport";
constexpr std::string_view kVirtualPort = "vport";

// Holds nothing open: there may be more of them than a process may have descriptors.
struct RemotePort {
  FcChild child;
  Wwn portName{};
  Wwn nodeName{};
  std::uint32_t portId = 0;
  std::uint32_t targetId = 0;
  bool isReady = false;
};

struct Lun {
  std::uint64_t number = 0;
  std::string device;
  std::string identifier;
};

std::vector<FcChild> FcChildren(const SysfsDirectory& scsiHost, std::string_view kind, unsigned int host) {
  std::vector<FcChild> children;
  for (const std::string& name : scsiHost.Names()) {
    const std::optional<FcChild> child = ParseFcChildName(name, kind, host);
    if (child.has_value()) children.push_back(*child);
  }
  std::sort(children.begin(), children.end());
  return children;
}

// Where a child of the SCSI host has the attributes of its class.
std::string ClassPath(const std::string& child, const char* className) {
  return child + '/' + className + '/' + child;
}

// Nothing when the remote port is no SCSI target or has gone; the kernel keeps a lost one, "Not Present", for
// the target id that is bound to it.
std::optional<RemotePort> ReadTarget(const SysfsDirectory& scsiHost, unsigned int host, const FcChild& child) {
  const std::string name = FcChildName(kRemotePort, host, child);
  const SysfsDirectory port = scsiHost.Open(ClassPath(name, "fc_remote_ports"));
  const std::string state = port.Text("port_state");
  const std::optional<std::uint32_t> targetId = ParseDecimal(port.Text("scsi_target_id"));
  const std::optional<Wwn> portName = ParseFcName(port.Text("port_name"));
  const bool isTarget = port.Text("roles").find("FCP Target") != std::string::npos;
  if (!isTarget || !targetId.has_value() || !portName.has_value()) return std::nullopt;
  if (state == "Not Present" || state == "Deleted") return std::nullopt;
  // The kernel sends I/O to a marginal port like to any that is online.
  return RemotePort{child,
                    *portName,
                    ParseFcName(port.Text("node_name")).value_or(Wwn{}),
                    ParseHex(port.Text("port_id")).value_or(0),
                    *targetId,
                    state == "Online" || state == "Marginal"};
}

// While a target comes back as another remote port, the old one may still be there: the usable one counts.
void DropDoubles(std::vector<RemotePort>& targets) {
  const auto isBefore = [](const RemotePort& left, const RemotePort& right) {
    return std::tie(left.portName, right.isReady, left.child) <
           std::tie(right.portName, left.isReady, right.child);
  };
  const auto sameName = [](const RemotePort& left, const RemotePort& right) {
    return left.portName == right.portName;
  };
  std::sort(targets.begin(), targets.end(), isBefore);
  targets.erase(std::unique(targets.begin(), targets.end(), sameName), targets.end());
}

std::vector<RemotePort> ReadTargets(const SysfsDirectory& scsiHost, unsigned int host) {
  std::vector<RemotePort> targets;
  for (const FcChild& child : FcChildren(scsiHost, kRemotePort, host)) {
    const std::optional<RemotePort> target = ReadTarget(scsiHost, host, child);
    if (target.has_value()) targets.push_back(*target);
  }
  DropDoubles(targets);
  std::sort(targets.begin(), targets.end(), [](const RemotePort& left, const RemotePort& right) {
    return std::tie(left.child.channel, left.targetId, left.child.number) <
           std::tie(right.child.channel, right.targetId, right.child.number);
  });
  return targets;
}

// The only entry of a directory, or the first by name.
std::string FirstName(const SysfsDirectory& directory) {
  const std::vector<std::string> names = directory.Names();
  const auto first = std::min_element(names.begin(), names.end());
  return first == names.end() ? std::string() : PrintableText(*first);
}

// The disk, or what every other kind of device has.
std::string DeviceName(const SysfsDirectory& lun) {
  for (const char* const kind : {"block", "scsi_generic"}) {
    const std::string name = FirstName(lun.Open(kind));
    if (!name.empty()) return "/dev/" + name;
  }
  return {};
}

std::vector<Lun> ReadLuns(const SysfsDirectory& scsiHost, unsigned int host, const RemotePort& target) {
  const std::string address =
      std::to_string(host) + ':' + std::to_string(target.child.channel) + ':' + std::to_string(target.targetId);
  const SysfsDirectory directory =
      scsiHost.Open(FcChildName(kRemotePort, host, target.child) + "/target" + address);
  std::vector<Lun> luns;
  for (const std::string& name : directory.Names()) {
    const std::optional<std::uint64_t> number = ParseScsiDeviceName(name, address);
    if (!number.has_value()) continue;
    const SysfsDirectory lun = directory.Open(name);
    if (lun.IsOpen()) luns.push_back({*number, DeviceName(lun), lun.Text("wwid")});
  }
  std::sort(luns.begin(), luns.end(),
            [](const Lun& left, const Lun& right) { return left.number < right.number; });
  return luns;
}

// The eight bytes that go over the wire, as a number with the first byte on top. The kernel's LUN holds their
// four pairs the other way round, the first pair lowest.
std::uint64_t FcpLun(std::uint64_t lun) {
  constexpr unsigned kPairBits = 16;
  std::uint64_t wire = 0;
  for (unsigned pair = 0; pair < 4; ++pair, lun >>= kPairBits) wire = wire << kPairBits | (lun & 0xFFFF);
  return wire;
}

RM_NodeInfoEntry MakeNode(const RemotePort& target, const Lun& lun, std::uint32_t bindType) {
  RM_NodeInfoEntry node{};
  node.bindType = bindType;
  CopyText(node.osDeviceName, lun.device);
  node.bus = target.child.channel;
  node.target = target.targetId;
  node.lun = static_cast<std::uint32_t>(std::min<std::uint64_t>(lun.number, UINT32_MAX));
  node.fcAddressId = target.portId;
  CopyName(node.nodeWwn, target.nodeName);
  CopyName(node.portWwn, target.portName);
  node.fcpLun = FcpLun(lun.number);
  CopyText(node.lunId, lun.identifier);
  node.nodeState = RM_NODE_EXISTS | (target.isReady ? std::uint32_t{RM_NODE_READY} : 0u);
  return node;
}

RM_VPortTargetEntry MakeVirtualPortTarget(const RM_NodeInfoEntry& node) {
  RM_VPortTargetEntry target{};
  std::copy(std::begin(node.osDeviceName), std::end(node.osDeviceName), target.osDeviceName);
  target.bus = node.bus;
  target.target = node.target;
  target.lun = node.lun;
  target.fcAddressId = node.fcAddressId;
  std::copy(std::begin(node.nodeWwn), std::end(node.nodeWwn), target.nodeWwn);
  std::copy(std::begin(node.portWwn), std::end(node.portWwn), target.portWwn);
  target.fcpLun = node.fcpLun;
  return target;
}

// The SCSI host through which a virtual port sees its targets; it comes after the virtual port and goes before.
std::optional<unsigned int> OwnScsiHost(const SysfsDirectory& virtualPort) {
  std::optional<unsigned int> own;
  for (const std::string& name : virtualPort.Names()) {
    const std::optional<unsigned int> number = ParseScsiHostName(name);
    if (number.has_value()) own = std::min(own.value_or(*number), *number);
  }
  return own;
}

}  // namespace

Answer<std::uint32_t> ReadBindType(const SysfsDirectory& fcHost) {
  struct BindType {
    std::string_view word;
    std::uint32_t number;
  };
  // The number for port names is the one that a port has before it is asked.
  static constexpr std::array<BindType, 4> kTypes = {
      {{"none", 0x1000}, {"port_id", 0x1001}, {"wwpn", 0x1002}, {"wwnn", 0x1004}}};
  const std::string text = fcHost.Text("tgtid_bind_type");
  const auto isTyped = [&text](const BindType& type) { return text.starts_with(type.word); };
  const auto type = std::find_if(kTypes.begin(), kTypes.end(), isTyped);
  if (type == kTypes.end()) return {RM_STATUS_NOT_SUPPORTED, 0};
  return {RM_STATUS_OK, type->number};
}

FcTargets ReadFcTargets(const SysfsDirectory& scsiHost, unsigned int host, std::uint32_t bindType) {
  constexpr std::string_view kDevices = "/dev/";
  constexpr std::string_view kGeneric = "/dev/sg";
  FcTargets targets;
  for (const RemotePort& target : ReadTargets(scsiHost, host)) {
    const std::vector<Lun> luns = ReadLuns(scsiHost, host, target);
    if (luns.empty()) targets.nodes.push_back(MakeNode(target, Lun{}, bindType));
    for (const Lun& lun : luns) {
      targets.nodes.push_back(MakeNode(target, lun, bindType));
      ++targets.storage.lunCount;
      const bool isBlock = lun.device.starts_with(kDevices) && !lun.device.starts_with(kGeneric);
      if (isBlock) targets.storage.blockDevices.push_back(lun.device.substr(kDevices.size()));
    }
  }
  std::sort(targets.storage.blockDevices.begin(), targets.storage.blockDevices.end());
  return targets;
}

RM_VPortEntry MakeVirtualPort(const SysfsVirtualPort& port) {
  RM_VPortEntry entry{};
  CopyName(entry.portWwn, port.portName);
  CopyName(entry.nodeWwn, port.nodeName);
  return entry;
}

std::vector<SysfsVirtualPort> ReadVirtualPorts(const SysfsDirectory& scsiHost, unsigned int host) {
  std::vector<SysfsVirtualPort> ports;
  std::set<Wwn> names;
  for (const FcChild& child : FcChildren(scsiHost, kVirtualPort, host)) {
    const std::string name = FcChildName(kVirtualPort, host, child);
    const SysfsDirectory attributes = scsiHost.Open(ClassPath(name, "fc_vports"));
    const std::optional<Wwn> portName = ParseFcName(attributes.Text("port_name"));
    if (!portName.has_value() || !names.insert(*portName).second) continue;
    ports.push_back({*portName, ParseFcName(attributes.Text("node_name")).value_or(Wwn{}), child});
  }
  return ports;
}

std::vector<RM_VPortTargetEntry> ReadVirtualPortTargets(const SysfsDirectory& scsiHost, unsigned int host,
                                                        const SysfsVirtualPort& port) {
  std::vector<RM_VPortTargetEntry> targets;
  const SysfsDirectory directory = scsiHost.Open(FcChildName(kVirtualPort, host, port.child));
  const std::optional<unsigned int> own = OwnScsiHost(directory);
  if (!own.has_value()) return targets;
  for (const RM_NodeInfoEntry& node : ReadFcTargets(directory.Open(ScsiHostName(*own)), *own, 0).nodes) {
    if ((node.nodeState & RM_NODE_READY) != 0) targets.push_back(MakeVirtualPortTarget(node));
  }
  return targets;
}

}  // namespace provider

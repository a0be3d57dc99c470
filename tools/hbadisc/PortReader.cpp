#include "tools/hbadisc/PortReader.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

namespace hbadisc {

namespace {

constexpr std::uint16_t kUnknown16 = 0xFFFF;
constexpr std::uint32_t kUnknown32 = 0xFFFFFFFF;

// A list that grows while it is read is asked for again, but not for ever.
constexpr int kReadAttempts = 4;

// A walk over the ports that always reaches its end, whatever happens on the way: a walk left half-way would
// keep the enumeration lock.
class Walk {
 public:
  explicit Walk(std::uint64_t* sequence) { m_Open = HBADisc_GetFirstHbaV4(&m_Record, sequence) > 0; }
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;
  ~Walk() {
    while (m_Open) Next();
  }

  // The record the walk stands on, or null at the end.
  const hba_discovery_info_V4* Current() const { return m_Open ? &m_Record : nullptr; }
  void Next() { m_Open = HBADisc_GetNextHbaV4(&m_Record) > 0; }

 private:
  hba_discovery_info_V4 m_Record{};
  bool m_Open = false;
};

template <std::size_t kSize>
std::string FieldText(const char (&field)[kSize]) {
  return {field, strnlen(field, kSize)};
}

std::optional<std::uint16_t> Known(std::uint16_t value) {
  return value == kUnknown16 ? std::nullopt : std::optional(value);
}

std::optional<std::uint32_t> Known(std::uint32_t value) {
  return value == kUnknown32 ? std::nullopt : std::optional(value);
}

HBA_NAME ToName(const Wwn& wwn) {
  HBA_NAME name{};
  std::copy(wwn.bytes.begin(), wwn.bytes.end(), name.wwn);
  return name;
}

PortKind KindOf(std::uint32_t features) {
  if (features & HBADISC_FEATURE_ISCSI) return PortKind::Iscsi;
  if (features & HBADISC_FEATURE_FCOE) return PortKind::Fcoe;
  if (features & HBADISC_FEATURE_ROCE) return PortKind::NicRoce;
  if (features & HBADISC_FEATURE_NIC) return PortKind::Nic;
  return PortKind::Fc;
}

Link LinkOf(std::uint32_t byte) {
  switch (byte & 0xFF) {
    case 1:
      return Link::Up;
    case 2:
      return Link::Down;
    default:
      return Link::Unknown;
  }
}

Position ToPosition(const hba_discovery_info_V2& record) {
  constexpr std::uint32_t kNumbered =
      HBADISC_FEATURE_ISCSI | HBADISC_FEATURE_NIC | HBADISC_FEATURE_FCOE | HBADISC_FEATURE_SUB_ADAPTER;
  Position position;
  if (record.specialFeatures & kNumbered) {
    position.portNumber = Known(record.position.numbers.portNumber);
    position.pciFunction = Known(record.position.numbers.functionNumber);
    position.pciBus = Known(record.position.numbers.busNumber);
    position.subAdapter = Known(record.position.numbers.subAdapter);
  } else {
    position.vpdPortNumber = FieldText(record.position.vpdPortNumber);
  }
  return position;
}

std::string AddressText(int family, const std::uint8_t* address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (!inet_ntop(family, address, text.data(), static_cast<socklen_t>(text.size()))) return {};
  return text.data();
}

// The management address says more than the 8-byte proxy address, which is all there is without it.
std::optional<Proxy> ToProxy(const hba_discovery_info_V3& record) {
  if (record.hasProxyIpInfo) {
    const _RM_IP_INFO& host = record.proxyIpInfo;
    return Proxy{AddressText(host.flags & RM_IP_FLAG_IPV6 ? AF_INET6 : AF_INET, host.address), host.port,
                 (host.flags & RM_IP_FLAG_CIM) != 0};
  }
  const std::uint8_t(&address)[8] = record.base.base.proxyAddress;
  if (address[0] == 0) return std::nullopt;
  return Proxy{AddressText(AF_INET, address + 4), std::nullopt, false};
}

std::vector<Wwn> FoundOn(const hba_discovery_info& record) {
  const std::size_t count = std::min<std::size_t>(record.foundOnCount, std::size(record.foundOn));
  std::vector<Wwn> ports;
  for (std::size_t i = 0; i < count; ++i) ports.push_back(ToWwn(record.foundOn[i].wwn));
  return ports;
}

// All records of a query that tells how many did not fit. Asked without room first: a port that is not known
// then looks like one without records, where with room the count would be left as it was.
template <class Record, class Query>
std::vector<Record> ReadAll(Query query) {
  std::vector<Record> records(1);  // never a null array
  unsigned int room = 0;
  for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
    unsigned int count = room;
    const int missing = query(records.data(), &count);
    if (missing <= 0 || attempt == kReadAttempts - 1) {
      records.resize(std::min(count, room));
      break;
    }
    room += static_cast<unsigned int>(missing);
    records.assign(room, Record{});
  }
  return records;
}

template <class Target, class Convert>
std::vector<Target> ConvertAll(const std::vector<RM_NodeInfoEntry>& slots, Convert convert) {
  std::vector<Target> targets(slots.size());
  std::transform(slots.begin(), slots.end(), targets.begin(), convert);
  return targets;
}

std::vector<RM_NodeInfoEntry> ReadTargets(HBA_NAME port) {
  return ReadAll<RM_NodeInfoEntry>(
      [&](auto* room, auto* count) { return HBADisc_GetTargetMappings(port, room, count); });
}

std::vector<VirtualPort> ReadVirtualPorts(HBA_NAME port) {
  std::vector<VirtualPort> vports;
  for (const discovery_vport_info& record : ReadAll<discovery_vport_info>(
           [&](auto*room, auto*count) { return HBADisc_GetVPorts(port, room, count); })) {
    const auto targets = ReadAll<RM_NodeInfoEntry>(
        [&](auto* room, auto* count) { return HBADisc_GetVPortTargets(port, record.portWwn, room, count); });
    vports.push_back({ToWwn(record.portWwn.wwn), KnownWwn(record.nodeWwn.wwn), record.targetCount,
                      ConvertAll<FcTarget>(targets, ToFcTarget)});
  }
  return vports;
}

// The addresses follow a count of the same alignment, so one array of words holds both.
std::vector<Wwn> ReadVirtualFunctions(HBA_NAME port, std::uint32_t expected) {
  constexpr std::size_t kWordsPerName = sizeof(HBA_NAME) / sizeof(std::uint32_t);
  std::uint32_t room = expected;
  for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
    std::vector<std::uint32_t> words(1 + room * kWordsPerName);
    words[0] = room;
    const int status =
        HBADisc_GetVirtualFunctionAddrs(port, reinterpret_cast<discovery_vf_addrs*>(words.data()));
    const std::uint32_t count = words[0];
    if (status == 0) {
      std::vector<Wwn> addresses(std::min(count, room));
      for (std::size_t i = 0; i < addresses.size(); ++i) {
        std::memcpy(addresses[i].bytes.data(), &words[1 + i * kWordsPerName], sizeof(HBA_NAME));
      }
      return addresses;
    }
    if (status != 1) break;
    room = count;
  }
  return {};
}

std::optional<IscsiNames> ReadIscsiNames(HBA_NAME port) {
  discovery_iscsi_names names{};
  if (HBADisc_GetiSCSINames(port, &names) == 0) return std::nullopt;
  return ToIscsiNames(names);
}

PortDetails ReadDetails(const Port& port) {
  const HBA_NAME name = ToName(port.wwpn);
  PortDetails details;
  if (port.kind == PortKind::Iscsi) {
    details.iscsiTargets = ConvertAll<IscsiTarget>(ReadTargets(name), ToIscsiTarget);
    details.iscsiNames = ReadIscsiNames(name);
  } else {
    details.fcTargets = ConvertAll<FcTarget>(ReadTargets(name), ToFcTarget);
  }
  details.virtualPorts = ReadVirtualPorts(name);
  details.virtualFunctions = ReadVirtualFunctions(name, port.vfCount);
  return details;
}

}  // namespace

bool IsWanted(const hba_discovery_info_V4& record, Scope scope) {
  const bool isLocal = record.base.base.base.isLocal != 0;
  return scope == Scope::Everywhere || isLocal == (scope == Scope::LocalHost);
}

std::vector<Port> ReadPorts(Details details, Scope scope, std::uint64_t* sequence) {
  std::vector<Port> ports;
  for (Walk walk(sequence); walk.Current(); walk.Next()) {
    if (!IsWanted(*walk.Current(), scope)) continue;
    Port& port = ports.emplace_back(ToPort(*walk.Current()));
    if (details == Details::All) port.details = ReadDetails(port);
  }
  return ports;
}

Port ToPort(const hba_discovery_info_V3& record) {
  const hba_discovery_info_V2& second = record.base;
  const hba_discovery_info& first = second.base;
  const hba_port_info& info = first.port;
  Port port;
  port.wwpn = ToWwn(info.portWwn);
  port.wwnn = KnownWwn(info.nodeWwn);
  port.fabricName = KnownWwn(info.fabricName);
  port.local = first.isLocal != 0;
  port.kind = KindOf(second.specialFeatures);
  port.specialFeatures = second.specialFeatures;
  if (first.linkStatus == HBADISC_LINK_OVER_TEMPERATURE) {
    port.link = Link::OverTemperature;
  } else {
    port.link = LinkOf(first.linkStatus);
    port.functionLink = LinkOf(first.linkStatus >> 8);
  }
  port.model = FieldText(info.model);
  port.modelNumber = info.modelId & ~(HBADISC_MODEL_TARGET_MODE | HBADISC_MODEL_REFRESHED);
  port.targetMode = (info.modelId & HBADISC_MODEL_TARGET_MODE) != 0;
  port.manufacturer = FieldText(info.manufacturer);
  port.serialNumber = FieldText(second.serialNumber);
  port.system = FieldText(info.hostName);
  port.position = ToPosition(second);
  port.targetCount = first.targetCount;
  port.targetBindType = first.targetBindType;
  port.vportCount = second.vportCount;
  port.vfCount = record.vfCount;
  port.foundOn = FoundOn(first);
  port.via = ToProxy(record);
  port.proxyOnly = first.proxyOnly != 0;
  return port;
}

IscsiNames ToIscsiNames(const discovery_iscsi_names& names) {
  return {FieldText(names.initiatorName), FieldText(names.defaultName), FieldText(names.alias)};
}

Port ToPort(const hba_discovery_info_V4& record) {
  Port port = ToPort(record.base);
  if (record.unanswered != 0) {
    port.silence = Silence{record.status, HBADisc_GetStatusText(record.status), record.unansweredSince};
  }
  if (record.linkSpeed != HBADISC_UNKNOWN_64) port.linkSpeed = record.linkSpeed;
  for (const std::uint64_t speed : record.supportedSpeeds) {
    if (speed == HBADISC_UNKNOWN_64 || speed == 0) break;
    port.supportedSpeeds.push_back(speed);
  }
  port.firmwareVersion = FieldText(record.firmwareVersion);
  port.driverName = FieldText(record.driverName);
  port.driverVersion = FieldText(record.driverVersion);
  port.bootVersion = FieldText(record.bootVersion);
  port.pciAddress = FieldText(record.pciAddress);
  port.partNumber = FieldText(record.partNumber);
  port.lunCount = Known(record.lunCount);
  port.blockDeviceCount = Known(record.blockDeviceCount);
  port.blockDevices = FieldText(record.blockDevices);
  return port;
}

FcTarget ToFcTarget(const RM_NodeInfoEntry& record) {
  return {ToWwn(record.portWwn),
          KnownWwn(record.nodeWwn),
          Known(record.bus),
          Known(record.target),
          Known(record.lun),
          record.fcpLun,
          FieldText(record.osDeviceName),
          Known(record.fcAddressId),
          record.bindType,
          (record.nodeState & RM_NODE_READY) != 0};
}

IscsiTarget ToIscsiTarget(const RM_NodeInfoEntry& slot) {
  _RM_ISCSI_TARGET record{};
  std::memcpy(&record, &slot, sizeof record);
  IscsiTarget target;
  target.name = FieldText(record.targetName);
  // A name that fills its field runs on into the next, and there is no second name then.
  std::string& rest = target.name.size() == sizeof record.targetName ? target.name : target.secondName;
  rest += FieldText(record.secondName);
  target.hasSessions = (record.flags[0] & RM_ISCSI_HAS_SESSIONS) != 0;
  target.connected = (record.flags[0] & RM_ISCSI_CONNECTED) != 0;
  return target;
}

}  // namespace hbadisc

// What a fabric file says, checked and with its ranges written out.
//
// Thread safety: immutable once read. Ownership: lists are shared between the states of a board in the course
// of time, so that a change of one list copies no other.
#ifndef PROVIDER_FABRIC_FABRICMODEL_H_
#define PROVIDER_FABRIC_FABRICMODEL_H_

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "provider/fabric/FabricCall.h"
#include "provider/host/Host.h"
#include "provider/host/NetAddress.h"

namespace provider {

template <class Record>
using FabricList = std::shared_ptr<const std::vector<Record>>;

struct FabricTarget {
  Wwn portName{};
  Wwn nodeName{};
  std::uint32_t bindType = 0;
  std::uint32_t bus = 0;
  std::uint32_t target = 0;
  std::uint32_t lun = 0;
  std::uint32_t fcId = 0;
  std::uint32_t nodeState = 0;
  std::uint64_t fcpLun = 0;
  std::string device;
  std::string lunId;
  bool makersPort = false;
};

struct FabricVirtualPort {
  Wwn portName{};
  Wwn nodeName{};
  FabricList<FabricTarget> targets;
};

struct FabricIscsiTarget {
  std::string name;  // up to 511 bytes, then without a second name
  std::string secondName;
  bool sessions = false;
  bool connected = false;
};

struct FabricLink {
  std::uint8_t physical = 1;
  std::uint8_t function = 1;
};

// What can change while the file's script runs.
struct FabricBoardState {
  bool present = true;
  bool overheated = false;
  FabricLink link;
  FabricList<FabricTarget> targets;
  FabricList<FabricVirtualPort> virtualPorts;
  FabricList<FabricIscsiTarget> iscsiTargets;
  FabricList<HBA_NAME> functions;
};

enum class FabricKind { kFc, kFcoe, kIscsi, kNic, kNicRoce };

// Which lists a port of this kind has.
inline bool HasFcTargets(FabricKind kind) {
  return kind == FabricKind::kFc || kind == FabricKind::kFcoe;
}
inline bool HasFunctions(FabricKind kind) {
  return kind == FabricKind::kNic || kind == FabricKind::kNicRoce;
}

// What stays. A value that is not there is not reported: the attribute is missing and the port record has its
// "unknown" value.
struct FabricBoard {
  FabricKind kind = FabricKind::kFc;
  Wwn portName{};
  Wwn nodeName{};
  std::optional<Wwn> fabricName;
  std::optional<std::string> manufacturer;
  std::optional<std::string> model;
  std::optional<std::string> modelName;
  std::optional<std::string> serialNumber;
  std::optional<std::string> vpdPortNumber;
  std::optional<std::string> subAdapterId;
  std::optional<std::uint32_t> portType;
  std::optional<std::uint32_t> modelId;
  std::optional<std::uint32_t> subVendorId;
  std::optional<std::uint32_t> subDeviceId;
  std::optional<std::uint32_t> physicalPort;
  std::optional<std::uint32_t> pciFunction;
  std::optional<std::uint32_t> pciBus;
  std::optional<std::uint32_t> attribute585;
  std::optional<std::uint32_t> attribute587;
  bool targetMode = false;
  bool legacyAttributes = false;
  std::uint32_t driverType = 0;
  std::uint32_t bindType = 0;
  IscsiNames iscsi;
  std::map<unsigned int, AttributeValue> details;  // by PortDetailId
  // Answered in place of what follows from the above; nothing: left out.
  std::map<unsigned int, std::optional<AttributeValue>> attributes;
  FabricBoardState initial;
};

// A change of one board; what is not there stays as it is.
struct FabricEvent {
  std::chrono::milliseconds after{0};
  std::size_t board = 0;
  std::optional<bool> present;
  std::optional<bool> overheated;
  std::optional<FabricLink> link;
  FabricList<FabricTarget> targets;
  FabricList<FabricTarget> addTargets;
  std::vector<Wwn> removeTargets;
  FabricList<FabricVirtualPort> virtualPorts;
  FabricList<FabricIscsiTarget> iscsiTargets;
  FabricList<HBA_NAME> functions;
  // Where it stands in the file, for messages.
  unsigned line = 0;
  std::string path;
};

struct FabricFault {
  std::optional<FabricCall> call;  // nothing: every call
  std::optional<Wwn> port;
  std::optional<Wwn> virtualPort;
  std::uint64_t skip = 0;
  std::optional<std::uint64_t> times;
  std::optional<int> status;
  std::optional<std::chrono::milliseconds> delay;
  bool hangs = false;
  std::optional<std::chrono::milliseconds> hang;  // nothing: for ever
  std::optional<std::uint32_t> claimedCount;
};

// One host.
struct FabricModel {
  std::string hostName;
  std::vector<NetAddress> addresses;  // of a remote host
  bool unreachable = false;           // a remote host with which no connection can be made
  bool secureManagement = false;
  std::chrono::milliseconds delay{0};
  std::vector<FabricBoard> boards;
  std::map<Wwn, std::size_t> boardNumbers;  // by port name
  std::vector<FabricEvent> events;          // by time
  std::vector<FabricFault> faults;          // in the file's order
};

// Everything in a file.
struct FabricModels {
  FabricModel local;
  std::vector<FabricModel> remote;
};

// What `event` makes of its board.
FabricBoardState Applied(FabricBoardState state, const FabricEvent& event);

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICMODEL_H_

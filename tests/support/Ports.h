// Records, ports and lists as the tests make them and look at them.
#ifndef TESTS_SUPPORT_PORTS_H_
#define TESTS_SUPPORT_PORTS_H_

#include "model/HbaList.h"
#include "model/WwpnKey.h"
#include "rmapi/rmapi.h"
#include "tests/support/Names.h"
#include "tests/support/Testing.h"

constexpr std::uint64_t kPort = 0x1000025DC9000000;    // + number
constexpr std::uint64_t kTarget = 0x5000000000000000;  // + number

// A node exists and is ready unless told otherwise.
inline RM_NodeInfoEntry Node(std::uint64_t wwpn, std::uint32_t state = RM_NODE_EXISTS | RM_NODE_READY) {
  RM_NodeInfoEntry node{};
  std::memcpy(node.portWwn, Name(wwpn).wwn, 8);
  std::memcpy(node.nodeWwn, Name(wwpn + 0x100).wwn, 8);
  node.nodeState = state;
  return node;
}

inline _RM_ISCSI_TARGET ISCSITarget(const std::string& name, std::uint8_t flags = 0) {
  _RM_ISCSI_TARGET target{};
  std::memcpy(&target, name.data(), name.size());  // long names run on into the second one
  target.flags[0] = flags;
  return target;
}

inline HBA_info_v4 Info(std::uint64_t wwpn, std::uint32_t features = 0, const std::string& host = "host") {
  HBA_info_v4 info{};
  std::memcpy(info.portWwn, Name(wwpn).wwn, 8);
  std::memcpy(info.hostName, host.data(), host.size());
  info.specialFeatures = features;
  return info;
}

inline CHbaEntry MakePort(const HBA_info_v4& info, int isLocal = 1) {
  CHbaEntry port(&info, nullptr, isLocal, nullptr, 0, nullptr);
  port.SetSpecialFeatures(info.specialFeatures);
  return port;
}

inline int Add(CHbaList& list, const CHbaEntry& port) EXCLUDES(list) {
  const HbaListGuard guard(list);
  return list.AddEntry(&port);
}

inline int Remove(CHbaList& list, std::uint64_t wwpn) EXCLUDES(list) {
  const HbaListGuard guard(list);
  const CHbaEntry port(Name(wwpn).wwn);
  return list.RemoveEntry(&port);
}

// A copy of the listed port, or a port of name 0.
inline CHbaEntry Listed(CHbaList& list, std::uint64_t wwpn) EXCLUDES(list) {
  const HbaListGuard guard(list);
  const CHbaEntry* entry = list.FindEntry(Name(wwpn).wwn);
  return entry == nullptr ? CHbaEntry() : *entry;
}

inline std::uint64_t NumberOf(const CHbaEntry& port) {
  return WwpnKey(port.GetHbaInfo()->portWwn);
}

inline std::vector<std::uint64_t> Names(CHbaList& list) EXCLUDES(list) {
  std::vector<std::uint64_t> names;
  const HbaListGuard guard(list);
  for (const CHbaEntry* port = list.GetFirstEntry(); port != nullptr; port = list.GetNextEntry()) {
    names.push_back(NumberOf(*port));
  }
  return names;
}

#endif  // TESTS_SUPPORT_PORTS_H_

// What a remote host can be asked, and the URL path of each question.
//
// The agent parses what RemoteHost writes; both go through this file. docs/agent.md lists the paths.
#ifndef PROVIDER_REMOTE_WIREQUERY_H_
#define PROVIDER_REMOTE_WIREQUERY_H_

#include <optional>
#include <string>
#include <string_view>

#include "provider/host/Host.h"

namespace provider {

enum class WireQuestion {
  kBoardInstances,
  kBoard,
  kPortNames,
  kSecureManagement,
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
  kIscsiTargetsRefreshed,
  kVirtualFunctions,
};

struct WireQuery {
  WireQuestion question = WireQuestion::kBoardInstances;
  Wwn port{};                 // of the questions about a port
  Wwn virtualPort{};          // kVirtualPortTargets
  unsigned int instance = 0;  // kBoard

  bool operator==(const WireQuery&) const = default;
};

// A name as the answers and paths have it: 0x and sixteen digits.
std::string WireName(const Wwn& name);

std::string PathOf(const WireQuery& query);

// Exactly the paths that PathOf writes (a name's digits in either case); else nothing.
std::optional<WireQuery> ParsePath(std::string_view path);

// The paths with "{instance}", "{wwn}" and "{vport}" in them, for people.
std::string PathPatterns();

}  // namespace provider

#endif  // PROVIDER_REMOTE_WIREQUERY_H_

#include "agent/QueryAnswer.h"

#include <nlohmann/json.hpp>
#include <sstream>

#include "provider/remote/WireCodec.h"

namespace agent {

using provider::Answer;
using provider::Host;
using provider::WireQuery;
using provider::WireQuestion;
using provider::Wwn;

namespace {

// Calls `tell` with the answer, whatever its type.
template <class Tell>
std::string AskAttributes(Host& host, const WireQuery& query, Tell tell) {
  switch (query.question) {
    case WireQuestion::kDiscoveryAttributes:
      return tell(host.DiscoveryAttributes(query.port));
    case WireQuestion::kHbaAttributes:
      return tell(host.HbaAttributes(query.port));
    case WireQuestion::kPortAttributes:
      return tell(host.PortAttributes(query.port));
    default:
      return tell(host.ServerAttributes(query.port));
  }
}

template <class Tell>
std::string AskAboutHost(Host& host, const WireQuery& query, Tell tell) {
  switch (query.question) {
    case WireQuestion::kBoardInstances:
      return tell(host.BoardInstances());
    case WireQuestion::kBoard:
      return tell(host.ReadBoard(query.instance));
    case WireQuestion::kPortNames:
      return tell(host.PortNames());
    default:
      return tell(host.SecureManagement());
  }
}

template <class Tell>
std::string Ask(Host& host, const WireQuery& query, Tell tell) {
  switch (query.question) {
    case WireQuestion::kBoardInstances:
    case WireQuestion::kBoard:
    case WireQuestion::kPortNames:
    case WireQuestion::kSecureManagement:
      return AskAboutHost(host, query, tell);
    case WireQuestion::kDiscoveryAttributes:
    case WireQuestion::kHbaAttributes:
    case WireQuestion::kPortAttributes:
    case WireQuestion::kServerAttributes:
      return AskAttributes(host, query, tell);
    case WireQuestion::kHasPort:
      return tell(Answer<bool>{RM_STATUS_OK, host.HasPort(query.port)});
    case WireQuestion::kIsMakersPort:
      return tell(Answer<bool>{RM_STATUS_OK, host.IsMakersPort(query.port)});
    case WireQuestion::kDriverType:
      return tell(host.DriverType(query.port));
    case WireQuestion::kBindType:
      return tell(host.BindType(query.port));
    case WireQuestion::kInitiatorProperties:
      return tell(host.InitiatorProperties(query.port));
    case WireQuestion::kNodes:
      return tell(host.Nodes(query.port));
    case WireQuestion::kVirtualPorts:
      return tell(host.VirtualPorts(query.port));
    case WireQuestion::kVirtualPortTargets:
      return tell(host.VirtualPortTargets(query.port, query.virtualPort));
    case WireQuestion::kIscsiTargets:
    case WireQuestion::kIscsiTargetsRefreshed:
      return tell(host.IscsiTargets(query.port, query.question == WireQuestion::kIscsiTargetsRefreshed));
    case WireQuestion::kVirtualFunctions:
      return tell(host.VirtualFunctions(query.port));
  }
  return {};
}

constexpr int kIndent = 1;

}  // namespace

std::string AnswerQuery(Host& host, const WireQuery& query) {
  const std::string path = PathOf(query);
  return Ask(host, query, [&path](const auto& answer) { return provider::EncodeAnswer(path, answer); });
}

std::string IndexDocument() {
  nlohmann::ordered_json document = {{"format_version", 1}, {"service", "hbadisc-agent"}};
  std::istringstream patterns(provider::PathPatterns());
  for (std::string pattern; std::getline(patterns, pattern);) document["paths"].push_back(pattern);
  return document.dump(kIndent) + '\n';
}

std::string ErrorDocument(const std::string& error) {
  const nlohmann::ordered_json document = {{"format_version", 1}, {"error", error}};
  return document.dump(kIndent) + '\n';
}

}  // namespace agent

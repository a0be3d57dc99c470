// Adding a remote host: the text that an application gives, a query whether anybody answers there, and the
// line.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>

#include "log/DiscoveryLog.h"
#include "oob/HostEntry.h"
#include "oob/NodeAddresses.h"
#include "oob/OobHbaDiscover.h"

namespace {

constexpr char kTurnCacheOff[] = "36913691";
constexpr std::size_t kMostHostCharacters = 128;
constexpr long kLowestPort = 1024;
constexpr long kHighestPort = 65535;
constexpr int kTries = 2;
constexpr int kNamesLimit = 5;           // call limits
constexpr unsigned int kPause = 100000;  // microseconds
constexpr unsigned int kHostNameAttribute = 257;
constexpr std::size_t kHostColumn = 48;
constexpr std::size_t kLongestLine = 1024;

constexpr unsigned int kLogAdd = kLogOobAdd;
constexpr unsigned int kLogAddError = kLogOobAdd | kLogDetails;

using Milliseconds = std::chrono::milliseconds;

// What an application asks for.
struct HostRequest {
  std::string host;
  std::optional<unsigned short> port;
};

// The number, which must be all of the text.
std::optional<unsigned short> ParsePort(std::string_view text) {
  const std::string number(text);
  char* end = nullptr;
  const long value = std::strtol(number.c_str(), &end, 0);
  if (number.empty() || *end != '\0' || value < kLowestPort || value > kHighestPort) return {};
  return static_cast<unsigned short>(value);
}

std::optional<HostRequest> WithPort(std::string_view host, std::string_view number) {
  const auto port = ParsePort(number);
  if (!port) return {};
  return HostRequest{std::string(host), port};
}

std::optional<HostRequest> ParseRequest(std::string_view text) {
  if (text.starts_with('[')) {
    const BracketedHost bracketed = SplitBrackets(text);
    if (bracketed.host.empty()) return {};
    const std::string_view rest = SkipBlanks(bracketed.rest);
    if (rest.starts_with(':')) return WithPort(bracketed.host, rest.substr(1));
    return HostRequest{std::string(bracketed.host), {}};
  }
  if (HasTwoColons(text)) return HostRequest{std::string(text), {}};
  Pieces pieces(text, ":");
  const std::string_view host = pieces.Next();
  const std::string_view number = pieces.Next();
  if (host.empty()) return {};
  if (!number.empty()) return WithPort(host, number);
  return HostRequest{std::string(host), {}};
}

// Asks a host that is about to be added; a status, or nothing when there is no memory.
std::optional<int> AskForNames(const char* text, const _RM_IP_INFO& address, NodeAddresses& names) {
  if (!names.Begin()) {
    disco_printf(kLogAddError, nullptr, "OOB: AddOOBHost could not allocate memory for %d HBA addresses",
                 static_cast<int>(names.WantedRoom()));
    return {};
  }
  int status = RM_STATUS_BUSY;
  for (int left = kTries; left > 0 && status == RM_STATUS_BUSY; --left) {
    const std::optional<int> answer = names.Ask(address, [] { return true; });
    if (!answer) {
      disco_printf(kLogAddError, nullptr, "OOB: AddOOBHost could not allocate memory for HBA addresses (%d)",
                   static_cast<int>(names.WantedRoom()));
      return {};
    }
    status = *answer;
    if (status != RM_STATUS_BUSY) break;
    disco_printf(kLogAdd, nullptr, "OOB: AddOOBHost %s, retrying (%d)", text, left);
    ZylSleep(kPause);
  }
  if (status != RM_STATUS_OK) {
    disco_printf(kLogAddError, nullptr, "OOB: AddOOBHost %s, error %d", text, status);
  } else {
    disco_printf(kLogAdd, nullptr, "OOB: AddOOBHost found %s", text);
  }
  return status;
}

// The name comes from outside and becomes part of a line: a control character ends it.
std::string NameFrom(const unsigned char* attributes) {
  unsigned int type = 0;
  int status = RM_STATUS_OK;
  const void* value = RM_GetAttributeValue(attributes, kHostNameAttribute, &type, &status);
  if (value == nullptr || status != RM_STATUS_OK || type != RM_ATTRIBUTE_TEXT) return {};
  const auto* text = static_cast<const char*>(value);
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; };
  return {text, std::find_if(text, text + strnlen(text, RM_ATTRIBUTE_ROOM), isControl)};
}

// The name that the first port gives whose attributes can be read. No failure ends the search, but the time
// does, as the caller waits and a host may have thousands of ports, and so does the end of discovery.
std::string ReadHostName(const unsigned char* proxy, const NodeAddresses& names, Milliseconds limit,
                         const std::function<bool()>& stopped) {
  std::array<unsigned char, RM_ATTRIBUTE_ROOM> attributes{};
  const auto end = std::chrono::steady_clock::now() + limit;
  for (std::uint32_t i = 0; i < names.Count() && std::chrono::steady_clock::now() < end && !stopped(); ++i) {
    auto size = static_cast<unsigned int>(attributes.size());
    const int status = RM_GetServerAttributes(proxy, names[i].wwn, attributes.data(), &size);
    if (status != RM_STATUS_OK) continue;
    return size <= attributes.size() ? NameFrom(attributes.data()) : std::string();
  }
  return {};
}

struct HostLine {
  std::string host;  // without port
  std::string line;
};

// Only an IPv6 address with a port stands in brackets.
HostLine FormLine(const _RM_IP_INFO& address, std::optional<unsigned short> port, const std::string& name) {
  HostLine formed{IpText(address).Text(), ""};
  if (port && IsIPv6(address)) formed.host = '[' + formed.host + ']';
  formed.line = formed.host;
  if (port) formed.line += ':' + std::to_string(*port);
  if (formed.line.size() < kHostColumn) formed.line.resize(kHostColumn, ' ');
  if (formed.line.size() + name.size() + 3 < kLongestLine) formed.line += "# " + name;
  formed.line += '\n';
  return formed;
}

int WriteHost(HostFile& file, const HostLine& host) {
  switch (file.AddLine(host.host, host.line)) {
    case HostFile::Added::kDone:
      return COOBHbaDiscover::kAdded;
    case HostFile::Added::kDuplicate:
      return COOBHbaDiscover::kDuplicate;
    default:
      return COOBHbaDiscover::kCannotWrite;
  }
}

int QueryAndWrite(HostFile& file, const HostRequest& request, unsigned short defaultPort,
                  Milliseconds callLimit, const std::function<bool()>& stopped) {
  if (IsBadAddress(request.host)) return COOBHbaDiscover::kRefused;
  _RM_IP_INFO address{};
  const char* text = request.host.c_str();
  if (RM_RemoteOOBHostAddrV2(text, request.port.value_or(defaultPort), &address) != RM_STATUS_OK) {
    return COOBHbaDiscover::kRefused;
  }
  unsigned char registered[8] = {};
  RM_AddOOBAddressToLookupTable(&address, registered);
  // An IPv4 host's proxy address is made from its own.
  const CHbaEntry port(nullptr, nullptr, 0, registered, 1, &address);

  NodeAddresses names;
  const std::optional<int> status = AskForNames(text, address, names);
  if (!status) return COOBHbaDiscover::kRefused;
  if (*status != RM_STATUS_OK) RM_RemoveOOBAddrFromLookupTable(&address);
  if (*status != RM_STATUS_OK || names.Count() == 0) return COOBHbaDiscover::kNoAnswer;
  if (RM_IsLocalHBA(names[0].wwn) != 0) {
    disco_printf(kLogAdd, nullptr, "OOB: AddOOBHost %s is local host (not added)", text);
    return COOBHbaDiscover::kLocalHost;
  }
  // Zeros would ask this host.
  if (port.GetProxyAddress()[0] == 0) return COOBHbaDiscover::kNoAnswer;
  const std::string name = ReadHostName(port.GetProxyAddress(), names, kNamesLimit * callLimit, stopped);
  if (name.empty()) return COOBHbaDiscover::kNoAnswer;
  // An address that the provider cannot write down would leave a line without one.
  if (*IpText(address).Text() == '\0') return COOBHbaDiscover::kRefused;
  return WriteHost(file, FormLine(address, request.port, name));
}

}  // namespace

int COOBHbaDiscover::AddOOBHost(const char* host) {
  if (host == nullptr || m_Shared->state.load() == 0) return kRefused;
  std::string_view text(host);
  if (text == kTurnCacheOff) {
    disco_printf(kLogAdd, nullptr, "OOB: AddOOBHost - turning off cache");
    RM_OOBHandleCacheControl(0);
    return kAdded;
  }
  if (text == "0.0.0.0" || text == "255.255.255.255") return kAdded;
  text = SkipBlanks(text).substr(0, kMostHostCharacters);
  try {
    const std::optional<HostRequest> request = ParseRequest(text);
    const auto stopped = [this] { return m_Shared->state.load() == 0; };
    return request ? QueryAndWrite(m_HostFile, *request, m_OobPort.load(), m_Shared->callLimit, stopped)
                   : kRefused;
  } catch (...) {
    return kRefused;
  }
}

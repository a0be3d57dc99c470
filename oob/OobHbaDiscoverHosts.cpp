// The host files of out-of-band discovery, read into a cycle, and the removal of hosts.

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "log/DiscoveryLog.h"
#include "oob/HostEntry.h"
#include "oob/OobHbaDiscover.h"

namespace {

// The text of a host as it stands in its line; empty when there is none.
std::string_view CutHost(std::string_view host) {
  if (host.starts_with('[')) return SplitBrackets(host).host;
  return host.substr(0, host.find_first_of(HasTwoColons(host) ? kBlanks : " \t:"));
}

// The numbers between dots and colons, as an IPv4 address. A name or an IPv6 address gives one that no host
// has.
_RM_IP_INFO AddressFromNumbers(std::string_view text) {
  _RM_IP_INFO address{};
  Pieces pieces(text, ".:");
  for (int i = 0; i < 4; ++i) {
    const std::string number(pieces.Next());
    address.address[i] = static_cast<std::uint8_t>(std::strtol(number.c_str(), nullptr, 10));
  }
  return address;
}

void UpdateCimTable(const CIMCredentials& host) {
  CIMCredentials stored{};
  if (RM_GetCimHostEntry(&host, &stored) != RM_STATUS_OK) {
    disco_printf(kLogOob, nullptr, "OOB: Adding Cim host %s in RMAPI/CIMAPI List", host.hostAddress);
    RM_HandleCimHostEntry(&host, 0);
  } else if (std::memcmp(&host, &stored, sizeof(host)) != 0) {
    disco_printf(kLogOob, nullptr, "OOB: Updating Cim host %s in RMAPI/CIMAPI List", host.hostAddress);
    RM_HandleCimHostEntry(&host, 2);
  } else {
    disco_printf(kLogOob, nullptr, "OOB: Duplicate Cim host %s in RMAPI/CIMAPI List", host.hostAddress);
  }
}

}  // namespace

void COOBHbaDiscover::AddToCycle(const _RM_IP_INFO& address, const char* host) {
  const std::shared_ptr<OobCycle> cycle = m_Cycle->Get();
  if (cycle == nullptr) return;
  int added = 0;
  {
    const OobIpAddressListGuard guard(cycle->addresses);
    added = cycle->addresses.AddEntry(&address);
  }
  if (added != 0) {
    disco_printf(kLogOob, nullptr, "OOB: Adding host %s to host list", host);
  } else {
    disco_printf(kLogOob, nullptr, "OOB: Duplicate host %s in host file", host);
  }
}

// The file is read as a whole first: a name that takes long to resolve keeps no other process waiting.
void COOBHbaDiscover::ProcessHostsFile() {
  disco_printf(kLogOob, nullptr, "OOB: Processing host list");
  const std::optional<std::string> content = m_HostFile.Read([this] { return StopRequested(); });
  if (!content) {
    if (StopRequested()) return;
    disco_printf(kLogOob, nullptr, "OOB discovery - host file not found");
    m_Shared->answers->SetHosts({});
    return;
  }
  std::set<std::string> unusable;
  std::set<HostKey> usable;
  HostFilePieces pieces(*content);
  while (const auto piece = pieces.Next()) {
    if (StopRequested()) return;
    char* line = pieces.Line(*piece);
    unsigned short port = m_OobPort.load();
    if (ParseHostEntry(line, &port) == 0) continue;
    _RM_IP_INFO address{};
    if (IsBadAddress(line) || RM_RemoteOOBHostAddrV2(line, port, &address) != RM_STATUS_OK) {
      unusable.insert(line);
    } else {
      usable.insert(HostKeyOf(address));
      AddToCycle(address, line);
    }
  }
  m_Shared->answers->SetHosts(usable);
  TellUnusableHosts(std::move(unusable));
}

// Each is told once for as long as it stands there.
void COOBHbaDiscover::TellUnusableHosts(std::set<std::string> hosts) {
  const LockGuard guard(m_ToldLock);
  for (const std::string& host : hosts) {
    if (m_ToldHosts.count(host) != 0) continue;
    disco_printf(kLogDetails, nullptr, "OOB: Host %s in host file cannot be used", host.c_str());
  }
  m_ToldHosts = std::move(hosts);
}

void COOBHbaDiscover::ProcessCimHostsFile() {
  disco_printf(kLogOob, nullptr, "OOB: Processing Cim host list");
  const std::optional<std::string> content = m_CimFile.Read([this] { return StopRequested(); });
  if (!content) {
    if (StopRequested()) return;
    disco_printf(kLogOob, nullptr, "OOB discovery - cimhost file not found");
    return;
  }
  HostFilePieces pieces(*content);
  CIMCredentials host{};
  while (const auto piece = pieces.Next()) {
    if (StopRequested()) return;
    if (ParseCimHostEntry(pieces.Line(*piece), &host) == 0) continue;
    _RM_IP_INFO address{};
    if (RM_RemoteCimHostAddrV2(&host, static_cast<unsigned short>(host.port), &address) != RM_STATUS_OK)
      continue;
    AddToCycle(address, host.hostAddress);
    UpdateCimTable(host);
  }
}

void COOBHbaDiscover::ForgetHost(const _RM_IP_INFO& address) {
  for (COobIpAddressList* hosts : {&m_Shared->unreachableHosts, &m_Shared->silentHosts}) {
    const OobIpAddressListGuard guard(*hosts);
    hosts->RemoveEntry(&address);
  }
  RM_RemoveOOBAddrFromLookupTable(&address);
}

int COOBHbaDiscover::RemoveOOBHost(const char* host) {
  if (host == nullptr || m_Shared->state.load() == 0) return 0;
  try {
    const std::string text(CutHost(host));
    if (text.empty()) return 0;
    _RM_IP_INFO address{};
    if (!IsBadAddress(text) && RM_RemoteOOBHostAddrV2(text.c_str(), 0, &address) == RM_STATUS_OK) {
      ForgetHost(address);
    }
    return m_HostFile.RemoveHost(text) ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

int COOBHbaDiscover::RemoveCimHost(const CIMCredentials* credentials) {
  if (credentials == nullptr || m_Shared->state.load() == 0) return 0;
  try {
    const std::string text(credentials->hostAddress,
                           strnlen(credentials->hostAddress, sizeof(credentials->hostAddress)));
    ForgetHost(AddressFromNumbers(text));
    return m_CimFile.RemoveHost(text) ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

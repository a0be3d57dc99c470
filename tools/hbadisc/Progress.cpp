#include "tools/hbadisc/Progress.h"

#include <algorithm>

#include "include/hbadiscovery.h"
#include "tools/hbadisc/Unanswered.h"
#include "tools/hbadisc/Words.h"

namespace hbadisc {

std::string ProgressText(Scope scope, std::chrono::milliseconds elapsed) {
  hba_discovery_info_V4 record;
  const int ports = HBADisc_GetFirstHbaV4(&record, nullptr);
  HBADisc_GetNextHbaV4(nullptr);
  std::string text = "Looking for adapter ports: " + Counted(static_cast<std::size_t>(ports), "port");
  const std::vector<RemoteHost> hosts = scope == Scope::LocalHost ? std::vector<RemoteHost>() : ReadHosts();
  if (!hosts.empty()) {
    const auto asked = std::count_if(hosts.begin(), hosts.end(), WasAsked);
    text += ", " + std::to_string(asked) + " of " + Counted(hosts.size(), "host");
  }
  return text + ", " + std::to_string(std::chrono::duration_cast<std::chrono::seconds>(elapsed).count()) + " s";
}

}  // namespace hbadisc

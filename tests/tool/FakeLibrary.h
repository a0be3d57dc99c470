// A double of the discovery library: shows scripted pictures of ports and calls back as the script says.
//
// It keeps the library's contract where the tool could break it: during a walk only the port it stands on is
// known, room is respected, and a second walk while one is open ends the test.
//
// Thread safety: the script is set before discovery starts; afterwards everything is internally locked.
#ifndef TESTS_TOOL_FAKELIBRARY_H_
#define TESTS_TOOL_FAKELIBRARY_H_

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "include/hbadiscovery.h"

namespace fake {

struct VPort {
  discovery_vport_info record{};
  std::vector<RM_NodeInfoEntry> targets;
};

struct Port {
  hba_discovery_info_V3 record{};
  std::vector<RM_NodeInfoEntry> targets;
  std::vector<VPort> vports;
  std::vector<HBA_NAME> virtualFunctions;
  std::optional<discovery_iscsi_names> iscsiNames;
};

// What is there to see from now on, and the callback that tells.
struct Step {
  unsigned int reason = HBADISC_REASON_EVERY_CYCLE | HBADISC_REASON_FORCED;
  std::vector<Port> ports;
  unsigned int refreshReason = 0;    // of the callback after a directed refresh; 0: it never comes
  std::vector<Port> refreshed = {};  // what there is to see after it; empty: the same
  bool awaitWalk = true;             // the next step comes only after somebody has looked
};

// Starts over with a script; without steps there is no callback and no port.
void SetScript(std::vector<Step> steps);

struct Record {
  unsigned int interval = 0;
  unsigned int oobInterval = 0;
  int localOnly = 0;
  int startups = 0;
  int terminates = 0;
  unsigned int refreshWhat = 0;
  std::vector<std::string> hosts;  // "add HOST" and "remove HOST", as asked
  int walksEnded = 0;
  bool walkOpen = false;
};
Record Recorded();

// The hosts file, and what adding and removing a host answers.
void SetHosts(std::vector<hbadisc_oob_host> hosts, int addResult, int removeResult);

// Ports to script with: the name's last byte is `number`.
Port MakePort(unsigned char number, unsigned int features = 0);
RM_NodeInfoEntry MakeFcTarget(unsigned char number);
RM_NodeInfoEntry MakeIscsiTarget(const std::string& name, unsigned char flags);
VPort MakeVPort(unsigned char number, std::vector<RM_NodeInfoEntry> targets);

// Fills a text field, without a terminator when the text is as long as the field or longer.
template <std::size_t kSize>
void SetText(char (&field)[kSize], const std::string& text) {
  std::memset(field, 0, kSize);
  std::memcpy(field, text.data(), std::min(kSize, text.size()));
}

}  // namespace fake

#endif  // TESTS_TOOL_FAKELIBRARY_H_

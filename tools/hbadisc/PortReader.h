// Reads the library's records into ports.
//
// Thread safety: any thread, one at a time; the walk keeps the library's enumeration lock from its start to its
// end.
#ifndef TOOLS_HBADISC_PORTREADER_H_
#define TOOLS_HBADISC_PORTREADER_H_

#include <cstdint>
#include <vector>

#include "include/hbadiscovery.h"
#include "tools/hbadisc/Port.h"

namespace hbadisc {

enum class Details { None, All };

// Walks over all ports; the result has those of the scope. With details, each port is also asked for its
// targets, virtual ports and functions, and names, while the walk stands on it: the library knows no other port
// then. `sequence` (may be null) becomes the number of the last change that is in it.
std::vector<Port> ReadPorts(Details details, Scope scope, std::uint64_t* sequence = nullptr);

bool IsWanted(const hba_discovery_info_V4& record, Scope scope);

// What one record says, without details.
Port ToPort(const hba_discovery_info_V3& record);
Port ToPort(const hba_discovery_info_V4& record);
IscsiNames ToIscsiNames(const discovery_iscsi_names& names);

FcTarget ToFcTarget(const RM_NodeInfoEntry& record);

// The iSCSI target that lies in the first bytes of a target slot.
IscsiTarget ToIscsiTarget(const RM_NodeInfoEntry& slot);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_PORTREADER_H_

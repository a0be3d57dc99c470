// The target WWPNs known behind local ports.

#include <optional>

#include "inband/LocalHbaInfo.h"
#include "inband/RecordBuffer.h"
#include "log/DiscoveryLog.h"

namespace {

constexpr std::uint32_t kFirstNodeRoom = 256;
constexpr int kNoMemoryToGrow = 8;

// One call, and one more with the room that the first asks for. Nothing when there is no memory at all.
std::optional<int> ReadNodes(const unsigned char* wwn, NodeBuffer& nodes) {
  if (!nodes.Allocate(kFirstNodeRoom)) return std::nullopt;
  const int status = RM_GetAllNodeInfo(nullptr, wwn, nodes.Request());
  if (status != RM_STATUS_MORE_DATA && status != RM_STATUS_BUFFER_TOO_SMALL &&
      nodes.ReturnedCount() <= nodes.Room()) {
    return status;
  }
  if (!nodes.Grow()) {
    disco_printf(kLogInBand, wwn,
                 "UpdateAllDiscoPortsListWithTargets: Unable to allocate memory to get targets (%d)!",
                 nodes.Room());
    return kNoMemoryToGrow;
  }
  return RM_GetAllNodeInfo(nullptr, wwn, nodes.Request());
}

}  // namespace

void CPortInfo::UpdateAllDiscoPortsListWithTargets(const unsigned char* portInfo) {
  disco_printf(kLogInBand, portInfo, "Updating discovered ports list with targets for hba");
  NodeBuffer nodes;
  const std::optional<int> status = ReadNodes(portInfo, nodes);
  if (!status) {
    disco_printf(kLogInBand, portInfo, "ERROR - unable to allocate node info for get targets");
    return;
  }
  if (*status != RM_STATUS_OK) {
    disco_printf(kLogInBand, portInfo, "ERROR %d - unable to get targets", *status);
    return;
  }
  DiscoWWPNListGuard guard(m_AllDiscoPorts);
  for (std::uint32_t i = 0; i < nodes.Count(); ++i) {
    const RM_NodeInfoEntry& node = nodes[i];
    if ((node.nodeState & RM_NODE_EXISTS) == 0 || m_AllDiscoPorts.FindEntry(node.portWwn) != nullptr) continue;
    if (RM_IsVarnixPort(node.portWwn) == 0) continue;
    // The text contradicts the test; both are what users of the log know.
    disco_printf(kLogInBand, portInfo, "Adding non-Varnix port discovered ports list");
    m_AllDiscoPorts.AddEntry(node.portWwn, 0);
  }
}

// Takes this cycle's flags over as the known state. A name that is already listed is not flagged again when it
// is seen again, so a new name asks for a full cycle twice: in the cycle that adds it, and in the next, whose
// reset flag differs.
int CPortInfo::SettleDiscoPortFlags() {
  DiscoWWPNListGuard guard(m_AllDiscoPorts);
  bool changed = m_AllDiscoPorts.IsListChanged() != 0;
  for (CDiscoWWPNEntry* entry = m_AllDiscoPorts.GetFirstEntry(); entry != nullptr;
       entry = m_AllDiscoPorts.GetNextEntry()) {
    if (entry->IsDiscovered() == entry->IsDiscoveredDuringCyle()) continue;
    entry->SetDiscovered(entry->IsDiscoveredDuringCyle());
    changed = true;
  }
  return changed ? kTargetsChanged : kGoOn;
}

// What a lite cycle does about ports that the current list knows already.

#include <cstring>

#include "inband/LocalHbaInfo.h"
#include "inband/PortKind.h"
#include "inband/PortTargets.h"
#include "inband/PortVPorts.h"
#include "inband/RecordBuffer.h"
#include "log/DiscoveryLog.h"

namespace {

// A long name runs on into the second one.
const char* NameOf(const CTargetEntry& target) {
  return reinterpret_cast<const char*>(target.GetISCSITarget());
}

unsigned int FlagOf(const CTargetEntry& target, unsigned int bit) {
  return target.GetISCSITarget()->flags[0] & bit;
}

// The target of the same name, or null.
const CTargetEntry* FindSame(const CTargetList& list, const CTargetEntry& wanted) {
  unsigned int low = 0;
  unsigned int high = list.GetCount();
  while (low < high) {
    const unsigned int middle = low + (high - low) / 2;
    const int order = list.GetEntry(middle).CompareOrder(wanted);
    if (order == 0) return &list.GetEntry(middle);
    if (order < 0) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return nullptr;
}

bool HasTargetChanged(const unsigned char* wwn, const CTargetEntry& target, const CTargetEntry* old) {
  if (old == nullptr) {
    disco_printf(kLogInBand, wwn, "New iSCSI target %.512s found on local port", NameOf(target));
    return true;
  }
  const unsigned int sessions = FlagOf(target, RM_ISCSI_HAS_SESSIONS);
  if (sessions != FlagOf(*old, RM_ISCSI_HAS_SESSIONS)) {
    disco_printf(kLogInBand, wwn, "Target %.512s sessions value changed - new sessions=%s", NameOf(target),
                 sessions != 0 ? "has sessions" : "no sessions");
    return true;
  }
  const unsigned int connected = FlagOf(target, RM_ISCSI_CONNECTED);
  if (connected != FlagOf(*old, RM_ISCSI_CONNECTED)) {
    disco_printf(kLogInBand, wwn, "Target %.512s state changed - new state=%s", NameOf(target),
                 connected != 0 ? "connected" : "disconnected");
    return true;
  }
  return false;
}

// Stops at the first change and says which it is.
bool HaveTargetsChanged(const unsigned char* wwn, const CTargetList& before, const CTargetList& now) {
  if (before.GetCount() != now.GetCount()) return true;
  for (unsigned int i = 0; i < now.GetCount(); ++i) {
    const CTargetEntry& target = now.GetEntry(i);
    if (HasTargetChanged(wwn, target, FindSame(before, target))) return true;
  }
  for (unsigned int i = 0; i < before.GetCount(); ++i) {
    const CTargetEntry& target = before.GetEntry(i);
    if (FindSame(now, target) != nullptr) continue;
    disco_printf(kLogInBand, wwn, "Old iSCSI target %.512s no longer discovered local port", NameOf(target));
    return true;
  }
  return false;
}

// Ports of other hosts are visited only as long as their retries last.
bool NeedsVisit(CHbaEntry* listed) {
  return listed->IsLocalPort() != 0 || listed->GetTargetMapRetries() != 0;
}

// Whether slow discovery has this port, which is stamped then, so that its list keeps it.
bool StampIfSlow(CHbaList* slowList, const unsigned char* wwn, unsigned int mark) {
  if (slowList == nullptr) return false;
  HbaListGuard guard(*slowList);
  CHbaEntry* slow = slowList->FindEntry(wwn);
  if (slow == nullptr) return false;
  disco_printf(kLogInBand, wwn, "found on slow discovery list");
  slow->SetDiscoveryMark(mark);
  return true;
}

}  // namespace

std::optional<int> CPortInfo::CheckKnownPort(const LocalBoard& board) {
  const std::optional<int> stamped = StampKnownPort(board);
  if (stamped != kGoOn) return stamped;
  if (IsNICPort(board.info.specialFeatures) && HasVFCountChanged(board)) return kVFCountChanged;
  RevisitWhileRetriesLast(board);
  if (IsISCSIPort(board.info.specialFeatures)) UpdateISCSIPort(board);
  return kGoOn;
}

std::optional<int> CPortInfo::StampKnownPort(const LocalBoard& board) {
  if (m_pMainHbaList == nullptr) return std::nullopt;
  const unsigned char* wwn = board.info.portWwn;
  CHbaList& current = *m_pMainHbaList;
  HbaListGuard guard(current);
  CHbaEntry* listed = current.FindEntry(wwn);
  if (listed == nullptr) return std::nullopt;
  disco_printf(kLogInBand, wwn, "Found local HBA in main discovery list");
  listed->SetDiscoveryMark(m_DiscoveryMark);
  if (listed->GetLinkStatus() == board.linkStatus) return kGoOn;
  disco_printf(kLogInBand, wwn, "Local HBA port state changed");
  return kPortStateChanged;
}

// The provider is asked without the list's lock, so the port may be gone when its answer is there.
bool CPortInfo::HasVFCountChanged(const LocalBoard& board) const {
  const unsigned char* wwn = board.info.portWwn;
  VFBuffer functions;
  const auto ask = [&](RM_VFList* list) { return RM_GetVirtualFunctionList(nullptr, wwn, list); };
  if (AskGrowing(functions, kFirstVFRoom, ask) != RM_STATUS_OK) return false;
  CHbaList& current = *m_pMainHbaList;
  HbaListGuard guard(current);
  const CHbaEntry* listed = current.FindEntry(wwn);
  if (listed == nullptr || listed->GetVFCount() == functions.Count()) return false;
  disco_printf(kLogInBand, wwn, "Port VFCount changed. Doing full rediscovery");
  return true;
}

// A port's first targets may come late. Ports of other kinds use their retries up as well. A visit that makes
// up for one without an answer uses none up.
void CPortInfo::RevisitWhileRetriesLast(const LocalBoard& board) {
  CHbaList& current = *m_pMainHbaList;
  HbaListGuard guard(current);
  CHbaEntry* listed = current.FindEntry(board.info.portWwn);
  if (listed == nullptr || (listed->AreTargetsRead() && listed->GetTargetMapRetries() == 0)) return;
  const unsigned int features = board.info.specialFeatures;
  if (IsISCSIPort(features) || IsNICPort(features) || m_pDiscoPortsList == nullptr) return;
  CHbaEntry visit(*listed);
  visit.SetOldTargetCount(visit.GetTargetCount());
  CHbaList& ports = *m_pDiscoPortsList;
  HbaListGuard portsGuard(ports);
  ports.AddEntry(&visit);
}

// Takes names and targets over at once; that is a change for the application, but no reason for a full cycle.
void CPortInfo::UpdateISCSIPort(const LocalBoard& board) {
  const unsigned char* wwn = board.info.portWwn;
  CHbaList& current = *m_pMainHbaList;
  CHbaEntry copy;
  {
    HbaListGuard guard(current);
    CHbaEntry* listed = current.FindEntry(wwn);
    if (listed == nullptr) return;
    if (board.names.DifferFrom(*listed->GetISCSINames())) {
      board.names.StoreIn(listed->GetISCSINames());
      current.SetModified(1);
    }
    copy = *listed;
  }
  iSCSI_AddTargetInfo(&copy, m_Stopped, 0);
  if (!copy.AreTargetsRead()) return;
  HbaListGuard guard(current);
  CHbaEntry* listed = current.FindEntry(wwn);
  if (listed == nullptr) return;
  const bool changed = HaveTargetsChanged(wwn, listed->GetTargetList(), copy.GetTargetList());
  listed->TakeTargets(copy);
  if (!changed) return;
  disco_printf(kLogInBand, wwn, "Local port iSCSI target list changed");
  current.SetModified(1);
}

void CPortInfo::ProcessLiteDiscovery(CHbaList* slowList) {
  disco_printf(kLogInBand, nullptr, "Lite discovery - checking for previously discovered HBAs");
  if (m_pMainHbaList == nullptr || m_pDiscoPortsList == nullptr) return;
  CHbaList& current = *m_pMainHbaList;
  CHbaList& ports = *m_pDiscoPortsList;
  HbaListPairGuard guard(current, ports);
  for (CHbaEntry* port = ports.GetFirstEntry(); port != nullptr; port = ports.GetNextEntry()) {
    const HBA_info_v4& info = *port->GetHbaInfo();
    port->SetDiscoveryMark(m_DiscoveryMark);
    CHbaEntry* listed = current.FindEntry(info.portWwn);
    if (listed == nullptr) {
      if (StampIfSlow(slowList, info.portWwn, m_DiscoveryMark)) ports.RemoveCurrentEntry();
      continue;
    }
    disco_printf(kLogInBand, info.portWwn, "Found in main discovery list for system %.32s", info.hostName);
    listed->SetDiscoveryMark(m_DiscoveryMark);
    if (NeedsVisit(listed)) {
      port->SetHbaInfoValid();  // so that the worker reads no attributes
    } else {
      ports.RemoveCurrentEntry();
    }
  }
}

// How a cycle's new list becomes part of the current one.

#include <utility>

#include "log/DiscoveryLog.h"
#include "model/HbaList.h"

namespace {

// Merge marks. The first two outlive a merge, the last is set and taken back within one.
constexpr unsigned int kMergedMark = 0;
constexpr unsigned int kMatchedMark = 0xAB;
constexpr unsigned int kMissingMark = 0xFF;

unsigned int LogMask(bool inBand) {
  return inBand ? kLogInBand : kLogOob;
}

// Ends the system name at 31 characters.
void CutSystemName(CHbaEntry& port) {
  char(&name)[32] = port.GetHbaInfo()->hostName;
  name[sizeof(name) - 1] = '\0';
}

void LogRemoval(const CHbaEntry& port, bool inBand) {
  const unsigned char* wwpn = port.GetHbaInfo()->portWwn;
  const char* name = port.GetHbaInfo()->hostName;
  const unsigned char* proxy = port.GetProxyAddress();
  if (name[0] == '\0') {
    disco_printf(LogMask(inBand), wwpn, "MergeLists: No longer discovered -- removed from discovery list");
  } else if (inBand) {
    disco_printf(LogMask(inBand), wwpn,
                 "MergeLists: No longer discovered on system %.31s -- removed from discovery list", name);
  } else {
    disco_printf(
        LogMask(inBand), wwpn,
        "MergeLists: No longer discovered on system %.31s (%u.%u.%u.%u) -- removed from discovery list", name,
        proxy[4], proxy[5], proxy[6], proxy[7]);
  }
}

// Whether a port that in-band discovery no longer finds stays in the list.
bool KeepInBand(CHbaEntry& port) {
  if (port.IsLocalPort() != 0 && port.GetLinkStatus() == kLinkOverTemperature) {
    disco_printf(kLogInBand, port.GetHbaInfo()->portWwn,
                 "MergeLists: Keeping local adapter with above operating temperature");
    return true;
  }
  if (port.GetProxyAddress()[0] == 0) return false;
  port.SetProxyOnlyAccess(1);  // a remote host still knows it, which is no change for the application
  return true;
}

// Out-of-band discovery only takes back what nobody else has found.
bool KeepOutOfBand(const CHbaEntry& port) {
  return port.ProxyOnly() == 0;
}

}  // namespace

int CHbaList::MergeLists(CHbaList* newList, int inBand, int removeMissing) {
  if (newList == nullptr || newList == this) return 0;
  const HbaListPairGuard guard(*this, *newList);
  // What a merge that a failed allocation has cut short had changed was never reported.
  bool changed = std::exchange(m_MergeUnfinished, true);
  changed |= MergeMatching(*newList, removeMissing != 0);
  if (removeMissing != 0) changed |= RemoveMissing(inBand != 0);
  changed |= AddUnmatched(*newList, inBand != 0);
  m_MergeUnfinished = false;
  return changed ? 1 : 0;
}

bool CHbaList::MergeMatching(CHbaList& newList, bool removeMissing) {
  // A mark left by an intermediate merge would keep a port that this list has lost since then from being added.
  for (auto& [key, port] : newList.m_Ports) port.SetMergeMark(kMergedMark);

  bool changed = false;
  auto newer = newList.m_Ports.begin();
  for (CHbaEntry* port = GetFirstEntry(); port != nullptr; port = GetNextEntry()) {
    while (newer != newList.m_Ports.end() && newer->first < m_Current->first) ++newer;
    if (newer != newList.m_Ports.end() && newer->first == m_Current->first) {
      port->SetMergeMark(kMergedMark);
      changed |= port->MergeHbaEntry(&newer->second) != 0;
      newer->second.SetMergeMark(kMatchedMark);
    } else if (removeMissing) {
      port->SetMergeMark(kMissingMark);
    }
  }
  return changed;
}

bool CHbaList::RemoveMissing(bool inBand) {
  bool changed = false;
  for (CHbaEntry* port = GetFirstEntry(); port != nullptr; port = GetNextEntry()) {
    if (port->GetMergeMark() != kMissingMark) continue;
    port->SetMergeMark(kMergedMark);
    if (inBand ? KeepInBand(*port) : KeepOutOfBand(*port)) continue;
    CutSystemName(*port);
    LogRemoval(*port, inBand);
    RemoveCurrentEntry();
    changed = true;
  }
  return changed;
}

bool CHbaList::AddUnmatched(CHbaList& newList, bool inBand) {
  bool changed = false;
  for (CHbaEntry* port = newList.GetFirstEntry(); port != nullptr; port = newList.GetNextEntry()) {
    if (port->GetMergeMark() == kMatchedMark) continue;
    AddEntry(port);
    changed = true;
    // Only now: the added copy keeps the record as reported, else the next cycle's would differ from it.
    CutSystemName(*port);
    disco_printf(LogMask(inBand), port->GetHbaInfo()->portWwn, "MergeLists: Adding adapter on system %.31s",
                 port->GetHbaInfo()->hostName);
  }
  return changed;
}

// What makes a port "changed": equality of two entries, and the merge of a cycle's entry into the listed one.

#include <cassert>
#include <cstring>
#include <utility>

#include "model/HbaEntry.h"

namespace {

// The type byte is left out: the same host may be reached in either way.
bool SameProxyHost(const unsigned char* mine, const unsigned char* theirs) {
  return std::memcmp(mine + 1, theirs + 1, 7) == 0;
}

bool IsNullProxy(const unsigned char* proxyAddress) {
  static constexpr unsigned char nullProxy[8] = {};
  return std::memcmp(proxyAddress, nullProxy, sizeof(nullProxy)) == 0;
}

// A name that is not set differs from every text.
bool NameDiffers(const char* mine, const char* theirs) {
  return mine == nullptr || std::strcmp(mine, theirs) != 0;
}

// Stores `theirs` when it differs; whether it did.
template <typename Value>
bool TakeIfDifferent(Value& mine, const Value& theirs) {
  if (std::memcmp(&mine, &theirs, sizeof(Value)) == 0) return false;
  mine = theirs;
  return true;
}

// Two handles made for the comparison: neither entry's list is locked while its targets are looked at.
template <typename List>
bool SameList(const List& mine, const List& theirs) {
  return mine == &theirs;
}

}  // namespace

bool CHbaEntry::operator==(const CHbaEntry* other) const {
  if (other == nullptr) return false;
  const State& mine = m_State;
  const State& theirs = other->m_State;
  return mine.isLocal == theirs.isLocal && std::memcmp(&mine.info, &theirs.info, sizeof(mine.info)) == 0 &&
         SameProxyHost(mine.proxyAddress, theirs.proxyAddress) && mine.proxyOnly == theirs.proxyOnly &&
         SameList(GetTargetList(), other->GetTargetList()) && SameList(GetVPortList(), other->GetVPortList()) &&
         mine.linkStatus == theirs.linkStatus && mine.ipInfoValid == theirs.ipInfoValid &&
         std::memcmp(&mine.ipInfo, &theirs.ipInfo, sizeof(mine.ipInfo)) == 0 &&
         SameList(GetVFList(), other->GetVFList());
}

int CHbaEntry::MergeHbaEntry(const CHbaEntry* newer) {
  if (newer == nullptr) return 0;
  bool changed = TakeIfDifferent(m_State.linkStatus, newer->m_State.linkStatus);
  // An adapter that has just become too hot answers little that can be trusted: all else keeps its last good
  // value.
  if (changed && m_State.linkStatus == kLinkOverTemperature) return 1;

  assert(!(*this < *newer) && !(*newer < *this));
  changed |= TakeIfDifferent(m_State.info, newer->m_State.info);
  changed |= MergeProxyAddress(*newer);
  changed |= MergeIpInfo(*newer);
  if (m_State.proxyOnly != 0 && newer->m_State.proxyOnly == 0) {
    m_State.proxyOnly = 0;
    changed = true;
  }
  changed |= MergeISCSINames(*newer);
  changed |= MergeTargets(*newer);
  changed |= MergeVPorts(*newer);
  if (newer->m_State.targetsRead) {
    changed |= TakeIfDifferent(m_State.targetBindType, newer->m_State.targetBindType);
  }
  changed |= MergeVFs(*newer);
  if (newer->m_Details != nullptr) m_Details = newer->m_Details;
  return changed ? 1 : 0;
}

// A port that answered without a proxy this time is still known through the one it had.
bool CHbaEntry::MergeProxyAddress(const CHbaEntry& newer) {
  const unsigned char* theirs = newer.m_State.proxyAddress;
  if (IsNullProxy(theirs) || SameProxyHost(m_State.proxyAddress, theirs)) return false;
  SetProxyAddress(theirs);
  return true;
}

bool CHbaEntry::MergeIpInfo(const CHbaEntry& newer) {
  bool changed = TakeIfDifferent(m_State.ipInfoValid, newer.m_State.ipInfoValid);
  if (newer.GetProxyIpInfo() != nullptr) changed |= TakeIfDifferent(m_State.ipInfo, newer.m_State.ipInfo);
  return changed;
}

// The default name stays: a change of it alone is none.
bool CHbaEntry::MergeISCSINames(const CHbaEntry& newer) {
  const char* initiatorName = newer.m_ISCSINames.GetInitiatorName();
  const char* alias = newer.m_ISCSINames.GetAlias();
  if (!IsISCSIPort() || initiatorName == nullptr || alias == nullptr) return false;
  if (!NameDiffers(m_ISCSINames.GetInitiatorName(), initiatorName) &&
      !NameDiffers(m_ISCSINames.GetAlias(), alias)) {
    return false;
  }
  m_ISCSINames.SetNames(initiatorName, m_ISCSINames.GetDefaultName(), alias);
  return true;
}

// In this and the next two the mark comes last: without memory for the list nothing was taken over.
bool CHbaEntry::MergeTargets(const CHbaEntry& newer) {
  if (!newer.m_State.targetsRead) {
    m_State.targetsRead = false;
    // The visit that makes up for it reports a change only when it finds another number than is listed.
    m_State.oldTargetCount = GetTargetCount();
    return false;
  }
  const CTargetList theirs = newer.GetTargetList();
  const bool same = SameList(GetTargetList(), theirs);
  if (!same) ReplaceTargets(theirs.AsKind(IsISCSIPort()));
  m_State.targetsRead = true;
  return !same;
}

bool CHbaEntry::MergeVPorts(const CHbaEntry& newer) {
  bool same = true;
  if (newer.m_State.vportsRead) {
    CVPortList theirs = newer.GetVPortList();
    same = SameList(GetVPortList(), theirs);
    if (!same) ReplaceVPorts(std::move(theirs));
  }
  m_State.vportsRead = newer.m_State.vportsRead;
  return !same;
}

bool CHbaEntry::MergeVFs(const CHbaEntry& newer) {
  bool same = true;
  if (newer.m_State.vfsRead) {
    CVFList theirs = newer.GetVFList();
    same = SameList(GetVFList(), theirs);
    if (!same) ReplaceVFs(std::move(theirs));
  }
  m_State.vfsRead = newer.m_State.vfsRead;
  return !same;
}

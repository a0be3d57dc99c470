#include "model/VPorts.h"

#include <cstring>
#include <utility>

CVPortEntry::CVPortEntry(const HBA_info_v2* info) {
  if (info != nullptr) m_Info = *info;
}

CVPortEntry::CVPortEntry(const unsigned char* wwpn) {
  if (wwpn != nullptr) std::memcpy(m_Info.portWwn, wwpn, sizeof(m_Info.portWwn));
}

CVPortEntry::CVPortEntry(const CVPortEntry& other) : m_Info(other.m_Info), m_Targets(other.GetTargetList()) {}

CVPortEntry& CVPortEntry::operator=(const CVPortEntry& other) {
  CopyEntry(other);
  return *this;
}

void CVPortEntry::CopyEntry(const CVPortEntry& other) {
  if (this == &other) return;
  CTargetList targets = other.GetTargetList();  // ends with the old targets, and frees them without the lock
  m_Info = other.m_Info;
  const LockGuard guard(g_VPTargetLock);
  std::swap(m_Targets, targets);
}

unsigned int CVPortEntry::GetTargetCount() const {
  const LockGuard guard(g_VPTargetLock);
  return m_Targets.GetCount();
}

void CVPortEntry::ClearTargets() {
  CTargetList cleared;
  const LockGuard guard(g_VPTargetLock);
  std::swap(m_Targets, cleared);
}

void CVPortEntry::AddTarget(const RM_NodeInfoEntry* target) {
  if (target == nullptr) return;
  const CTargetEntry entry(target);
  const LockGuard guard(g_VPTargetLock);
  m_Targets.AddEntry(&entry);
}

CTargetList CVPortEntry::GetTargetList() const {
  const LockGuard guard(g_VPTargetLock);
  return m_Targets;
}

unsigned int CVPortEntry::GetTargets(RM_NodeInfoEntry* targets, unsigned int* count) const {
  return GetTargetList().CopyRecords(targets, count);
}

bool CVPortEntry::operator==(const CVPortEntry* other) const {
  if (other == nullptr || std::memcmp(&m_Info, &other->m_Info, sizeof(m_Info)) != 0) return false;
  const CTargetList theirs = other->GetTargetList();
  return GetTargetList() == &theirs;
}

int CVPortEntry::CompareKey(const unsigned char* wwpn) const {
  return std::memcmp(m_Info.portWwn, wwpn, sizeof(m_Info.portWwn));
}

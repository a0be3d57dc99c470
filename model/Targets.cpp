#include "model/Targets.h"

#include <algorithm>
#include <cstring>

namespace {

// A target name may run on into the second name: 512 bytes in all.
constexpr std::size_t kTargetNameBound = 512;
constexpr std::size_t kSecondNameBound = sizeof(_RM_ISCSI_TARGET::secondName);
constexpr std::size_t kDeviceNameBound = sizeof(RM_NodeInfoEntry::osDeviceName);
constexpr std::size_t kNameSize = sizeof(HBA_NAME);

static_assert(offsetof(_RM_ISCSI_TARGET, flags) == kTargetNameBound);

int SessionBits(const _RM_ISCSI_TARGET& target) {
  return target.flags[0] & (RM_ISCSI_HAS_SESSIONS | RM_ISCSI_CONNECTED);
}

}  // namespace

CTargetEntry::CTargetEntry() {
  std::memset(&m_Record, 0, sizeof(m_Record));
}

CTargetEntry::CTargetEntry(const RM_NodeInfoEntry* record) : CTargetEntry() {
  if (record != nullptr) std::memcpy(&m_Record, record, sizeof(*record));
}

CTargetEntry::CTargetEntry(const _RM_ISCSI_TARGET* record) : CTargetEntry() {
  if (record != nullptr) std::memcpy(&m_Record, record, sizeof(*record));
  m_IsISCSI = true;
}

int CTargetEntry::CompareOrder(const CTargetEntry& other) const {
  if (m_IsISCSI != other.m_IsISCSI) return m_IsISCSI ? -1 : 1;
  if (m_IsISCSI) return std::strncmp(TargetName(), other.TargetName(), kTargetNameBound);
  return CompareKey(other.m_Record.node.portWwn);
}

int CTargetEntry::CompareKey(const unsigned char* portWwn) const {
  return m_IsISCSI ? -1 : std::memcmp(m_Record.node.portWwn, portWwn, kNameSize);
}

bool CTargetEntry::operator==(const CTargetEntry* other) const {
  if (other == nullptr || m_IsISCSI != other->m_IsISCSI) return false;
  return m_IsISCSI ? EqualsISCSI(*other) : EqualsFC(*other);
}

bool CTargetEntry::EqualsISCSI(const CTargetEntry& other) const {
  const _RM_ISCSI_TARGET& mine = m_Record.iscsi;
  const _RM_ISCSI_TARGET& theirs = other.m_Record.iscsi;
  return std::strncmp(mine.secondName, theirs.secondName, kSecondNameBound) == 0 &&
         SessionBits(mine) == SessionBits(theirs);
}

bool CTargetEntry::EqualsFC(const CTargetEntry& other) const {
  const RM_NodeInfoEntry& mine = m_Record.node;
  const RM_NodeInfoEntry& theirs = other.m_Record.node;
  return mine.bindType == theirs.bindType && mine.nodeState == theirs.nodeState &&
         std::memcmp(mine.portWwn, theirs.portWwn, kNameSize) == 0 &&
         std::memcmp(mine.nodeWwn, theirs.nodeWwn, kNameSize) == 0 && mine.fcpLun == theirs.fcpLun &&
         std::strncmp(mine.osDeviceName, theirs.osDeviceName, kDeviceNameBound) == 0 &&
         mine.bus == theirs.bus && mine.target == theirs.target && mine.lun == theirs.lun;
}

CTargetList CTargetList::AsKind(bool iscsi) const {
  const unsigned int otherKind = iscsi ? CTargetEntry::kFCKind : CTargetEntry::kISCSIKind;
  if ((GetKinds() & otherKind) == 0) return *this;
  CTargetList list;
  for (unsigned int i = 0; i < GetCount(); ++i) {
    const CTargetEntry& target = GetEntry(i);
    const CTargetEntry entry =
        iscsi ? CTargetEntry(target.GetISCSITarget()) : CTargetEntry(target.GetTargetEntry());
    list.AddEntry(&entry);
  }
  return list;
}

bool CTargetList::IsIdentical(const CTargetList& other) const {
  if (GetCount() != other.GetCount()) return false;
  for (unsigned int i = 0; i < GetCount(); ++i) {
    const CTargetEntry& mine = GetEntry(i);
    const CTargetEntry& theirs = other.GetEntry(i);
    if (mine.IsISCSITarget() != theirs.IsISCSITarget() ||
        std::memcmp(mine.GetTargetEntry(), theirs.GetTargetEntry(), sizeof(RM_NodeInfoEntry)) != 0) {
      return false;
    }
  }
  return true;
}

unsigned int CTargetList::CopyRecords(RM_NodeInfoEntry* records, unsigned int* count) const {
  if (count == nullptr) return 0;
  const unsigned int total = GetCount();
  const unsigned int copied = records == nullptr ? 0 : std::min(*count, total);
  for (unsigned int i = 0; i < copied; ++i) {
    std::memcpy(&records[i], GetEntry(i).GetTargetEntry(), sizeof(RM_NodeInfoEntry));
  }
  *count = copied;
  return total - copied;
}

// The NPIV virtual ports of a port, by port WWN, each with its own Fibre Channel targets.
//
// Thread safety: an entry's targets are under g_VPTargetLock, which the calls take themselves; all else is for
// one thread at a time, the caller locks. Copies are independent.
//
// Ownership: a list owns its entries, copies of a list share them.
#ifndef MODEL_VPORTS_H_
#define MODEL_VPORTS_H_

#include "model/SharedSet.h"
#include "model/SubListLocks.h"
#include "model/Targets.h"
#include "rmapi/rmapi.h"
#include "thread/thread_annotations.h"

class CVPortEntry {
 public:
  CVPortEntry() = default;
  explicit CVPortEntry(const HBA_info_v2* info);    // null: a zero record
  explicit CVPortEntry(const unsigned char* wwpn);  // 8 bytes
  CVPortEntry(const CVPortEntry& other);
  CVPortEntry& operator=(const CVPortEntry& other);
  virtual ~CVPortEntry() = default;

  void CopyEntry(const CVPortEntry& other) EXCLUDES(g_VPTargetLock);

  HBA_info_v2* GetHbaInfo() { return &m_Info; }
  const HBA_info_v2* GetHbaInfo() const { return &m_Info; }

  unsigned int GetTargetCount() const EXCLUDES(g_VPTargetLock);
  void ClearTargets() EXCLUDES(g_VPTargetLock);
  void AddTarget(const RM_NodeInfoEntry* target) EXCLUDES(g_VPTargetLock);  // a known port WWN is ignored
  CTargetList GetTargetList() const EXCLUDES(g_VPTargetLock);

  // As CTargetList::CopyRecords.
  unsigned int GetTargets(RM_NodeInfoEntry* targets, unsigned int* count) const EXCLUDES(g_VPTargetLock);

  bool operator<(const CVPortEntry& other) const { return CompareOrder(other) < 0; }
  bool operator==(const CVPortEntry* other) const EXCLUDES(g_VPTargetLock);  // record and targets

  int CompareOrder(const CVPortEntry& other) const { return CompareKey(other.m_Info.portWwn); }
  int CompareKey(const unsigned char* wwpn) const;

 private:
  HBA_info_v2 m_Info{};
  CTargetList m_Targets GUARDED_BY(g_VPTargetLock);
};

// FindEntry takes an 8-byte port WWN.
class CVPortList : public SharedSet<CVPortEntry, const unsigned char*> {};

#endif  // MODEL_VPORTS_H_

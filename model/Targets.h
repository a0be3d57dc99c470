// The targets of a port: Fibre Channel targets by port WWN, iSCSI targets by name, iSCSI first.
//
// Thread safety: values; one thread at a time per object, the caller locks. Copies of a list are independent.
//
// Ownership: an entry holds its record, a list its entries (SharedSet.h says how copies share them).
#ifndef MODEL_TARGETS_H_
#define MODEL_TARGETS_H_

#include "model/SharedSet.h"
#include "rmapi/rmapi.h"

class CTargetEntry {
 public:
  CTargetEntry();
  explicit CTargetEntry(const RM_NodeInfoEntry* record);  // null: a zero record
  explicit CTargetEntry(const _RM_ISCSI_TARGET* record);
  CTargetEntry(const CTargetEntry& other) = default;
  CTargetEntry& operator=(const CTargetEntry& other) = default;
  virtual ~CTargetEntry() = default;

  void CopyEntry(const CTargetEntry& other) { *this = other; }

  // The 568 bytes of storage; for an iSCSI target the 516 bytes of its record and zeros.
  const RM_NodeInfoEntry* GetTargetEntry() const { return &m_Record.node; }
  const _RM_ISCSI_TARGET* GetISCSITarget() const { return &m_Record.iscsi; }
  bool IsISCSITarget() const { return m_IsISCSI; }

  bool operator<(const CTargetEntry& other) const { return CompareOrder(other) < 0; }

  // Whether nothing of interest changed: pairs are made by key first, so an iSCSI target's name is not looked
  // at; nor are a Fibre Channel target's address identifier, which may move, and its LUN identifier.
  bool operator==(const CTargetEntry* other) const;

  int CompareOrder(const CTargetEntry& other) const;
  int CompareKey(const unsigned char* portWwn) const;  // no iSCSI target is at such a key
  unsigned int KindBit() const { return m_IsISCSI ? kISCSIKind : kFCKind; }

  static constexpr unsigned int kFCKind = 1;
  static constexpr unsigned int kISCSIKind = 2;

 private:
  const char* TargetName() const { return reinterpret_cast<const char*>(&m_Record); }
  bool EqualsISCSI(const CTargetEntry& other) const;
  bool EqualsFC(const CTargetEntry& other) const;

  union {
    RM_NodeInfoEntry node;
    _RM_ISCSI_TARGET iscsi;
  } m_Record;
  bool m_IsISCSI = false;
};

// FindEntry takes an 8-byte port WWN and finds Fibre Channel targets only.
class CTargetList : public SharedSet<CTargetEntry, const unsigned char*> {
 public:
  // These targets as a port of that kind has them: this list itself when all are of the kind, else a new one
  // made from the same records.
  CTargetList AsKind(bool iscsi) const;

  // Whether every byte of every record is the same.
  bool IsIdentical(const CTargetList& other) const;

  // Copies as many records as fit, sets *count to their number, and returns how many did not fit. A null buffer
  // has no room; with a null count nothing happens.
  unsigned int CopyRecords(RM_NodeInfoEntry* records, unsigned int* count) const;
};

#endif  // MODEL_TARGETS_H_

// The world-wide port names that discovery has seen, and whether in this cycle and in the last.
//
// Thread safety: an entry is for one thread at a time. The caller holds the list's lock around walks and
// changes; the changed flag needs none.
//
// Ownership: a list owns copies of its entries; pointers to them hold until the entry is erased.
#ifndef MODEL_WWPNS_H_
#define MODEL_WWPNS_H_

#include <atomic>
#include <cstdint>
#include <map>

#include "model/ListGuard.h"
#include "rmapi/rmapi.h"
#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

class CDiscoWWPNEntry {
 public:
  explicit CDiscoWWPNEntry(const unsigned char* wwpn, int kind = 0);  // 8 bytes; null: zeros
  CDiscoWWPNEntry(const CDiscoWWPNEntry& other) = default;
  CDiscoWWPNEntry& operator=(const CDiscoWWPNEntry& other) = default;
  virtual ~CDiscoWWPNEntry() = default;

  int GetKind() const { return m_Kind; }
  const unsigned char* GetWWPN() const { return m_Wwpn.wwn; }
  int IsDiscovered() const { return m_Discovered; }
  void SetDiscovered(int discovered) { m_Discovered = discovered; }
  int IsDiscoveredDuringCyle() const { return m_DiscoveredDuringCycle; }
  void SetDiscoveredDuringCyle(int discovered) { m_DiscoveredDuringCycle = discovered; }

  bool operator<(const CDiscoWWPNEntry& other) const;

 private:
  int m_Kind;
  int m_Discovered = 1;
  int m_DiscoveredDuringCycle = 1;
  HBA_NAME m_Wwpn{};
};

class CAPABILITY("list") CDiscoWWPNList {
 public:
  CDiscoWWPNList() = default;
  virtual ~CDiscoWWPNList() = default;
  CDiscoWWPNList(const CDiscoWWPNList&) = delete;
  CDiscoWWPNList& operator=(const CDiscoWWPNList&) = delete;

  void LockList() ACQUIRE() NO_THREAD_SAFETY_ANALYSIS { m_Lock.GetLock(); }
  void UnlockList() RELEASE() NO_THREAD_SAFETY_ANALYSIS { m_Lock.ReleaseLock(); }

  // 1 when the name was new. Leaves the cursor at the name when it was present, else at the end.
  int AddEntry(const CDiscoWWPNEntry* entry) REQUIRES(this);
  int AddEntry(const unsigned char* wwpn, int kind) REQUIRES(this);
  int RemoveEntry(const CDiscoWWPNEntry* entry) REQUIRES(this);
  CDiscoWWPNEntry* FindEntry(const unsigned char* wwpn) REQUIRES(this);
  CDiscoWWPNEntry* GetFirstEntry() REQUIRES(this);
  CDiscoWWPNEntry* GetNextEntry() REQUIRES(this);
  unsigned int GetCount() const REQUIRES(this) { return static_cast<unsigned int>(m_Names.size()); }

  // Set when a name was added or removed; a reset of the cycle flags leaves it.
  int IsListChanged() const { return m_Changed.load(std::memory_order_relaxed); }
  void SetListChanged(int changed) { m_Changed.store(changed, std::memory_order_relaxed); }

  // No name counts as seen in this cycle any more. Uses the cursor.
  void ResetCycleDiscoveredPorts() REQUIRES(this);

 private:
  using Names = std::map<std::uint64_t, CDiscoWWPNEntry>;  // by WwpnKey

  CZylThreadLock m_Lock;
  std::atomic<int> m_Changed{0};  // atomic: read and cleared without the lock
  Names m_Names GUARDED_BY(this);
  Names::iterator m_Cursor GUARDED_BY(this) = m_Names.end();
};

using DiscoWWPNListGuard = ListGuard<CDiscoWWPNList>;

#endif  // MODEL_WWPNS_H_

// Adapter ports grouped by the host system they sit in.
//
// Thread safety: an entry is for one thread at a time. A list: the caller holds its lock around walks and
// changes; operator== takes both lists' locks itself, this one first.
//
// Ownership: a system owns copies of its ports, a list copies of its systems.
#ifndef MODEL_SYSTEMS_H_
#define MODEL_SYSTEMS_H_

#include <atomic>
#include <deque>
#include <map>
#include <optional>
#include <string>

#include "model/HbaEntry.h"
#include "model/ListGuard.h"
#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

class CHbaList;

class CSystemEntry {
 public:
  static constexpr unsigned int kMaxPorts = 256;

  CSystemEntry() = default;
  explicit CSystemEntry(const unsigned char* name);  // a text; null: no name
  CSystemEntry(const CSystemEntry& other);           // a missing name is copied as ""
  CSystemEntry& operator=(const CSystemEntry& other);
  virtual ~CSystemEntry() = default;

  void CopyEntry(const CSystemEntry& other) { *this = other; }

  int IsLocalSystem() const { return m_IsLocal; }
  void SetLocalSystem(int isLocal) { m_IsLocal = isLocal; }
  const char* GetSystemName() const { return m_Name ? m_Name->c_str() : nullptr; }

  void AddHbaEntry(const CHbaEntry* entry);  // ignored when null or when there are kMaxPorts
  unsigned int GetHbaCount() const { return static_cast<unsigned int>(m_Ports.size()); }
  CHbaEntry* GetHbaEntry(unsigned int index);  // null when there is no such port
  const CHbaEntry* GetHbaEntry(unsigned int index) const;

  // No name counts as "".
  bool operator<(const CSystemEntry& other) const;

  // Local flag, name, and the first 172 bytes of each port's record in the order of adding.
  bool operator==(const CSystemEntry* other) const;

 private:
  int m_IsLocal = 0;
  std::optional<std::string> m_Name;
  std::deque<CHbaEntry> m_Ports;  // adding moves none of them
};

class CAPABILITY("list") CSystemList {
 public:
  CSystemList() = default;
  virtual ~CSystemList() = default;
  CSystemList(const CSystemList&) = delete;
  CSystemList& operator=(const CSystemList&) = delete;

  void LockList() ACQUIRE() NO_THREAD_SAFETY_ANALYSIS { m_Lock.GetLock(); }
  void UnlockList() RELEASE() NO_THREAD_SAFETY_ANALYSIS { m_Lock.ReleaseLock(); }

  unsigned int GetCount() const { return m_Count.load(std::memory_order_relaxed); }  // as CHbaList::GetCount
  int AddEntry(const CSystemEntry* entry) REQUIRES(this);
  int RemoveEntry(const CSystemEntry* entry) REQUIRES(this);
  CSystemEntry* FindEntry(const unsigned char* name) REQUIRES(this);
  CSystemEntry* GetFirstEntry() REQUIRES(this);
  CSystemEntry* GetNextEntry() REQUIRES(this);
  bool operator==(CSystemList* other) EXCLUDES(this, other);

  // Systems are not listed: the list becomes empty, whatever the ports are.
  void CreateSystemListFromHbaList(CHbaList* ports) REQUIRES(this);
  void AddHbaEntryToSystemList(const CHbaEntry* /*entry*/) {}

 private:
  using Systems = std::map<std::string, CSystemEntry, std::less<>>;

  bool EqualsLocked(CSystemList& other) REQUIRES(this, other);

  CZylThreadLock m_Lock;
  std::atomic<unsigned int> m_Count{0};  // atomic: read without the lock; the size of m_Systems
  Systems m_Systems GUARDED_BY(this);
  Systems::iterator m_Cursor GUARDED_BY(this) = m_Systems.end();
};

using SystemListGuard = ListGuard<CSystemList>;

#endif  // MODEL_SYSTEMS_H_

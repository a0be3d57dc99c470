// The ordered, lockable list of adapter ports: the current picture, a cycle's new list, the slow list, a
// snapshot.
//
// Thread safety: the caller holds the list's lock (LockList, HbaListGuard) around walks and changes; the calls
// that EXCLUDE it take it themselves; GetCount, IsModified and SetModified need none. One walk at a time: the
// cursor belongs to the list.
//
// Lock order: after the controller's cycle lock, before the global locks of targets, virtual ports and virtual
// functions. Of two lists, the current one comes before a cycle's new list and before the slow list; MergeLists
// and operator== lock this list and then the other. Debug builds stop the process on the opposite order.
//
// Ownership: the list owns copies of what is added. Entry pointers stay valid until that entry is erased, and
// are safe to use only under the lock.
//
// Failed allocations: std::bad_alloc leaves a list as it was, but for MergeLists.
#ifndef MODEL_HBALIST_H_
#define MODEL_HBALIST_H_

#include <atomic>
#include <cstdint>
#include <map>

#include "model/HbaEntry.h"
#include "model/ListGuard.h"
#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

// What a list is for, as far as the lock order asks: a list is never locked while one of a later rank is held.
enum class ListRank {
  kPrivate,   // seen by one thread only, or merely read (snapshots): not checked
  kCurrent,   // the current list
  kGathered,  // a cycle's new list, the slow list
};

class CAPABILITY("list") CHbaList {
 public:
  explicit CHbaList(ListRank rank = ListRank::kPrivate) : m_Rank(rank) {}
  virtual ~CHbaList() = default;
  CHbaList(const CHbaList&) = delete;
  CHbaList& operator=(const CHbaList&) = delete;

  void LockList() ACQUIRE();
  void UnlockList() RELEASE();

  // Without the lock the number is one that the list has or had a moment ago, good for log lines.
  unsigned int GetCount() const { return m_Count.load(std::memory_order_relaxed); }

  // Adds a copy and returns 1, or returns 0 when the port is present; sets the modified flag in both cases.
  // Null: 0, nothing.
  int AddEntry(const CHbaEntry* entry) REQUIRES(this);

  // Erases the port of that name; 1 when it was there. A position on it moves to its successor.
  int RemoveEntry(const CHbaEntry* entry) REQUIRES(this);

  void SelectFirstEntry() REQUIRES(this);
  CHbaEntry* GetFirstEntry() REQUIRES(this);
  CHbaEntry* GetNextEntry() REQUIRES(this);
  CHbaEntry* InterlockedGetNextEntry() EXCLUDES(this);

  // Erases the entry that the walk returned last; the walk goes on with GetNextEntry as if nothing had
  // happened.
  int RemoveCurrentEntry() REQUIRES(this);

  CHbaEntry* FindEntry(const unsigned char* wwpn) REQUIRES(this);  // does not touch the walk

  // Reads all entries in order, without the walk.
  template <class Visit>
  void ForEach(Visit visit) const REQUIRES(this) {
    for (const auto& [key, entry] : m_Ports) visit(entry);
  }

  int IsModified() const { return m_Modified.load(std::memory_order_relaxed); }
  void SetModified(int modified) { m_Modified.store(modified, std::memory_order_relaxed); }

  // Same ports, each equal to its counterpart.
  bool operator==(CHbaList* other) EXCLUDES(this, other);

  // Folds the list of a cycle into this one; 1 when anything changed. `inBand` selects the rule of removal and
  // the log mask; with `removeMissing` the new list is complete, and what it lacks may go. A null list and this
  // list itself change nothing. After std::bad_alloc some ports are merged, and the next merge reports a change
  // on their account.
  int MergeLists(CHbaList* newList, int inBand, int removeMissing) EXCLUDES(this, newList);

 private:
  using Ports = std::map<std::uint64_t, CHbaEntry>;  // by WwpnKey

  void Erase(Ports::iterator port) REQUIRES(this);
  void StoreCount() REQUIRES(this);
  bool EqualsLocked(CHbaList& other) REQUIRES(this, other);

  bool MergeMatching(CHbaList& newList, bool removeMissing) REQUIRES(this, newList);
  bool RemoveMissing(bool inBand) REQUIRES(this);
  bool AddUnmatched(CHbaList& newList, bool inBand) REQUIRES(this, newList);

  const ListRank m_Rank;
  CZylThreadLock m_Lock;
  std::atomic<unsigned int> m_Count{0};  // atomic: read without the lock; the size of m_Ports
  std::atomic<int> m_Modified{0};        // atomic: read and cleared without the lock
  bool m_MergeUnfinished GUARDED_BY(this) = false;
  Ports m_Ports GUARDED_BY(this);
  Ports::iterator m_Current GUARDED_BY(this) = m_Ports.end();
  Ports::iterator m_Next GUARDED_BY(this) = m_Ports.end();
};

using HbaListGuard = ListGuard<CHbaList>;
using HbaListPairGuard = ListPairGuard<CHbaList>;

#endif  // MODEL_HBALIST_H_

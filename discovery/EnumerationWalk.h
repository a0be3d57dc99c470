// The one walk over the adapter ports that a process can make at a time, and the snapshot it walks.
//
// The enumeration lock is a gate, not a mutex: it stays closed between exported calls and may be opened by
// another thread than the one that closed it.
//
// A walk belongs to the thread that began it and to all that made a step of it: a thread may hand its walk to
// another one, and when a stop has cut it off, each of them opens the gate.
//
// Thread safety: internally locked. The internal lock is never held over a provider call, a list lock of the
// controller, or a wait for the gate.
#ifndef DISCOVERY_ENUMERATIONWALK_H_
#define DISCOVERY_ENUMERATIONWALK_H_

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <thread>
#include <utility>

#include "model/HbaList.h"
#include "rmapi/rmapi.h"
#include "thread/zyl_thread.h"

class EnumerationWalk {
 public:
  // Waits until no other thread walks and closes the gate; the walker itself starts over. False, with the gate
  // left alone, when `giveUp`, which is asked now and then while another thread walks, said so.
  bool Enter(bool (*giveUp)(std::thread::id walker)) EXCLUDES(m_Lock);

  // Walks `snapshot` (null: no ports) from its first entry. Calls `fill` with it and returns the number of
  // entries; with 0 the gate is open again.
  template <class Fill>
  unsigned int Begin(std::shared_ptr<CHbaList> snapshot, Fill fill) EXCLUDES(m_Lock);
  // Calls `fill` with the next entry and returns true; at the end drops the snapshot, opens the gate, returns
  // false.
  template <class Fill>
  bool Next(Fill fill) EXCLUDES(m_Lock);
  // Ends the walk if the calling thread is in one.
  void Abandon() EXCLUDES(m_Lock);
  // Drops the snapshot and leaves the gate as it is.
  void DropSnapshot() EXCLUDES(m_Lock);

  // The port that a per-port query may see, with the snapshot that keeps it alive.
  struct Port {
    std::shared_ptr<CHbaList> snapshot;  // null: there is none
    const CHbaEntry* entry = nullptr;    // null: not found
  };
  // During a walk only the port it stands on, else every port of the snapshot.
  Port Find(const HBA_NAME& wwpn) EXCLUDES(m_Lock);
  // As Find, after keeping `snapshot` for later queries unless another thread was faster.
  Port FindIn(std::shared_ptr<CHbaList> snapshot, const HBA_NAME& wwpn) EXCLUDES(m_Lock);

 private:
  Port FindLocked(const HBA_NAME& wwpn) REQUIRES(m_Lock);
  void DropLocked() REQUIRES(m_Lock);
  void OpenLocked() REQUIRES(m_Lock);
  void JoinLocked() REQUIRES(m_Lock);
  bool HeldByMe() const REQUIRES(m_Lock);

  CZylThreadLock m_Lock;
  std::condition_variable_any m_Opened;
  bool m_Held GUARDED_BY(m_Lock) = false;
  std::uint64_t m_Number GUARDED_BY(m_Lock) = 0;  // of the walk, or of the last one
  std::thread::id m_Beginner GUARDED_BY(m_Lock);
  std::thread::id m_Walker GUARDED_BY(m_Lock);  // made the last step
  std::shared_ptr<CHbaList> m_Snapshot GUARDED_BY(m_Lock);
  const CHbaEntry* m_Cursor GUARDED_BY(m_Lock) = nullptr;  // into m_Snapshot; null: no walk
};

template <class Fill>
unsigned int EnumerationWalk::Begin(std::shared_ptr<CHbaList> snapshot, Fill fill) {
  static_assert(noexcept(fill(std::declval<const CHbaEntry&>())), "the gate would stay closed");
  LockGuard guard(m_Lock);
  DropLocked();
  if (snapshot != nullptr) {
    HbaListGuard listGuard(*snapshot);
    m_Cursor = snapshot->GetFirstEntry();
  }
  if (m_Cursor == nullptr) {
    OpenLocked();
    return 0;
  }
  m_Snapshot = std::move(snapshot);
  fill(*m_Cursor);
  return m_Snapshot->GetCount();
}

template <class Fill>
bool EnumerationWalk::Next(Fill fill) {
  static_assert(noexcept(fill(std::declval<const CHbaEntry&>())), "the gate would stay closed");
  LockGuard guard(m_Lock);
  const bool walking = m_Cursor != nullptr;
  if (walking) {
    HbaListGuard listGuard(*m_Snapshot);
    m_Cursor = m_Snapshot->GetNextEntry();
  }
  if (m_Cursor != nullptr) {
    JoinLocked();
    fill(*m_Cursor);
    return true;
  }
  // Whoever reaches the end of the walk opens the gate. When the walk was cut off, by a stop, only its own
  // threads do: a stranger's call must not end another's walk.
  if (walking || HeldByMe()) OpenLocked();
  DropLocked();
  return false;
}

#endif  // DISCOVERY_ENUMERATIONWALK_H_

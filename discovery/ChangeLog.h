// The last changes, by number, and the descriptor that announces new ones.
//
// A port that has changed is kept as it was and as it is, which share what has not changed; the records that
// applications read are made when they are read. So a port that comes with a thousand targets costs little.
//
// Thread safety: internally locked; the lock is a leaf.
#ifndef DISCOVERY_CHANGELOG_H_
#define DISCOVERY_CHANGELOG_H_

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "include/hbadiscovery.h"
#include "model/HbaEntry.h"
#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

class ChangeLog {
 public:
  ChangeLog() = default;
  // Closes the descriptor.
  ~ChangeLog();
  ChangeLog(const ChangeLog&) = delete;
  ChangeLog& operator=(const ChangeLog&) = delete;

  // How many records are kept, at least 1.
  void SetLimit(std::uint64_t limit) EXCLUDES(m_Lock);

  // The changes of one port, of which at most one picture is null. Nothing when they are the same.
  void Add(const CHbaEntry* before, const CHbaEntry* after, std::int64_t time) EXCLUDES(m_Lock);
  // Makes the descriptor readable when there is something that was not announced yet.
  void Announce() EXCLUDES(m_Lock);

  std::uint64_t Last() const EXCLUDES(m_Lock);
  // As HBADisc_GetChanges.
  int Read(std::uint64_t after, hbadisc_change* changes, unsigned int* count) const EXCLUDES(m_Lock);
  // As HBADisc_GetChangeDescriptor.
  int Descriptor() EXCLUDES(m_Lock);

 private:
  struct Node {
    std::uint64_t first;  // number
    std::uint64_t count;  // of records
    std::int64_t time;
    std::optional<CHbaEntry> before;
    std::optional<CHbaEntry> after;
  };
  using Nodes = std::deque<std::shared_ptr<const Node>>;

  static unsigned int Expand(const Node& node, std::uint64_t after, hbadisc_change* changes, unsigned int room);
  std::uint64_t OldestLocked() const REQUIRES(m_Lock);

  mutable CZylThreadLock m_Lock;
  std::uint64_t m_Limit GUARDED_BY(m_Lock) = 10000;
  std::uint64_t m_Last GUARDED_BY(m_Lock) = 0;
  std::uint64_t m_Announced GUARDED_BY(m_Lock) = 0;
  Nodes m_Nodes GUARDED_BY(m_Lock);
  int m_Descriptor GUARDED_BY(m_Lock) = -1;
};

#endif  // DISCOVERY_CHANGELOG_H_

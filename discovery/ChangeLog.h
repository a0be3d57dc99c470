// The last changes, by number, and the descriptor that announces new ones.
//
// Thread safety: internally locked; the lock is a leaf. A batch is its maker's.
#ifndef DISCOVERY_CHANGELOG_H_
#define DISCOVERY_CHANGELOG_H_

#include <cstdint>
#include <list>
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

  // The changes of one port, without numbers yet.
  //
  // One that has come is kept as it came, sharing its lists with the picture, and made into records when these
  // are read: at first every port has come, each with all its targets. Of the others the records are kept, with
  // no more than what they are about: a port's lists would stay whole for each target that flaps.
  struct Node {
    struct Record {
      std::uint32_t kind;
      std::uint32_t values;
      HBA_NAME port;
      HBA_NAME vport;
      std::vector<unsigned char> before;
      std::vector<unsigned char> after;
    };
    std::uint64_t first = 0;  // number
    std::uint64_t count = 0;  // of records
    std::int64_t time = 0;
    std::optional<CHbaEntry> added;
    std::vector<Record> records;
  };
  using Batch = std::list<std::shared_ptr<Node>>;

  // How many records are kept, at least 1.
  void SetLimit(std::uint64_t limit) EXCLUDES(m_Lock);

  // Adds what differs between two pictures of one port, of which at most one is null.
  static void Add(Batch& batch, const CHbaEntry* before, const CHbaEntry* after, std::int64_t time);
  // Takes all of a batch over, and numbers it.
  void Append(Batch& batch) noexcept EXCLUDES(m_Lock);
  // Makes the descriptor readable when there is something that was not announced yet.
  void Announce() EXCLUDES(m_Lock);

  std::uint64_t Last() const EXCLUDES(m_Lock);
  // As HBADisc_GetChanges.
  int Read(std::uint64_t after, hbadisc_change* changes, unsigned int* count) const EXCLUDES(m_Lock);
  // As HBADisc_GetChangeDescriptor.
  int Descriptor() EXCLUDES(m_Lock);

 private:
  mutable CZylThreadLock m_Lock;
  std::uint64_t m_Limit GUARDED_BY(m_Lock) = 10000;
  std::uint64_t m_Last GUARDED_BY(m_Lock) = 0;
  std::uint64_t m_Announced GUARDED_BY(m_Lock) = 0;
  Batch m_Nodes GUARDED_BY(m_Lock);  // never changed once they are here
  int m_Descriptor GUARDED_BY(m_Lock) = -1;
};

#endif  // DISCOVERY_CHANGELOG_H_

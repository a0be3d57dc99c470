// Who was asked, and with what result: one record for each board, port or host.
//
// Thread safety: internally locked; the lock is a leaf. Ownership: a question refers to its book, which its
// owner keeps alive.
#ifndef MODEL_ANSWERBOOK_H_
#define MODEL_ANSWERBOOK_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <new>
#include <optional>

#include "rmapi/rmapi.h"
#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

// Milliseconds since the epoch by the system's clock.
std::int64_t NowMilliseconds();

// A host's address, and whether it is an IPv6 one; zeros: this host.
using HostKey = std::array<std::uint8_t, 17>;
HostKey HostKeyOf(const _RM_IP_INFO& host);

// Times in milliseconds since the epoch, 0: never.
struct AnswerRecord {
  int status = 0;           // of the last answer
  bool answered = false;    // that was one that tells what there is, or that there is nothing
  bool waited = false;      // the last failure took long
  unsigned int tries = 0;   // failed in a row
  std::int64_t since = 0;   // the first of these
  std::int64_t last = 0;    // the last answer of either kind
  std::int64_t good = 0;    // the last good one
  std::int64_t asking = 0;  // waits for an answer since then
  HBA_NAME port{};          // of a board: its port's name, once known

  bool Fails() const { return !answered && last != 0; }
  // Has not returned for a while: short waits are how things are read.
  bool Hangs(std::int64_t now) const { return asking != 0 && now - asking >= 1000; }
};

template <class Key>
class AnswerBook {
 public:
  // One question and its answer. When the object goes without one, the record is as before.
  class Question {
   public:
    // `book` may be null: nothing is noted.
    Question(AnswerBook* book, const Key& key) : m_Book(book), m_Key(key) {
      if (m_Book != nullptr) m_Book->Begin(m_Key);
    }
    ~Question() {
      if (m_Book != nullptr) m_Book->Leave(m_Key);
    }
    Question(const Question&) = delete;
    Question& operator=(const Question&) = delete;

    void Answer(int status, bool good, bool waited = false) {
      if (m_Book != nullptr) m_Book->Note(m_Key, status, good, waited);
    }
    // Of a board: the name that the answer has told.
    void NamesPort(const unsigned char* port) {
      if (m_Book == nullptr) return;
      m_Book->Put(m_Key, [port](AnswerRecord& record) { std::copy_n(port, 8, record.port.wwn); });
    }

   private:
    AnswerBook* const m_Book;
    const Key m_Key;
  };

  void Clear() EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    m_Records.clear();
  }
  // Forgets those for which `isGone`, given the key, says so; of those from one key to another alone.
  template <class IsGone>
  void Forget(IsGone isGone) EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    std::erase_if(m_Records, [&](const auto& entry) { return isGone(entry.first); });
  }
  template <class IsGone>
  void Forget(const Key& first, const Key& last, IsGone isGone) EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    const auto end = m_Records.upper_bound(last);
    for (auto record = m_Records.lower_bound(first); record != end;) {
      record = isGone(record->first) ? m_Records.erase(record) : std::next(record);
    }
  }
  std::map<Key, AnswerRecord> All() const EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    return m_Records;
  }
  std::optional<AnswerRecord> Find(const Key& key) const EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    const auto found = m_Records.find(key);
    return found == m_Records.end() ? std::nullopt : std::optional(found->second);
  }

 private:
  void Begin(const Key& key) EXCLUDES(m_Lock) {
    Put(key, [](AnswerRecord& record) { record.asking = NowMilliseconds(); });
  }
  void Leave(const Key& key) EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    const auto found = m_Records.find(key);
    if (found == m_Records.end()) return;
    found->second.asking = 0;
    if (found->second.last == 0) m_Records.erase(found);
  }
  void Note(const Key& key, int status, bool good, bool waited) EXCLUDES(m_Lock) {
    Put(key, [&](AnswerRecord& record) {
      record.status = status;
      record.answered = good;
      record.waited = !good && waited;
      record.last = NowMilliseconds();
      if (good) {
        record.good = record.last;
        record.tries = 0;
        record.since = 0;
      } else if (record.tries++ == 0) {
        record.since = record.last;
      }
    });
  }
  // Without memory nothing is noted: what was asked goes on all the same.
  template <class Change>
  void Put(const Key& key, Change change) noexcept EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    try {
      change(m_Records[key]);
    } catch (const std::bad_alloc&) {
    }
  }

  mutable CZylThreadLock m_Lock;
  std::map<Key, AnswerRecord> m_Records GUARDED_BY(m_Lock);
};

#endif  // MODEL_ANSWERBOOK_H_

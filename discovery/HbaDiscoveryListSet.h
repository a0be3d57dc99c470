// The common pattern of the target, virtual-port and virtual-function lists: an ordered set of values with a
// cursor.
//
// A set object is a handle: it holds the cursor and points at storage that copies of the handle share. Storage
// that was ever shared is immutable; a change through such a handle goes to a private clone first. Copying a
// handle therefore costs the same for 1 target as for 1000.
//
// Thread safety: one thread at a time per handle, the caller locks. Two handles of one storage are independent.
//
// Ownership: the storage owns the entries. Entry pointers stay valid until the handle they came from is
// changed, cleared or assigned to, or dies.
#ifndef DISCOVERY_HBADISCOVERYLISTSET_H_
#define DISCOVERY_HBADISCOVERYLISTSET_H_

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "discovery/HbaDiscoveryListMemory.h"

// An Entry has `int CompareOrder(const Entry&) const` and `int CompareKey(Key) const` (below, at, above 0 as
// memcmp) and `bool operator==(const Entry*) const`. It may have `unsigned int KindBit() const`.
template <typename Entry, typename Key>
class CSharedSet {
 public:
  CSharedSet() = default;
  CSharedSet(const CSharedSet& other) : m_Storage(other.Share()) {}
  CSharedSet(CSharedSet&& other) noexcept
      : m_Storage(std::move(other.m_Storage)), m_Cursor(std::exchange(other.m_Cursor, kEnd)) {}
  CSharedSet& operator=(CSharedSet other) noexcept {
    m_Storage.swap(other.m_Storage);
    m_Cursor = other.m_Cursor;
    return *this;
  }
  virtual ~CSharedSet() = default;

  // Adds a copy and returns 1; 0 when the key is present (the old entry stays) or `entry` is null. Leaves the
  // cursor at the entry that was present, else at the end.
  int AddEntry(const Entry* entry);

  const Entry* GetFirstEntry() {
    m_Cursor = 0;
    return GetNextEntry();
  }

  // The entry at the cursor, which moves on; null at the end.
  const Entry* GetNextEntry() { return m_Cursor < GetCount() ? m_Storage->entries[m_Cursor++].get() : nullptr; }

  // The entry or null; leaves the cursor there.
  const Entry* FindEntry(Key key);

  unsigned int GetCount() const {
    return m_Storage == nullptr ? 0U : static_cast<unsigned int>(m_Storage->entries.size());
  }

  // Empties this handle; handles that share its storage keep their entries.
  void Clear() {
    m_Storage.reset();
    m_Cursor = kEnd;
  }

  // Reads by position, without the cursor; `index` is below GetCount().
  const Entry& GetEntry(std::size_t index) const { return *m_Storage->entries[index]; }

  // Same keys, and each pair equal. Moves no cursor.
  bool operator==(const CSharedSet* other) const;

 protected:
  // The union of the entries' kind bits.
  unsigned int GetKinds() const { return m_Storage == nullptr ? 0U : m_Storage->kinds; }

 private:
  static constexpr std::size_t kEnd = static_cast<std::size_t>(-1);

  struct Storage {
    // Set when a second handle is made, never cleared: it can be read without asking who else lives, which no
    // reference count allows. Relaxed order is enough, because whoever owns a handle learned of it, and so of
    // this flag, through the lock or hand-over under which the handle was copied.
    std::atomic<bool> shared{false};
    unsigned int kinds = 0;
    std::vector<std::unique_ptr<const Entry>> entries;  // sorted; each in its own place, so that pointers hold
  };

  std::shared_ptr<Storage> Share() const {
    // Reads first, so that copying a handle again leaves the storage's cache line alone.
    if (m_Storage != nullptr && !m_Storage->shared.load(std::memory_order_relaxed)) {
      m_Storage->shared.store(true, std::memory_order_relaxed);
    }
    return m_Storage;
  }

  Storage& OwnStorage();
  std::size_t LowerBound(const Entry& entry) const;

  std::shared_ptr<Storage> m_Storage;  // null when empty
  std::size_t m_Cursor = kEnd;
};

template <typename Entry, typename Key>
int CSharedSet<Entry, Key>::AddEntry(const Entry* entry) {
  if (entry == nullptr) return 0;
  const std::size_t position = LowerBound(*entry);
  if (position < GetCount() && GetEntry(position).CompareOrder(*entry) == 0) {
    m_Cursor = position;
    return 0;
  }
  // Copied first: `entry` may live in the storage that is let go next.
  auto copy = std::make_unique<const Entry>(*entry);
  Storage& storage = OwnStorage();
  if constexpr (requires { copy->KindBit(); }) storage.kinds |= copy->KindBit();
  storage.entries.insert(storage.entries.begin() + static_cast<std::ptrdiff_t>(position), std::move(copy));
  m_Cursor = kEnd;
  return 1;
}

template <typename Entry, typename Key>
const Entry* CSharedSet<Entry, Key>::FindEntry(Key key) {
  m_Cursor = kEnd;
  if (m_Storage == nullptr) return nullptr;
  const auto& entries = m_Storage->entries;
  const auto found = std::lower_bound(entries.begin(), entries.end(), key, [](const auto& entry, Key wanted) {
    return entry->CompareKey(wanted) < 0;
  });
  if (found == entries.end() || (*found)->CompareKey(key) != 0) return nullptr;
  m_Cursor = static_cast<std::size_t>(found - entries.begin());
  return found->get();
}

template <typename Entry, typename Key>
bool CSharedSet<Entry, Key>::operator==(const CSharedSet* other) const {
  if (other == nullptr) return false;
  if (m_Storage == other->m_Storage) return true;
  if (GetCount() != other->GetCount()) return false;
  if (GetCount() == 0) return true;
  // Keys are unique and sorted on both sides, so pairing by position is pairing by key.
  return std::equal(m_Storage->entries.begin(), m_Storage->entries.end(), other->m_Storage->entries.begin(),
                    [](const auto& mine, const auto& theirs) {
                      return mine->CompareOrder(*theirs) == 0 && *mine == theirs.get();
                    });
}

// Storage that only this handle knows, with the same entries.
template <typename Entry, typename Key>
auto CSharedSet<Entry, Key>::OwnStorage() -> Storage& {
  if (m_Storage != nullptr && !m_Storage->shared.load(std::memory_order_relaxed)) return *m_Storage;
  auto own = std::allocate_shared<Storage>(ListHeadAllocator<Storage>());
  if (m_Storage != nullptr) {
    own->kinds = m_Storage->kinds;
    own->entries.reserve(m_Storage->entries.size() + 1);
    for (const auto& entry : m_Storage->entries) own->entries.push_back(std::make_unique<const Entry>(*entry));
  }
  m_Storage = std::move(own);
  return *m_Storage;
}

// The position of the first entry that is not below `entry`. Providers report in order, so the end comes first.
template <typename Entry, typename Key>
std::size_t CSharedSet<Entry, Key>::LowerBound(const Entry& entry) const {
  if (m_Storage == nullptr) return 0;
  const auto& entries = m_Storage->entries;
  if (entries.empty() || entries.back()->CompareOrder(entry) < 0) return entries.size();
  const auto found = std::lower_bound(
      entries.begin(), entries.end(), entry,
      [](const auto& listed, const Entry& wanted) { return listed->CompareOrder(wanted) < 0; });
  return static_cast<std::size_t>(found - entries.begin());
}

#endif  // DISCOVERY_HBADISCOVERYLISTSET_H_

// The common pattern of the target, virtual-port and virtual-function lists: an ordered set of values with a
// cursor.
//
// A set object is a handle: it holds the cursor and points at storage that copies of the handle share. Storage
// that was ever shared is immutable; a change through such a handle goes to a private clone first. Copying a
// handle therefore costs the same for 1 target as for 1000, but for the first copy after a change.
//
// Entries lie one behind the other in their order, as most providers report them. Those that come out of order
// wait in a tree until the set is read or copied, so that n additions in any order cost n log n.
//
// Thread safety: one thread at a time per handle, the caller locks. Two handles of one storage are independent.
//
// Ownership: the storage owns the entries. Entry pointers stay valid until the handle they came from is
// changed, cleared, assigned to or copied, or dies.
//
// Failed allocations: std::bad_alloc leaves a handle with the entries and the cursor that it had.
#ifndef MODEL_SHAREDSET_H_
#define MODEL_SHAREDSET_H_

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <iterator>
#include <memory>
#include <set>
#include <utility>
#include <vector>

// An Entry has `int CompareOrder(const Entry&) const` and `int CompareKey(Key) const` (below, at, above 0 as
// memcmp) and `bool operator==(const Entry*) const`. It may have `unsigned int KindBit() const`.
template <typename Entry, typename Key>
class SharedSet {
 public:
  SharedSet() = default;
  SharedSet(const SharedSet& other) : m_Storage(other.Share()) {}
  SharedSet(SharedSet&& other) noexcept
      : m_Storage(std::move(other.m_Storage)), m_Cursor(std::exchange(other.m_Cursor, nullptr)) {}
  SharedSet& operator=(const SharedSet& other) {
    *this = SharedSet(other);
    return *this;
  }
  SharedSet& operator=(SharedSet&& other) noexcept {
    m_Storage = std::move(other.m_Storage);
    m_Cursor = std::exchange(other.m_Cursor, nullptr);
    return *this;
  }
  virtual ~SharedSet() = default;

  // Adds a copy and returns 1; 0 when the key is present (the old entry stays) or `entry` is null. Leaves the
  // cursor at the entry that was present, else at the end.
  int AddEntry(const Entry* entry);

  const Entry* GetFirstEntry() {
    m_Cursor = GetCount() == 0 ? nullptr : &Sorted().front();
    return GetNextEntry();
  }

  // The entry at the cursor, which moves on; null at the end.
  const Entry* GetNextEntry() {
    if (m_Cursor == nullptr) return nullptr;
    const Entry& last = Sorted().back();
    return std::exchange(m_Cursor, m_Cursor == &last ? nullptr : m_Cursor + 1);
  }

  // The entry or null; leaves the cursor there.
  const Entry* FindEntry(Key key) { return m_Cursor = Find(key); }

  unsigned int GetCount() const { return m_Storage == nullptr ? 0U : m_Storage->GetCount(); }

  // Whether both show one storage, so that nothing can differ.
  bool IsSameStorage(const SharedSet& other) const { return m_Storage == other.m_Storage; }

  // Empties this handle; handles that share its storage keep their entries.
  void Clear() {
    m_Storage.reset();
    m_Cursor = nullptr;
  }

  // Reads by position, without the cursor; `index` is below GetCount().
  const Entry& GetEntry(std::size_t index) const { return Sorted()[index]; }

  // Same keys, and each pair equal. Moves no cursor.
  bool operator==(const SharedSet* other) const;

 protected:
  // The union of the entries' kind bits.
  unsigned int GetKinds() const { return m_Storage == nullptr ? 0U : m_Storage->kinds; }

 private:
  struct Before {
    using is_transparent = void;
    bool operator()(const Entry& one, const Entry& two) const { return one.CompareOrder(two) < 0; }
    bool operator()(const Entry& one, const Key& two) const { return one.CompareKey(two) < 0; }
    bool operator()(const Key& one, const Entry& two) const { return two.CompareKey(one) > 0; }
  };

  struct Storage {
    // Set when a second handle is made, never cleared: it can be read without asking who else lives, which no
    // reference count allows. Relaxed order is enough, because whoever owns a handle learned of it, and so of
    // this flag, through the lock or hand-over under which the handle was copied.
    std::atomic<bool> shared{false};
    unsigned int kinds = 0;
    std::vector<Entry> sorted;
    // All below the last one that is sorted. Null when there is none, as most often and once the storage is
    // shared.
    std::unique_ptr<std::set<Entry, Before>> late;

    unsigned int GetCount() const {
      return static_cast<unsigned int>(sorted.size() + (late == nullptr ? 0 : late->size()));
    }
  };

  std::shared_ptr<Storage> Share() const;
  std::shared_ptr<Storage> OwnStorage() const;
  const std::vector<Entry>& Sorted() const;
  void Settle() const;
  template <typename Wanted>
  const Entry* Find(const Wanted& wanted) const;

  std::shared_ptr<Storage> m_Storage;  // null when empty
  // Null at the end. Mutable: it follows its entry when entries are put in order.
  mutable const Entry* m_Cursor = nullptr;
};

template <typename Entry, typename Key>
int SharedSet<Entry, Key>::AddEntry(const Entry* entry) {
  if (entry == nullptr) return 0;
  const Entry* present = Find(*entry);
  if (present != nullptr) {
    m_Cursor = present;
    return 0;
  }
  std::shared_ptr<Storage> own = OwnStorage();
  if (own->sorted.empty() || Before()(own->sorted.back(), *entry)) {
    own->sorted.push_back(*entry);
  } else {
    if (own->late == nullptr) own->late = std::make_unique<std::set<Entry, Before>>();
    own->late->insert(*entry);
  }
  if constexpr (requires { entry->KindBit(); }) own->kinds |= entry->KindBit();
  m_Storage = std::move(own);
  m_Cursor = nullptr;
  return 1;
}

template <typename Entry, typename Key>
bool SharedSet<Entry, Key>::operator==(const SharedSet* other) const {
  if (other == nullptr) return false;
  if (m_Storage == other->m_Storage) return true;
  if (GetCount() != other->GetCount()) return false;
  if (GetCount() == 0) return true;
  // Keys are unique and sorted on both sides, so pairing by position is pairing by key.
  return std::equal(
      Sorted().begin(), Sorted().end(), other->Sorted().begin(),
      [](const Entry& mine, const Entry& theirs) { return mine.CompareOrder(theirs) == 0 && mine == &theirs; });
}

// The storage, which is immutable from now on and takes no more room than its entries need.
template <typename Entry, typename Key>
auto SharedSet<Entry, Key>::Share() const -> std::shared_ptr<Storage> {
  // Reads first, so that copying a handle again leaves the storage's cache line alone.
  if (m_Storage != nullptr && !m_Storage->shared.load(std::memory_order_relaxed)) {
    if (m_Storage->sorted.capacity() != m_Storage->sorted.size() || m_Storage->late != nullptr) Settle();
    m_Storage->shared.store(true, std::memory_order_relaxed);
  }
  return m_Storage;
}

// Storage that may be changed, with the same entries: this handle's, or a clone when others share that.
template <typename Entry, typename Key>
auto SharedSet<Entry, Key>::OwnStorage() const -> std::shared_ptr<Storage> {
  if (m_Storage != nullptr && !m_Storage->shared.load(std::memory_order_relaxed)) return m_Storage;
  auto own = std::make_shared<Storage>();
  if (m_Storage != nullptr) {
    own->kinds = m_Storage->kinds;
    own->sorted.reserve(m_Storage->sorted.size() + 1);
    own->sorted = m_Storage->sorted;
  }
  return own;
}

// All entries in order; there is at least one.
template <typename Entry, typename Key>
const std::vector<Entry>& SharedSet<Entry, Key>::Sorted() const {
  if (m_Storage->late != nullptr) Settle();
  return m_Storage->sorted;
}

template <typename Entry, typename Key>
void SharedSet<Entry, Key>::Settle() const {
  Storage& storage = *m_Storage;
  std::vector<Entry> all;
  all.reserve(storage.GetCount());
  if (storage.late == nullptr) {
    all = storage.sorted;
  } else {
    std::merge(storage.sorted.begin(), storage.sorted.end(), storage.late->begin(), storage.late->end(),
               std::back_inserter(all), Before());
  }
  if (m_Cursor != nullptr) m_Cursor = &*std::lower_bound(all.begin(), all.end(), *m_Cursor, Before());
  storage.sorted.swap(all);
  storage.late.reset();
}

template <typename Entry, typename Key>
template <typename Wanted>
const Entry* SharedSet<Entry, Key>::Find(const Wanted& wanted) const {
  if (m_Storage == nullptr) return nullptr;
  const auto& sorted = m_Storage->sorted;
  // Providers report in order, so the end comes first.
  if (sorted.empty() || Before()(sorted.back(), wanted)) return nullptr;
  const auto found = std::lower_bound(sorted.begin(), sorted.end(), wanted, Before());
  if (!Before()(wanted, *found)) return &*found;
  if (m_Storage->late == nullptr) return nullptr;
  const auto late = m_Storage->late->find(wanted);
  return late == m_Storage->late->end() ? nullptr : &*late;
}

#endif  // MODEL_SHAREDSET_H_

#include "discovery/HbaDiscoveryList.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "discovery/HbaDiscoveryListKey.h"
#include "discovery/HbaDiscoveryListMemory.h"

namespace {

#ifdef NDEBUG
constexpr bool kCheckLockOrder = false;
#else
constexpr bool kCheckLockOrder = true;
#endif

// How many lists of each rank this thread holds.
thread_local constinit std::array<unsigned int, 3> heldLists{};

void CheckLockOrder(ListRank rank) {
  if (rank != ListRank::kCurrent || heldLists[static_cast<std::size_t>(ListRank::kGathered)] == 0) return;
  std::fprintf(stderr, "CHbaList: the current list is locked after a cycle's or the slow list\n");
  std::abort();
}

// A walk would spend most of its time waiting for memory, so it asks for the ports ahead.
constexpr std::size_t kPrefetchDistance = 4;

void Prefetch(const CHbaEntry& port) {
  constexpr std::size_t kCacheLine = 64;
  const auto* bytes = reinterpret_cast<const char*>(&port);
  for (std::size_t offset = 0; offset < sizeof(port); offset += kCacheLine) __builtin_prefetch(bytes + offset);
}

}  // namespace

void CHbaList::LockList() NO_THREAD_SAFETY_ANALYSIS {
  if (kCheckLockOrder) CheckLockOrder(m_Rank);
  m_Lock.GetLock();
  if (kCheckLockOrder) ++heldLists[static_cast<std::size_t>(m_Rank)];
}

void CHbaList::UnlockList() NO_THREAD_SAFETY_ANALYSIS {
  if (kCheckLockOrder) --heldLists[static_cast<std::size_t>(m_Rank)];
  m_Lock.ReleaseLock();
}

void CHbaList::PortDeleter::operator()(CHbaEntry* port) const {
  std::pmr::polymorphic_allocator<>(memory).delete_object(port);
}

int CHbaList::AddEntry(const CHbaEntry* entry) {
  if (entry == nullptr) return 0;
  m_Modified.store(1, std::memory_order_relaxed);
  const std::uint64_t key = WwpnKey(entry->GetHbaInfo()->portWwn);
  const std::size_t position = PositionFor(key);
  if (IsAt(position, key)) return 0;
  std::pmr::memory_resource* memory = PackedMemory(&m_Memory);
  std::unique_ptr<CHbaEntry, PortDeleter> copy(
      std::pmr::polymorphic_allocator<>(memory).new_object<CHbaEntry>(*entry), PortDeleter{memory});
  m_Entries.insert(m_Entries.begin() + static_cast<std::ptrdiff_t>(position), Listed{key, std::move(copy)});
  if (m_Current >= position) ++m_Current;
  if (m_Next >= position) ++m_Next;
  m_Count.store(static_cast<unsigned int>(m_Entries.size()), std::memory_order_relaxed);
  return 1;
}

// The first entry that is not below the key. A copy of a list comes in order, so the end is tried first.
std::size_t CHbaList::PositionFor(std::uint64_t key) const {
  if (m_Entries.empty() || m_Entries.back().key < key) return m_Entries.size();
  const auto found =
      std::lower_bound(m_Entries.begin(), m_Entries.end(), key,
                       [](const Listed& listed, std::uint64_t wanted) { return listed.key < wanted; });
  return static_cast<std::size_t>(found - m_Entries.begin());
}

bool CHbaList::IsAt(std::size_t position, std::uint64_t key) const {
  return position < m_Entries.size() && m_Entries[position].key == key;
}

int CHbaList::RemoveEntry(const CHbaEntry* entry) {
  if (entry == nullptr) return 0;
  const std::uint64_t key = WwpnKey(entry->GetHbaInfo()->portWwn);
  const std::size_t position = PositionFor(key);
  if (!IsAt(position, key)) return 0;
  Erase(position);
  return 1;
}

// A position on the erased entry is then on its successor.
void CHbaList::Erase(std::size_t position) {
  m_Entries.erase(m_Entries.begin() + static_cast<std::ptrdiff_t>(position));
  if (m_Current > position) --m_Current;
  if (m_Next > position) --m_Next;
  m_Count.store(static_cast<unsigned int>(m_Entries.size()), std::memory_order_relaxed);
}

void CHbaList::SelectFirstEntry() {
  m_Current = 0;
  m_Next = 0;
}

CHbaEntry* CHbaList::GetFirstEntry() {
  SelectFirstEntry();
  return GetNextEntry();
}

CHbaEntry* CHbaList::GetNextEntry() {
  m_Current = m_Next;
  if (m_Current == m_Entries.size()) return nullptr;
  ++m_Next;
  const std::size_t ahead = m_Current + kPrefetchDistance;
  if (ahead < m_Entries.size()) Prefetch(*m_Entries[ahead].port);
  return m_Entries[m_Current].port.get();
}

CHbaEntry* CHbaList::InterlockedGetNextEntry() {
  const CHbaListGuard guard(*this);
  return GetNextEntry();
}

int CHbaList::RemoveCurrentEntry() {
  if (m_Current == m_Entries.size()) return 0;
  Erase(m_Current);
  m_Current = m_Next;
  return 1;
}

CHbaEntry* CHbaList::FindEntry(const unsigned char* wwpn) {
  if (wwpn == nullptr) return nullptr;
  const std::uint64_t key = WwpnKey(wwpn);
  const std::size_t position = PositionFor(key);
  return IsAt(position, key) ? m_Entries[position].port.get() : nullptr;
}

bool CHbaList::operator==(CHbaList* other) {
  if (other == nullptr) return false;
  if (other == this) return true;
  if (GetCount() != other->GetCount()) return false;
  const CHbaListPairGuard guard(*this, *other);
  return EqualsLocked(*other);
}

bool CHbaList::EqualsLocked(CHbaList& other) {
  if (m_Entries.size() != other.m_Entries.size()) return false;  // either may have changed before it was locked
  for (CHbaEntry* entry = GetFirstEntry(); entry != nullptr; entry = GetNextEntry()) {
    const CHbaEntry* counterpart = other.FindEntry(entry->GetHbaInfo()->portWwn);
    if (counterpart == nullptr || !(*entry == counterpart)) return false;
  }
  return true;
}

#include "model/HbaList.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "model/WwpnKey.h"

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

int CHbaList::AddEntry(const CHbaEntry* entry) {
  if (entry == nullptr) return 0;
  // A copy of a list comes in order, so the end is tried first.
  const std::size_t before = m_Ports.size();
  m_Ports.try_emplace(m_Ports.end(), WwpnKey(entry->GetHbaInfo()->portWwn), *entry);
  m_Modified.store(1, std::memory_order_relaxed);
  StoreCount();
  return m_Ports.size() == before ? 0 : 1;
}

int CHbaList::RemoveEntry(const CHbaEntry* entry) {
  if (entry == nullptr) return 0;
  const auto port = m_Ports.find(WwpnKey(entry->GetHbaInfo()->portWwn));
  if (port == m_Ports.end()) return 0;
  Erase(port);
  return 1;
}

// A position on the erased port moves to its successor.
void CHbaList::Erase(Ports::iterator port) {
  if (m_Current == port) m_Current = std::next(port);
  if (m_Next == port) m_Next = std::next(port);
  m_Ports.erase(port);
  StoreCount();
}

void CHbaList::StoreCount() {
  m_Count.store(static_cast<unsigned int>(m_Ports.size()), std::memory_order_relaxed);
}

void CHbaList::SelectFirstEntry() {
  m_Current = m_Ports.begin();
  m_Next = m_Current;
}

CHbaEntry* CHbaList::GetFirstEntry() {
  SelectFirstEntry();
  return GetNextEntry();
}

CHbaEntry* CHbaList::GetNextEntry() {
  m_Current = m_Next;
  if (m_Current == m_Ports.end()) return nullptr;
  ++m_Next;
  return &m_Current->second;
}

CHbaEntry* CHbaList::InterlockedGetNextEntry() {
  const HbaListGuard guard(*this);
  return GetNextEntry();
}

int CHbaList::RemoveCurrentEntry() {
  if (m_Current == m_Ports.end()) return 0;
  Erase(m_Current);
  m_Current = m_Next;
  return 1;
}

CHbaEntry* CHbaList::FindEntry(const unsigned char* wwpn) {
  if (wwpn == nullptr) return nullptr;
  const auto port = m_Ports.find(WwpnKey(wwpn));
  return port == m_Ports.end() ? nullptr : &port->second;
}

bool CHbaList::operator==(CHbaList* other) {
  if (other == nullptr) return false;
  if (other == this) return true;
  if (GetCount() != other->GetCount()) return false;
  const HbaListPairGuard guard(*this, *other);
  return EqualsLocked(*other);
}

bool CHbaList::EqualsLocked(CHbaList& other) {
  if (m_Ports.size() != other.m_Ports.size()) return false;  // either may have changed before it was locked
  // Ports are in order on both sides, so pairing by position is pairing by name.
  auto counterpart = other.m_Ports.begin();
  for (CHbaEntry* entry = GetFirstEntry(); entry != nullptr; entry = GetNextEntry(), ++counterpart) {
    if (m_Current->first != counterpart->first || !(*entry == &counterpart->second)) return false;
  }
  return true;
}

#include "model/Systems.h"

#include <cstring>
#include <iterator>
#include <string_view>

namespace {

// The part of a port's record whose change makes a system differ.
constexpr std::size_t kComparedRecordBytes = 172;

std::string_view NameOf(const CSystemEntry& system) {
  const char* name = system.GetSystemName();
  return name == nullptr ? "" : name;
}

}  // namespace

CSystemEntry::CSystemEntry(const unsigned char* name) {
  if (name != nullptr) m_Name = reinterpret_cast<const char*>(name);
}

CSystemEntry::CSystemEntry(const CSystemEntry& other)
    : m_IsLocal(other.m_IsLocal), m_Name(NameOf(other)), m_Ports(other.m_Ports) {}

CSystemEntry& CSystemEntry::operator=(const CSystemEntry& other) {
  if (this == &other) return *this;
  // Copied first, so that a failed allocation changes nothing.
  CSystemEntry copy(other);
  m_IsLocal = copy.m_IsLocal;
  m_Name.swap(copy.m_Name);
  m_Ports.swap(copy.m_Ports);
  return *this;
}

void CSystemEntry::AddHbaEntry(const CHbaEntry* entry) {
  if (entry == nullptr || m_Ports.size() == kMaxPorts) return;
  m_Ports.push_back(*entry);
}

CHbaEntry* CSystemEntry::GetHbaEntry(unsigned int index) {
  return index < m_Ports.size() ? &m_Ports[index] : nullptr;
}

const CHbaEntry* CSystemEntry::GetHbaEntry(unsigned int index) const {
  return index < m_Ports.size() ? &m_Ports[index] : nullptr;
}

bool CSystemEntry::operator<(const CSystemEntry& other) const {
  return NameOf(*this) < NameOf(other);
}

bool CSystemEntry::operator==(const CSystemEntry* other) const {
  if (other == nullptr || m_IsLocal != other->m_IsLocal || GetHbaCount() != other->GetHbaCount() ||
      NameOf(*this) != NameOf(*other)) {
    return false;
  }
  for (unsigned int i = 0; i < GetHbaCount(); ++i) {
    const HBA_info_v4* mine = GetHbaEntry(i)->GetHbaInfo();
    const HBA_info_v4* theirs = other->GetHbaEntry(i)->GetHbaInfo();
    if (std::memcmp(mine, theirs, kComparedRecordBytes) != 0) return false;
  }
  return true;
}

int CSystemList::AddEntry(const CSystemEntry* entry) {
  if (entry == nullptr) return 0;
  const bool added = m_Systems.try_emplace(std::string(NameOf(*entry)), *entry).second;
  m_Count.store(static_cast<unsigned int>(m_Systems.size()), std::memory_order_relaxed);
  return added ? 1 : 0;
}

int CSystemList::RemoveEntry(const CSystemEntry* entry) {
  if (entry == nullptr) return 0;
  const auto position = m_Systems.find(NameOf(*entry));
  if (position == m_Systems.end()) return 0;
  if (m_Cursor == position) m_Cursor = std::next(position);
  m_Systems.erase(position);
  m_Count.store(static_cast<unsigned int>(m_Systems.size()), std::memory_order_relaxed);
  return 1;
}

CSystemEntry* CSystemList::FindEntry(const unsigned char* name) {
  if (name == nullptr) return nullptr;
  const auto found = m_Systems.find(reinterpret_cast<const char*>(name));
  return found == m_Systems.end() ? nullptr : &found->second;
}

CSystemEntry* CSystemList::GetFirstEntry() {
  m_Cursor = m_Systems.begin();
  return GetNextEntry();
}

CSystemEntry* CSystemList::GetNextEntry() {
  return m_Cursor == m_Systems.end() ? nullptr : &(m_Cursor++)->second;
}

bool CSystemList::operator==(CSystemList* other) {
  if (other == nullptr) return false;
  if (other == this) return true;
  if (GetCount() != other->GetCount()) return false;
  const ListPairGuard<CSystemList> guard(*this, *other);
  return EqualsLocked(*other);
}

bool CSystemList::EqualsLocked(CSystemList& other) {
  if (m_Systems.size() != other.m_Systems.size()) return false;  // either may have changed before it was locked
  for (CSystemEntry* system = GetFirstEntry(); system != nullptr; system = GetNextEntry()) {
    const auto counterpart = other.m_Systems.find(NameOf(*system));
    if (counterpart == other.m_Systems.end() || !(*system == &counterpart->second)) return false;
  }
  return true;
}

void CSystemList::CreateSystemListFromHbaList(CHbaList* /*ports*/) {
  m_Systems.clear();
  m_Cursor = m_Systems.end();
  m_Count.store(0, std::memory_order_relaxed);
}

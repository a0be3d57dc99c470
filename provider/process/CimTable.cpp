#include "provider/process/CimTable.h"

#include <cstring>

namespace provider {

namespace {

constexpr std::size_t kMostEntries = 65'536;

}  // namespace

CimTable& CimTable::Get() {
  static CimTable& table = *new CimTable;
  return table;
}

std::string CimTable::AddressOf(const CIMCredentials& entry) {
  return std::string(entry.hostAddress, strnlen(entry.hostAddress, sizeof(entry.hostAddress)));
}

std::optional<CIMCredentials> CimTable::Find(const std::string& address) {
  const MutexLock held(m_Mutex);
  const auto found = m_Entries.find(address);
  return found == m_Entries.end() ? std::nullopt : std::optional(found->second);
}

int CimTable::Add(const CIMCredentials& entry) {
  const MutexLock held(m_Mutex);
  if (m_Entries.size() >= kMostEntries) return RM_STATUS_FAILED;
  return m_Entries.emplace(AddressOf(entry), entry).second ? RM_STATUS_OK : RM_STATUS_FAILED;
}

int CimTable::Update(const CIMCredentials& entry) {
  const MutexLock held(m_Mutex);
  const auto found = m_Entries.find(AddressOf(entry));
  if (found == m_Entries.end()) return RM_STATUS_NOT_FOUND;
  found->second = entry;
  return RM_STATUS_OK;
}

void CimTable::Clear() {
  const MutexLock held(m_Mutex);
  m_Entries.clear();
}

std::vector<CIMCredentials> CimTable::Entries() {
  const MutexLock held(m_Mutex);
  std::vector<CIMCredentials> entries;
  for (const auto& [address, entry] : m_Entries) entries.push_back(entry);
  return entries;
}

}  // namespace provider

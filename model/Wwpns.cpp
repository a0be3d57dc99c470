#include "model/Wwpns.h"

#include <cstring>
#include <iterator>

#include "model/WwpnKey.h"

CDiscoWWPNEntry::CDiscoWWPNEntry(const unsigned char* wwpn, int kind) : m_Kind(kind) {
  if (wwpn != nullptr) std::memcpy(m_Wwpn.wwn, wwpn, sizeof(m_Wwpn.wwn));
}

bool CDiscoWWPNEntry::operator<(const CDiscoWWPNEntry& other) const {
  return std::memcmp(&m_Wwpn, &other.m_Wwpn, sizeof(m_Wwpn)) < 0;
}

int CDiscoWWPNList::AddEntry(const CDiscoWWPNEntry* entry) {
  if (entry == nullptr) return 0;
  const auto [position, added] = m_Names.try_emplace(WwpnKey(entry->GetWWPN()), *entry);
  m_Cursor = added ? m_Names.end() : position;
  if (added) SetListChanged(1);
  return added ? 1 : 0;
}

int CDiscoWWPNList::AddEntry(const unsigned char* wwpn, int kind) {
  const CDiscoWWPNEntry entry(wwpn, kind);
  return AddEntry(&entry);
}

int CDiscoWWPNList::RemoveEntry(const CDiscoWWPNEntry* entry) {
  if (entry == nullptr) return 0;
  const auto position = m_Names.find(WwpnKey(entry->GetWWPN()));
  if (position == m_Names.end()) return 0;
  if (m_Cursor == position) m_Cursor = std::next(position);
  m_Names.erase(position);
  SetListChanged(1);
  return 1;
}

CDiscoWWPNEntry* CDiscoWWPNList::FindEntry(const unsigned char* wwpn) {
  if (wwpn == nullptr) return nullptr;
  const auto found = m_Names.find(WwpnKey(wwpn));
  return found == m_Names.end() ? nullptr : &found->second;
}

CDiscoWWPNEntry* CDiscoWWPNList::GetFirstEntry() {
  m_Cursor = m_Names.begin();
  return GetNextEntry();
}

CDiscoWWPNEntry* CDiscoWWPNList::GetNextEntry() {
  return m_Cursor == m_Names.end() ? nullptr : &(m_Cursor++)->second;
}

void CDiscoWWPNList::ResetCycleDiscoveredPorts() {
  for (CDiscoWWPNEntry* entry = GetFirstEntry(); entry != nullptr; entry = GetNextEntry()) {
    entry->SetDiscoveredDuringCyle(0);
  }
}

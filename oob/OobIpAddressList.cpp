#include "oob/OobIpAddressList.h"

#include <cstring>

COobIpAddressEntry::COobIpAddressEntry(const _RM_IP_INFO* address) {
  if (address != nullptr) m_IpInfo = *address;
}

bool COobIpAddressEntry::operator<(const COobIpAddressEntry& other) const {
  const bool mine = (m_IpInfo.flags & RM_IP_FLAG_IPV6) != 0;
  const bool theirs = (other.m_IpInfo.flags & RM_IP_FLAG_IPV6) != 0;
  if (mine != theirs) return theirs;
  const std::size_t size = mine ? sizeof(m_IpInfo.address) : 4;
  return std::memcmp(m_IpInfo.address, other.m_IpInfo.address, size) < 0;
}

int COobIpAddressList::AddEntry(const _RM_IP_INFO* address) {
  if (address == nullptr) return 0;
  return m_Entries.emplace(address).second ? 1 : 0;
}

int COobIpAddressList::RemoveEntry(const _RM_IP_INFO* address) {
  if (address == nullptr) return 0;
  const auto found = m_Entries.find(COobIpAddressEntry(address));
  if (found == m_Entries.end()) return 0;
  const bool atCursor = m_Cursor == found;
  const auto next = m_Entries.erase(found);
  if (atCursor) m_Cursor = next;
  return 1;
}

const COobIpAddressEntry* COobIpAddressList::FindEntry(const _RM_IP_INFO* address) const {
  if (address == nullptr) return nullptr;
  const auto found = m_Entries.find(COobIpAddressEntry(address));
  return found == m_Entries.end() ? nullptr : &*found;
}

const COobIpAddressEntry* COobIpAddressList::FirstEntry() {
  SelectFirstEntry();
  return NextEntry();
}

const COobIpAddressEntry* COobIpAddressList::NextEntry() {
  return m_Cursor == m_Entries.end() ? nullptr : &*m_Cursor++;
}

const COobIpAddressEntry* COobIpAddressList::InterlockedGetNextEntry() {
  const OobIpAddressListGuard guard(*this);
  return NextEntry();
}

// The addresses of remote hosts: an ordered, lockable set.
//
// Thread safety: the caller holds the list's lock around walks and changes; the calls that EXCLUDE it take it
// themselves. The lock is taken with no other list's lock held. Ownership: the list owns copies of what is
// added; entry pointers stay valid until that entry is removed.
#ifndef OOB_OOBIPADDRESSLIST_H_
#define OOB_OOBIPADDRESSLIST_H_

#include <set>

#include "model/ListGuard.h"
#include "rmapi/rmapi.h"
#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

class COobIpAddressEntry {
 public:
  COobIpAddressEntry() = default;
  explicit COobIpAddressEntry(const _RM_IP_INFO* address);  // null: all zero
  COobIpAddressEntry(const COobIpAddressEntry&) = default;
  COobIpAddressEntry& operator=(const COobIpAddressEntry&) = default;
  virtual ~COobIpAddressEntry() = default;

  void CopyEntry(const COobIpAddressEntry& other) { *this = other; }
  const _RM_IP_INFO* GetIpAddress() const { return &m_IpInfo; }

  // IPv4 before IPv6, then by the bytes of the address. Neither the port nor another flag takes part.
  bool operator<(const COobIpAddressEntry& other) const;

 private:
  _RM_IP_INFO m_IpInfo{};
};

class CAPABILITY("list") COobIpAddressList {
 public:
  COobIpAddressList() = default;
  virtual ~COobIpAddressList() = default;
  COobIpAddressList(const COobIpAddressList&) = delete;
  COobIpAddressList& operator=(const COobIpAddressList&) = delete;

  void LockList() ACQUIRE() NO_THREAD_SAFETY_ANALYSIS { m_Lock.GetLock(); }
  void UnlockList() RELEASE() NO_THREAD_SAFETY_ANALYSIS { m_Lock.ReleaseLock(); }

  // 1 when the address was new; the entry that is there stays. Null: 0.
  int AddEntry(const _RM_IP_INFO* address) REQUIRES(this);
  // 1 when the address was there. A cursor on it moves to its successor.
  int RemoveEntry(const _RM_IP_INFO* address) REQUIRES(this);
  const COobIpAddressEntry* FindEntry(const _RM_IP_INFO* address) const REQUIRES(this);

  const COobIpAddressEntry* FirstEntry() REQUIRES(this);
  const COobIpAddressEntry* NextEntry() REQUIRES(this);
  void SelectFirstEntry() REQUIRES(this) { m_Cursor = m_Entries.begin(); }
  const COobIpAddressEntry* InterlockedGetNextEntry() EXCLUDES(this);

  unsigned int GetCount() const REQUIRES(this) { return static_cast<unsigned int>(m_Entries.size()); }

 private:
  using Entries = std::set<COobIpAddressEntry>;

  CZylThreadLock m_Lock;
  Entries m_Entries GUARDED_BY(this);
  Entries::iterator m_Cursor GUARDED_BY(this) = m_Entries.end();
};

using OobIpAddressListGuard = ListGuard<COobIpAddressList>;

#endif  // OOB_OOBIPADDRESSLIST_H_

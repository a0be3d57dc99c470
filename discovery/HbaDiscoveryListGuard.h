// Scoped locks for the lists that carry their own lock (LockList, UnlockList).
//
// Thread safety: a guard belongs to the scope that made it.
//
// Ownership: a guard refers to its list; where a list may be replaced meanwhile, the scope keeps a shared_ptr
// to it.
#ifndef DISCOVERY_HBADISCOVERYLISTGUARD_H_
#define DISCOVERY_HBADISCOVERYLISTGUARD_H_

#include "thread/thread_annotations.h"

template <typename List>
class SCOPED_CAPABILITY CListGuard {
 public:
  explicit CListGuard(List& list) ACQUIRE(list) : m_List(list) { m_List.LockList(); }
  ~CListGuard() RELEASE() { m_List.UnlockList(); }
  CListGuard(const CListGuard&) = delete;
  CListGuard& operator=(const CListGuard&) = delete;

 private:
  List& m_List;
};

// Locks two different lists, the first one first, and frees them in that order too.
template <typename List>
class SCOPED_CAPABILITY CListPairGuard {
 public:
  CListPairGuard(List& first, List& second) ACQUIRE(first, second) : m_First(first), m_Second(second) {
    m_First.LockList();
    m_Second.LockList();
  }
  ~CListPairGuard() RELEASE() {
    m_First.UnlockList();
    m_Second.UnlockList();
  }
  CListPairGuard(const CListPairGuard&) = delete;
  CListPairGuard& operator=(const CListPairGuard&) = delete;

 private:
  List& m_First;
  List& m_Second;
};

#endif  // DISCOVERY_HBADISCOVERYLISTGUARD_H_

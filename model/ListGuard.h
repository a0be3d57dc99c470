// Scoped locks for the lists that carry their own lock (LockList, UnlockList).
//
// Thread safety: a guard belongs to the scope that made it.
//
// Ownership: a guard refers to its list; where a list may be replaced meanwhile, the scope keeps a shared_ptr
// to it.
#ifndef MODEL_LISTGUARD_H_
#define MODEL_LISTGUARD_H_

#include "thread/thread_annotations.h"

template <typename List>
class SCOPED_CAPABILITY ListGuard {
 public:
  explicit ListGuard(List& list) ACQUIRE(list) : m_List(list) { m_List.LockList(); }
  ~ListGuard() RELEASE() { m_List.UnlockList(); }
  ListGuard(const ListGuard&) = delete;
  ListGuard& operator=(const ListGuard&) = delete;

 private:
  List& m_List;
};

// Locks two different lists, the first one first, and frees them in that order too.
template <typename List>
class SCOPED_CAPABILITY ListPairGuard {
 public:
  ListPairGuard(List& first, List& second) ACQUIRE(first, second) : m_First(first), m_Second(second) {
    m_First.LockList();
    m_Second.LockList();
  }
  ~ListPairGuard() RELEASE() {
    m_First.UnlockList();
    m_Second.UnlockList();
  }
  ListPairGuard(const ListPairGuard&) = delete;
  ListPairGuard& operator=(const ListPairGuard&) = delete;

 private:
  List& m_First;
  List& m_Second;
};

#endif  // MODEL_LISTGUARD_H_

// A shared pointer that several threads read and replace.
//
// Thread safety: internally locked. The lock is a leaf: nothing else is taken under it.
#ifndef THREAD_SHAREDSLOT_H_
#define THREAD_SHAREDSLOT_H_

#include <memory>
#include <utility>

#include "thread/zyl_thread.h"

template <class T>
class SharedSlot {
 public:
  std::shared_ptr<T> Get() const EXCLUDES(m_Lock) {
    LockGuard guard(m_Lock);
    return m_Value;
  }

  void Set(std::shared_ptr<T> value) EXCLUDES(m_Lock) {
    {
      LockGuard guard(m_Lock);
      m_Value.swap(value);
    }
    // The old value is dropped here, without the lock: its destructor may be long.
  }

 private:
  mutable CZylThreadLock m_Lock;
  std::shared_ptr<T> m_Value GUARDED_BY(m_Lock);
};

#endif  // THREAD_SHAREDSLOT_H_

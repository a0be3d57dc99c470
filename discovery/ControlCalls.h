// The control calls of the application that are under way and may wait for a cycle, and so for a callback.
//
// Thread safety: internally locked; the lock is a leaf.
#ifndef DISCOVERY_CONTROLCALLS_H_
#define DISCOVERY_CONTROLCALLS_H_

#include <thread>

#include "thread/zyl_thread.h"

class ControlCalls {
 public:
  // Notes that this thread is inside such a call. Inside a callback none waits, and none is noted.
  //
  // Ownership: lives on the caller's stack; nothing is allocated.
  class Scope {
   public:
    explicit Scope(ControlCalls& calls);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    ControlCalls* const m_Calls;
    const std::thread::id m_Thread;
    Scope* m_Next = nullptr;  // guarded by the lock of the calls

    friend class ControlCalls;
  };

  bool Has(std::thread::id thread) const EXCLUDES(m_Lock);

 private:
  mutable CZylThreadLock m_Lock;
  Scope* m_First GUARDED_BY(m_Lock) = nullptr;  // a chain
};

#endif  // DISCOVERY_CONTROLCALLS_H_

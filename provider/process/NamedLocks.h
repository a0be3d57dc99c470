// Locks that processes share by name: files locked with flock, so that a lock dies with its holder, behind a
// gate that lets one thread of this process at a time ask for the file.
//
// The files are in /run/lock/varnix, or in /run/varnix when somebody else has made that directory; a process
// that may use neither takes one of its user's own, /tmp/varnix-locks-<uid>. A directory that others could
// write to, or a file that is none, is refused.
//
// Thread safety: every call may be made from any thread, before main and after exit has begun. A lock may be
// given back by another thread than the one that took it. It is not recursive: a second Acquire waits, also on
// the same thread. A child made by fork holds no lock, whatever its parent holds.
#ifndef PROVIDER_PROCESS_NAMEDLOCKS_H_
#define PROVIDER_PROCESS_NAMEDLOCKS_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "provider/base/Mutex.h"

namespace provider {

class NamedLocks {
 public:
  using Handle = std::intptr_t;

  // The process's locks; never destroyed.
  static NamedLocks& Get();

  // A handle of its own for each call, 0 when the lock's file cannot be made. `kind` keeps locks apart that
  // happen to bear the same name.
  Handle Open(std::string_view kind, std::string_view name);
  // The one handle of that lock in this process.
  Handle OpenShared(std::string_view kind, std::string_view name);

  // Waits, however long, until the lock is free. False when the handle is not open (any more) or the lock's
  // file cannot be opened.
  bool Acquire(Handle handle);
  // False when the lock was not taken through this handle.
  bool Release(Handle handle);
  // Gives the lock back if it was taken through this handle, and turns those away who wait on it.
  bool Close(Handle handle);

 private:
  struct Lock {
    std::string file;
    Handle holder = 0;      // who is through the gate, 0 nobody
    int descriptor = -1;    // of the lock's file, while somebody is
    bool acquired = false;  // the holder has the file's lock too
  };

  NamedLocks();
  Handle OpenLocked(const std::string& file) REQUIRES(m_Mutex);
  std::shared_ptr<Lock> Find(Handle handle) REQUIRES(m_Mutex);
  bool LockFile(Lock& lock);
  bool OpenFile(Lock& lock);
  void LeaveGate(Lock& lock) REQUIRES(m_Mutex);
  static void BeforeFork() NO_THREAD_SAFETY_ANALYSIS;
  static void AfterForkInParent() NO_THREAD_SAFETY_ANALYSIS;
  static void AfterForkInChild() NO_THREAD_SAFETY_ANALYSIS;

  Mutex m_Mutex;
  // Replaced in a forked child, where it may have waiters that do not exist.
  std::unique_ptr<Condition> m_GateOpened = std::make_unique<Condition>();
  std::map<std::string, std::shared_ptr<Lock>> m_Locks GUARDED_BY(m_Mutex);  // by file name
  std::map<Handle, std::shared_ptr<Lock>> m_Handles GUARDED_BY(m_Mutex);
  std::map<std::string, Handle> m_SharedHandles GUARDED_BY(m_Mutex);  // by file name
  Handle m_LastHandle GUARDED_BY(m_Mutex) = 0;
};

}  // namespace provider

#endif  // PROVIDER_PROCESS_NAMEDLOCKS_H_

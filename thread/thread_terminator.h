// Takes over threads that have to stop without anybody waiting for them.
#ifndef THREAD_THREAD_TERMINATOR_H_
#define THREAD_THREAD_TERMINATOR_H_

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

// A background thread that keeps the threads handed to it and drops each when it has ended. A thread stuck in
// a slow call delays nobody: neither the hand-over, nor another thread, nor whoever stops the terminator.
//
// Thread safety: every operation may be called from any thread.
// Ownership: shared by its maker and its own thread. Shares the threads handed over until they have ended; one
// that may still run when a terminator is stopped must be shared by its own routine too.
class CThreadTerminator : public CZylThread {
 public:
  // Makes a terminator whose thread runs already. It lives until Finish or Terminate.
  static std::shared_ptr<CThreadTerminator> Start();

  // Asks `thread` to stop and takes it over; does not wait for it.
  void TerminateThread(std::shared_ptr<CZylThread> thread) EXCLUDES(m_Lock);

  // Lets the terminator go: it ends by itself, and frees itself, once the last thread handed over has ended.
  // Terminate, in contrast, stops it at once, whatever it still holds.
  void Finish();

  // Length of the array of slots.
  std::size_t Capacity() EXCLUDES(m_Lock);

 private:
  CThreadTerminator();

  static void* ThreadProc(void* self);
  void TerminatorThreadProc();
  bool Sweep() EXCLUDES(m_Lock);
  std::shared_ptr<CZylThread> TakeEnded() EXCLUDES(m_Lock);
  std::shared_ptr<CZylThread>* FreeSlot() REQUIRES(m_Lock);

  std::atomic<bool> m_Finishing{false};
  CZylThreadLock m_Lock;
  std::vector<std::shared_ptr<CZylThread>> m_Slots GUARDED_BY(m_Lock);  // null: free
};

#endif  // THREAD_THREAD_TERMINATOR_H_

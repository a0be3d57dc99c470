// A small pool of worker threads that share out one job.
//
// A worker's procedure follows this contract: until Terminated(), WaitForSignal() without a limit; leave when
// terminated; while IsEnabled(), take and do jobs, looking at IsEnabled() between steps so that Disable() cuts
// a job short; SetIdle(). SetIdle() once more on leaving.
#ifndef THREAD_ZYL_THREAD_POOL_H_
#define THREAD_ZYL_THREAD_POOL_H_

#include <array>
#include <atomic>
#include <memory>

#include "thread/thread_annotations.h"
#include "thread/thread_terminator.h"
#include "thread/zyl_thread.h"

// A worker: a thread that is told to work and says when it is done.
//
// Thread safety: every operation may be called from any thread.
// Ownership: a pool's worker is shared by its slot (or the terminator) and its own running thread.
class CZylTpThread : public CZylThread {
 public:
  // Marks the worker enabled and busy and wakes it.
  void Enable();

  // Asks the worker to stop its job; only the worker's own SetIdle makes it idle.
  void Disable() { m_Enabled = 0; }

  virtual int IsEnabled() const { return m_Enabled; }

  // A worker whose thread could not be started, or has ended, is never busy: whoever waits for it would wait
  // for ever.
  int IsIdle() const { return m_Busy == 0 || Ended() ? 1 : 0; }

  void SetIdle() { m_Busy = 0; }

 private:
  std::atomic<int> m_Enabled{0};
  std::atomic<int> m_Busy{0};
};

// Up to 15 workers.
//
// Thread safety: internally locked; the lock is not held while workers do jobs, but while workers are joined.
// It is taken before the terminator's lock.
// Ownership: workers and their argument are shared with the workers' threads. A pool that goes away frees
// nothing that a late worker still uses, and does not wait for it.
class CZylThreadPool {
 public:
  using WorkerProc = void (*)(CZylTpThread* thread, void* arg);

  static constexpr unsigned int kMaxThreads = 15;

  CZylThreadPool() = default;
  ~CZylThreadPool();
  CZylThreadPool(const CZylThreadPool&) = delete;
  CZylThreadPool& operator=(const CZylThreadPool&) = delete;

  // Makes the number of workers `count`, at most 15 (negative as a signed number: none). Surplus workers are
  // stopped and joined, the last one first. New ones run `proc(worker, arg.get())`, neither enabled nor busy,
  // and share `arg` until `proc` returns; workers that stay keep the procedure and argument they were started
  // with. One without a running thread does not count.
  void AdjustThreadCount(unsigned int count, WorkerProc proc, const std::shared_ptr<void>& arg, int direct)
      EXCLUDES(m_Lock);

  void EnableThreads() EXCLUDES(m_Lock);
  void DisableThreads() EXCLUDES(m_Lock);

  // 1 when no worker is busy, also when there is none.
  int AllThreadsIdle() EXCLUDES(m_Lock);

  // Stops all workers and waits for them.
  void TerminateThreads() EXCLUDES(m_Lock);

  // Stops all workers and leaves them to the terminator.
  void TerminateThreadsImmediate() EXCLUDES(m_Lock);

 private:
  void AddWorker(WorkerProc proc, const std::shared_ptr<void>& arg, int direct) REQUIRES(m_Lock);
  void DropEnded() REQUIRES(m_Lock);
  void AskToStop(unsigned int first) REQUIRES(m_Lock);
  void DisableFrom(unsigned int first) REQUIRES(m_Lock);

  CZylThreadLock m_Lock;
  unsigned int m_Count GUARDED_BY(m_Lock) = 0;
  std::array<std::shared_ptr<CZylTpThread>, kMaxThreads> m_Workers GUARDED_BY(m_Lock);
  std::shared_ptr<CThreadTerminator> m_Terminator GUARDED_BY(m_Lock);  // from the first AdjustThreadCount on
};

#endif  // THREAD_ZYL_THREAD_POOL_H_

#include "thread/zyl_thread_pool.h"

#include <algorithm>
#include <utility>

namespace {

// What a worker starts with. Its thread holds the worker and the argument until the procedure has returned.
struct WorkerStart {
  std::shared_ptr<CZylTpThread> thread;
  CZylThreadPool::WorkerProc proc;
  std::shared_ptr<void> arg;
};

void* ZylThreadPoolProc(void* block) {
  const WorkerStart start = std::move(*std::unique_ptr<WorkerStart>(static_cast<WorkerStart*>(block)));
  start.proc(start.thread.get(), start.arg.get());
  return nullptr;
}

}  // namespace

void CZylTpThread::Enable() {
  m_Enabled = 1;
  m_Busy = 1;
  Signal();
}

CZylThreadPool::~CZylThreadPool() {
  TerminateThreadsImmediate();
  if (m_Terminator) m_Terminator->Finish();
}

void CZylThreadPool::AdjustThreadCount(unsigned int count, WorkerProc proc, const std::shared_ptr<void>& arg,
                                       int direct) {
  constexpr int kMost = static_cast<int>(kMaxThreads);
  const auto wanted = static_cast<unsigned int>(std::clamp(static_cast<int>(count), 0, kMost));
  const LockGuard guard(m_Lock);
  if (!m_Terminator) m_Terminator = CThreadTerminator::Start();
  DropEnded();
  AskToStop(wanted);
  while (m_Count > wanted) {
    const std::shared_ptr<CZylTpThread> worker = std::move(m_Workers[--m_Count]);
    worker->Terminate();
  }
  while (m_Count < wanted) AddWorker(proc, arg, direct);
}

// A worker whose thread could not be made, or has ended by itself, would count and never work.
void CZylThreadPool::DropEnded() {
  const auto end = m_Workers.begin() + m_Count;
  const auto living =
      std::remove_if(m_Workers.begin(), end, [](const auto& worker) { return worker->Ended(); });
  std::fill(living, end, nullptr);
  m_Count = static_cast<unsigned int>(living - m_Workers.begin());
}

void CZylThreadPool::AddWorker(WorkerProc proc, const std::shared_ptr<void>& arg, int direct) {
  auto worker = std::make_shared<CZylTpThread>();
  std::unique_ptr<WorkerStart> start(new WorkerStart{worker, proc, arg});
  m_Workers[m_Count++] = worker;
  if (worker->Create(ZylThreadPoolProc, start.get(), 0, direct) != 0) {
    static_cast<void>(start.release());  // the worker's now
  }
}

void CZylThreadPool::EnableThreads() {
  const LockGuard guard(m_Lock);
  for (unsigned int i = 0; i < m_Count; ++i) m_Workers[i]->Enable();
}

void CZylThreadPool::DisableThreads() {
  const LockGuard guard(m_Lock);
  DisableFrom(0);
}

int CZylThreadPool::AllThreadsIdle() {
  const LockGuard guard(m_Lock);
  return std::all_of(m_Workers.begin(), m_Workers.begin() + m_Count,
                     [](const auto& worker) { return worker->IsIdle() != 0; })
             ? 1
             : 0;
}

void CZylThreadPool::TerminateThreads() {
  const LockGuard guard(m_Lock);
  if (!m_Terminator) return;
  AskToStop(0);
  for (unsigned int i = 0; i < m_Count; ++i) {
    m_Workers[i]->Terminate();
    m_Workers[i].reset();
  }
  m_Count = 0;
}

void CZylThreadPool::TerminateThreadsImmediate() {
  const LockGuard guard(m_Lock);
  if (!m_Terminator || m_Count == 0) return;
  DisableFrom(0);
  for (unsigned int i = 0; i < m_Count; ++i) m_Terminator->TerminateThread(std::move(m_Workers[i]));
  m_Count = 0;
  m_Terminator->Signal();
}

void CZylThreadPool::DisableFrom(unsigned int first) {
  for (unsigned int i = first; i < m_Count; ++i) m_Workers[i]->Disable();
}

// Asked together, the workers notice within one and the same slice; asked one by one, each costs a slice of its
// own.
void CZylThreadPool::AskToStop(unsigned int first) {
  DisableFrom(first);
  for (unsigned int i = first; i < m_Count; ++i) m_Workers[i]->TerminateImmediate();
}

#include "thread/thread_terminator.h"

#include <algorithm>
#include <new>
#include <utility>

namespace {

constexpr std::size_t kFirstCapacity = 20;
constexpr std::size_t kGrowth = 10;
constexpr unsigned int kRetryMs = 5000;
constexpr unsigned int kNoLimit = 0xFFFFFFFF;

}  // namespace

CThreadTerminator::CThreadTerminator() : m_Slots(kFirstCapacity) {}

std::shared_ptr<CThreadTerminator> CThreadTerminator::Start() {
  std::shared_ptr<CThreadTerminator> terminator(new CThreadTerminator);
  auto threadsShare = std::make_unique<std::shared_ptr<CThreadTerminator>>(terminator);
  if (terminator->Create(ThreadProc, threadsShare.get(), 0, 0) != 0) static_cast<void>(threadsShare.release());
  return terminator;
}

void* CThreadTerminator::ThreadProc(void* self) {
  const std::unique_ptr<std::shared_ptr<CThreadTerminator>> share(
      static_cast<std::shared_ptr<CThreadTerminator>*>(self));
  (*share)->TerminatorThreadProc();
  return nullptr;
}

void CThreadTerminator::TerminateThread(std::shared_ptr<CZylThread> thread) {
  // Let go at once, not joined at a later sweep: a process that exits meanwhile leaves no unjoined thread
  // behind.
  thread->CleanUp();
  {
    const LockGuard guard(m_Lock);
    // Without a slot the thread ends all the same: it shares what it uses.
    if (std::shared_ptr<CZylThread>* slot = FreeSlot(); slot != nullptr) *slot = std::move(thread);
  }
  Signal();
}

// Null when there is none and no memory for more.
std::shared_ptr<CZylThread>* CThreadTerminator::FreeSlot() {
  const auto slot = std::find(m_Slots.begin(), m_Slots.end(), nullptr);
  if (slot != m_Slots.end()) return &*slot;
  const std::size_t used = m_Slots.size();
  try {
    m_Slots.resize(used + kGrowth);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  return &m_Slots[used];
}

void CThreadTerminator::Finish() {
  m_Finishing = true;
  Signal();
}

std::size_t CThreadTerminator::Capacity() {
  const LockGuard guard(m_Lock);
  return m_Slots.size();
}

void CThreadTerminator::TerminatorThreadProc() {
  bool retryPending = false;
  for (;;) {
    WaitForSignal(retryPending ? kRetryMs : kNoLimit);
    if (Terminated()) return;
    // Read before the sweep: what is handed over afterwards would be missed by both.
    const bool finishing = m_Finishing;
    retryPending = Sweep();
    if (finishing && !retryPending) return;
  }
}

// Drops the threads that have ended, outside the lock; true when one is left that has not.
bool CThreadTerminator::Sweep() {
  while (TakeEnded() != nullptr) continue;
  const LockGuard guard(m_Lock);
  return std::any_of(m_Slots.begin(), m_Slots.end(), [](const auto& slot) { return slot != nullptr; });
}

std::shared_ptr<CZylThread> CThreadTerminator::TakeEnded() {
  const LockGuard guard(m_Lock);
  if (Terminated()) return nullptr;
  const auto ended = std::find_if(m_Slots.begin(), m_Slots.end(),
                                  [](const auto& slot) { return slot != nullptr && slot->Ended(); });
  return ended == m_Slots.end() ? nullptr : std::move(*ended);
}

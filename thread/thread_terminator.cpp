#include "thread/thread_terminator.h"

#include <algorithm>
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
    const CZylLockGuard guard(m_Lock);
    auto slot = std::find(m_Slots.begin(), m_Slots.end(), nullptr);
    if (slot == m_Slots.end()) {
      const auto used = static_cast<std::ptrdiff_t>(m_Slots.size());
      m_Slots.resize(m_Slots.size() + kGrowth);
      slot = m_Slots.begin() + used;
    }
    *slot = std::move(thread);
  }
  Signal();
}

void CThreadTerminator::Finish() {
  m_Finishing = true;
  Signal();
}

std::size_t CThreadTerminator::Capacity() {
  const CZylLockGuard guard(m_Lock);
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
  std::vector<std::shared_ptr<CZylThread>> ended;
  bool left = false;
  {
    const CZylLockGuard guard(m_Lock);
    for (auto& slot : m_Slots) {
      if (Terminated()) break;
      if (!slot) continue;
      if (slot->Ended()) {
        ended.push_back(std::move(slot));
      } else {
        left = true;
      }
    }
  }
  return left;
}

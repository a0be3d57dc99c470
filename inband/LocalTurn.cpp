#include "inband/LocalTurn.h"

#include "discovery/DiscoveryLog.h"

namespace {

constexpr std::chrono::milliseconds kAskAgain{50};

// What a condition variable needs of a lock.
class Unlockable {
 public:
  explicit Unlockable(CZylThreadLock& lock) : m_Lock(lock) {}
  void lock() NO_THREAD_SAFETY_ANALYSIS { m_Lock.GetLock(); }
  void unlock() NO_THREAD_SAFETY_ANALYSIS { m_Lock.ReleaseLock(); }

 private:
  CZylThreadLock& m_Lock;
};

}  // namespace

bool CLocalReads::IsStuck() const {
  return Clock::now().time_since_epoch() - m_LastCall.load(std::memory_order_relaxed) >= m_StuckAfter;
}

CLocalReads::Result CLocalReads::Enter(const StopQuery& stopped) {
  const CZylLockGuard guard(m_Lock);
  Unlockable lock(m_Lock);
  while (m_Reading) {
    if (IsStopped(stopped)) return Result::kStopped;
    if (IsStuck()) return Result::kStuck;
    m_Left.wait_for(lock, kAskAgain);
  }
  NoteCall();
  m_Reading = true;
  return Result::kEntered;
}

void CLocalReads::Leave() {
  {
    const CZylLockGuard guard(m_Lock);
    m_Reading = false;
  }
  m_Left.notify_one();
}

CLocalTurn::CLocalTurn(CLocalReads& reads, const CHbaEntry& port, const StopQuery& stopped)
    : m_Reads(port.IsLocalPort() != 0 ? &reads : nullptr),
      m_Result(m_Reads == nullptr ? CLocalReads::Result::kEntered : m_Reads->Enter(stopped)) {
  if (m_Result == CLocalReads::Result::kStuck) {
    disco_printf(kLogLocalPorts, port.GetHbaInfo()->portWwn, "Not read: the read of another local port hangs");
  }
}

CLocalTurn::~CLocalTurn() {
  if (m_Reads != nullptr && HasCome()) m_Reads->Leave();
}

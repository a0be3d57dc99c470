#include "inband/LocalTurn.h"

#include "log/DiscoveryLog.h"

namespace {

constexpr std::chrono::milliseconds kAskAgain{50};

}  // namespace

bool LocalReads::IsStuck() const {
  return Clock::now().time_since_epoch() - m_LastCall.load(std::memory_order_relaxed) >= m_StuckAfter;
}

LocalReads::Result LocalReads::Enter(const StopQuery& stopped) {
  const LockGuard guard(m_Lock);
  while (m_Reading) {
    if (IsStopped(stopped)) return Result::kStopped;
    if (IsStuck()) return Result::kStuck;
    m_Left.wait_for(m_Lock, kAskAgain);
  }
  NoteCall();
  m_Reading = true;
  return Result::kEntered;
}

void LocalReads::Leave() {
  {
    const LockGuard guard(m_Lock);
    m_Reading = false;
  }
  m_Left.notify_one();
}

LocalTurn::LocalTurn(LocalReads& reads, const CHbaEntry& port, const StopQuery& stopped)
    : m_Reads(port.IsLocalPort() != 0 ? &reads : nullptr),
      m_Result(m_Reads == nullptr ? LocalReads::Result::kEntered : m_Reads->Enter(stopped)) {
  if (m_Result == LocalReads::Result::kStuck) {
    disco_printf(kLogLocalPorts, port.GetHbaInfo()->portWwn, "Not read: the read of another local port hangs");
  }
}

LocalTurn::~LocalTurn() {
  if (m_Reads != nullptr && HasCome()) m_Reads->Leave();
}

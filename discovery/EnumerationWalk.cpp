#include "discovery/EnumerationWalk.h"

#include <chrono>
#include <cstring>
#include <utility>

namespace {

constexpr std::chrono::milliseconds kAskAgain{250};

// The last walk that this thread had part in.
constinit thread_local std::uint64_t t_Walk = 0;

}  // namespace

bool EnumerationWalk::Enter(bool (*giveUp)(std::thread::id walker)) {
  LockGuard guard(m_Lock);
  while (m_Held && !HeldByMe()) {
    if (giveUp(m_Beginner) || giveUp(m_Walker)) return false;
    m_Opened.wait_for(m_Lock, kAskAgain);
  }
  m_Held = true;
  m_Beginner = std::this_thread::get_id();
  ++m_Number;
  JoinLocked();
  return true;
}

void EnumerationWalk::Abandon() {
  LockGuard guard(m_Lock);
  if (!HeldByMe()) return;
  DropLocked();
  OpenLocked();
}

void EnumerationWalk::DropSnapshot() {
  LockGuard guard(m_Lock);
  DropLocked();
}

EnumerationWalk::Port EnumerationWalk::Find(const HBA_NAME& wwpn) {
  LockGuard guard(m_Lock);
  return FindLocked(wwpn);
}

EnumerationWalk::Port EnumerationWalk::FindIn(std::shared_ptr<CHbaList> snapshot, const HBA_NAME& wwpn) {
  LockGuard guard(m_Lock);
  if (m_Snapshot == nullptr) {
    m_Cursor = nullptr;
    m_Snapshot = std::move(snapshot);
  }
  return FindLocked(wwpn);
}

EnumerationWalk::Port EnumerationWalk::FindLocked(const HBA_NAME& wwpn) {
  Port port{m_Snapshot, nullptr};
  if (m_Snapshot == nullptr) return port;
  if (m_Cursor == nullptr) {
    HbaListGuard listGuard(*m_Snapshot);
    port.entry = m_Snapshot->FindEntry(wwpn.wwn);
  } else if (std::memcmp(m_Cursor->GetHbaInfo()->portWwn, wwpn.wwn, sizeof wwpn.wwn) == 0) {
    port.entry = m_Cursor;
  }
  return port;
}

void EnumerationWalk::DropLocked() {
  m_Cursor = nullptr;
  m_Snapshot = nullptr;
}

void EnumerationWalk::OpenLocked() {
  m_Held = false;
  m_Beginner = m_Walker = {};
  m_Opened.notify_all();
}

void EnumerationWalk::JoinLocked() {
  m_Walker = std::this_thread::get_id();
  t_Walk = m_Number;
}

bool EnumerationWalk::HeldByMe() const {
  return m_Held && t_Walk == m_Number;
}

#include "discovery/ControlCalls.h"

#include <utility>

#include "discovery/Callback.h"

ControlCalls::Scope::Scope(ControlCalls& calls)
    : m_Calls(Callback::IsInside() ? nullptr : &calls), m_Thread(std::this_thread::get_id()) {
  if (m_Calls == nullptr) return;
  LockGuard guard(m_Calls->m_Lock);
  m_Next = std::exchange(m_Calls->m_First, this);
}

ControlCalls::Scope::~Scope() {
  if (m_Calls == nullptr) return;
  LockGuard guard(m_Calls->m_Lock);
  Scope** link = &m_Calls->m_First;
  while (*link != this) link = &(*link)->m_Next;
  *link = m_Next;
}

bool ControlCalls::Has(std::thread::id thread) const {
  LockGuard guard(m_Lock);
  const Scope* call = m_First;
  while (call != nullptr && call->m_Thread != thread) call = call->m_Next;
  return call != nullptr;
}

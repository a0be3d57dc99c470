#include "discovery/SlowSide.h"

void SlowSide::Start(DiscoveryOwner* owner) {
  std::shared_ptr<CSlowHbaDiscover> slow = m_Discoverer.Get();
  if (slow == nullptr) {
    slow = std::make_shared<CSlowHbaDiscover>();
    m_Discoverer.Set(slow);
  }
  if (owner != nullptr) slow->Startup(owner);
}

void SlowSide::Stop() {
  if (const std::shared_ptr<CSlowHbaDiscover> slow = m_Discoverer.Get(); slow != nullptr) slow->Terminate();
  m_Discoverer.Set(nullptr);
}

std::shared_ptr<CHbaList> SlowSide::GetHbaList() const {
  const std::shared_ptr<CSlowHbaDiscover> slow = m_Discoverer.Get();
  return slow == nullptr ? nullptr : slow->GetHbaList();
}

void SlowSide::Pause(int pause) {
  if (const std::shared_ptr<CSlowHbaDiscover> slow = m_Discoverer.Get(); slow != nullptr) slow->Pause(pause);
}

void SlowSide::Reset() {
  if (const std::shared_ptr<CSlowHbaDiscover> slow = m_Discoverer.Get(); slow != nullptr) slow->Reset();
}

void SlowSide::ChangeDiscoveryInterval(unsigned int seconds) {
  if (const std::shared_ptr<CSlowHbaDiscover> slow = m_Discoverer.Get(); slow != nullptr) {
    slow->ChangeDiscoveryInterval(seconds);
  }
}

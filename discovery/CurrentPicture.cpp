#include "discovery/CurrentPicture.h"

#include "rmapi/rmapi.h"

namespace {

// The agent of this host, by which local ports are managed when management is secured.
_RM_IP_INFO LocalAgent(std::uint16_t port) {
  _RM_IP_INFO address{};
  address.address[0] = 127;
  address.address[3] = 1;
  address.port = port;
  return address;
}

bool ManagedByAgent(const CHbaEntry& entry) {
  return entry.IsLocalPort() != 0 && (entry.GetSpecialFeatures() & (RM_FEATURE_NIC | RM_FEATURE_ISCSI)) == 0;
}

CHbaEntry ThroughAgent(const CHbaEntry& entry, const _RM_IP_INFO& agent) {
  CHbaEntry copy(entry);
  copy.SetProxyIpInfo(&agent);
  copy.SetProxyOnlyAccess(1);
  return copy;
}

}  // namespace

void FreeHbaList(SharedSlot<CHbaList>& slot) {
  const std::shared_ptr<CHbaList> list = slot.Get();
  if (list == nullptr) return;
  HbaListGuard guard(*list);
  slot.Set(nullptr);
}

void FreeSystemList(SharedSlot<CSystemList>& slot) {
  const std::shared_ptr<CSystemList> list = slot.Get();
  if (list == nullptr) return;
  SystemListGuard guard(*list);
  slot.Set(nullptr);
}

void CurrentPicture::Close() {
  FreeHbaList(m_Current);
  FreeHbaList(m_Gathered);
  FreeHbaList(m_Seen);
}

std::shared_ptr<CHbaList> CurrentPicture::Gather(bool full) {
  std::shared_ptr<CHbaList> fresh = full ? std::make_shared<CHbaList>(ListRank::kGathered) : nullptr;
  FreeHbaList(m_Gathered);
  m_Gathered.Set(fresh);
  m_Seen.Set(full ? std::make_shared<CHbaList>(ListRank::kGathered) : nullptr);
  return fresh;
}

int CurrentPicture::UpdateDiscoveryLists() {
  const std::shared_ptr<CHbaList> current = m_Current.Get();
  const std::shared_ptr<CHbaList> fresh = m_Gathered.Get();
  const int changed = current == nullptr ? 0 : current->MergeLists(fresh.get(), 1, 1);
  FreeHbaList(m_Gathered);
  FreeHbaList(m_Seen);
  return changed;
}

bool CurrentPicture::IsSecured() {
  unsigned int enabled = 0;
  return RM_GetSecureMgmtConfig(&enabled) == RM_STATUS_OK && enabled != 0;
}

std::shared_ptr<CHbaList> CurrentPicture::CopyPorts(bool secured, bool withEarly) const {
  const std::shared_ptr<CHbaList> current = m_Current.Get();
  if (current == nullptr) return nullptr;
  const _RM_IP_INFO agent = LocalAgent(m_Remote.GetIpPortNumber());

  auto snapshot = std::make_shared<CHbaList>();
  const auto copy = [&](CHbaList& list) {
    HbaListGuard guard(list);
    CHbaList& copies = *snapshot;
    HbaListGuard copiesGuard(copies);
    list.ForEach([&](const CHbaEntry& entry) NO_THREAD_SAFETY_ANALYSIS {
      const bool throughAgent = secured && ManagedByAgent(entry);
      const CHbaEntry changed = throughAgent ? ThroughAgent(entry, agent) : CHbaEntry();
      copies.AddEntry(throughAgent ? &changed : &entry);
    });
  };
  copy(*current);
  for (const SharedSlot<CHbaList>* slot : {&m_Gathered, &m_Seen}) {
    const std::shared_ptr<CHbaList> early = withEarly ? slot->Get() : nullptr;
    if (early != nullptr) copy(*early);
  }
  return snapshot;
}

std::shared_ptr<CSystemList> CurrentPicture::GetCurrentSystemList() const {
  const std::shared_ptr<CHbaList> current = m_Current.Get();
  if (current == nullptr) return nullptr;
  auto systems = std::make_shared<CSystemList>();
  HbaListGuard guard(*current);
  SystemListGuard systemsGuard(*systems);
  systems->CreateSystemListFromHbaList(current.get());
  return systems;
}

int CurrentPicture::GetiSCSINames(const HBA_NAME& wwpn, CDiscISCSINames* names) const {
  const std::shared_ptr<CHbaList> current = m_Current.Get();
  if (current == nullptr) return 0;
  HbaListGuard guard(*current);
  const CHbaEntry* entry = current->FindEntry(wwpn.wwn);
  if (entry == nullptr || (entry->GetSpecialFeatures() & RM_FEATURE_ISCSI) == 0) return 0;
  *names = *entry->GetISCSINames();
  return 1;
}

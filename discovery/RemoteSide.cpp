#include "discovery/RemoteSide.h"

namespace {

constexpr unsigned int kSettle = 100000;  // microseconds
constexpr unsigned short kDefaultPort = 23333;

}  // namespace

void RemoteSide::Start(DiscoveryOwner& owner, unsigned int interval) {
  const auto oob = std::make_shared<COOBHbaDiscover>(&owner);
  m_Discoverer.Set(oob);
  oob->Startup(interval);
  ZylSleep(kSettle);
}

void RemoteSide::Stop() {
  const std::shared_ptr<COOBHbaDiscover> oob = m_Discoverer.Get();
  if (oob == nullptr) return;
  const std::uint32_t before = oob->getOOBThreadState();
  oob->Terminate();
  if (before != 0 && oob->getOOBThreadState() == 0) m_Discoverer.Set(nullptr);
}

unsigned short RemoteSide::GetIpPortNumber() const {
  const std::shared_ptr<COOBHbaDiscover> oob = m_Discoverer.Get();
  return oob == nullptr ? kDefaultPort : oob->GetIpPortNumber();
}

int RemoteSide::AddOOBHost(const char* host) {
  const std::shared_ptr<COOBHbaDiscover> oob = m_Discoverer.Get();
  return oob == nullptr ? 1 : oob->AddOOBHost(host);
}

// Without a controller one that does not run answers, which refuses.
int RemoteSide::RemoveOOBHost(const char* host) {
  const std::shared_ptr<COOBHbaDiscover> oob = m_Discoverer.Get();
  return oob == nullptr ? COOBHbaDiscover(nullptr).RemoveOOBHost(host) : oob->RemoveOOBHost(host);
}

int RemoteSide::AddCimHost(const CIMCredentials* credentials) {
  return m_Discoverer.Get() == nullptr ? 1 : COOBHbaDiscover::AddCimHost(credentials);
}

int RemoteSide::RemoveCimHost(const CIMCredentials* credentials) {
  const std::shared_ptr<COOBHbaDiscover> oob = m_Discoverer.Get();
  return oob == nullptr ? COOBHbaDiscover(nullptr).RemoveCimHost(credentials) : oob->RemoveCimHost(credentials);
}

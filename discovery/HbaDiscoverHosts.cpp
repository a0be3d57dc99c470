// Remote hosts, whose calls the out-of-band controller answers.

#include "discovery/HbaDiscover.h"

int CHbaDiscover::AddOOBHost(const char* host) {
  const std::shared_ptr<COOBHbaDiscover> oob = m_OobDiscoverer.Get();
  return oob == nullptr ? 1 : oob->AddOOBHost(host);
}

// Without a controller one that does not run answers, which refuses.
int CHbaDiscover::RemoveOOBHost(const char* host) {
  const std::shared_ptr<COOBHbaDiscover> oob = m_OobDiscoverer.Get();
  return oob == nullptr ? COOBHbaDiscover(nullptr).RemoveOOBHost(host) : oob->RemoveOOBHost(host);
}

int CHbaDiscover::AddCimHost(const CIMCredentials* credentials) {
  return m_OobDiscoverer.Get() == nullptr ? 1 : COOBHbaDiscover::AddCimHost(credentials);
}

int CHbaDiscover::RemoveCimHost(const CIMCredentials* credentials) {
  const std::shared_ptr<COOBHbaDiscover> oob = m_OobDiscoverer.Get();
  return oob == nullptr ? COOBHbaDiscover(nullptr).RemoveCimHost(credentials) : oob->RemoveCimHost(credentials);
}

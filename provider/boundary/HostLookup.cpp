#include "provider/boundary/HostLookup.h"

#include "provider/host/WorldWideName.h"
#include "provider/process/RemoteHosts.h"
#include "provider/process/Source.h"

namespace provider {

FoundHost FindHost(const unsigned char* proxy) {
  // A proxy address has as many bytes as a name.
  const ProxyAddress address = proxy == nullptr ? ProxyAddress{} : WwnFromBytes(proxy);
  const bool isLocal = address == ProxyAddress{};
  std::shared_ptr<Host> host = isLocal ? Source::Get().Local() : RemoteHosts::Get().Find(address);
  if (host != nullptr) return {RM_STATUS_OK, std::move(host)};
  return {isLocal ? RM_STATUS_FAILED : RM_STATUS_HOST_UNUSABLE, nullptr};
}

}  // namespace provider

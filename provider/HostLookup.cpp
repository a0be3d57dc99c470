#include "provider/HostLookup.h"

#include "provider/Source.h"
#include "provider/WorldWideName.h"

namespace provider {

FoundHost FindHost(const unsigned char* proxy) {
  // A proxy address has as many bytes as a name.
  const bool isLocal = proxy == nullptr || WwnFromBytes(proxy) == Wwn{};
  if (!isLocal) return {RM_STATUS_HOST_UNUSABLE, nullptr};
  std::shared_ptr<Host> local = Source::Get().Local();
  if (local == nullptr) return {RM_STATUS_FAILED, nullptr};
  return {RM_STATUS_OK, std::move(local)};
}

}  // namespace provider

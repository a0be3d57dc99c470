// Remote hosts: addresses and the table of hosts. There is no transport to an agent yet, so that no remote host
// can be asked anything.
#include "provider/Exports.h"

#include <atomic>

#include "provider/Entry.h"
#include "provider/RemoteHosts.h"

namespace {

using provider::Guarded;
using provider::RemoteHosts;

constexpr unsigned int kDefaultTimeoutSeconds = 10;
constexpr std::size_t kAddressText = 64;
constexpr int kAskCacheFlags = -1;

// Atomics: set and read from any thread, each for itself.
constinit std::atomic<int> gs_CacheFlags{0};
constinit std::atomic<unsigned int> gs_TimeoutSeconds{kDefaultTimeoutSeconds};

}  // namespace

int RM_RemoteOOBHostAddrV2(const char* host, unsigned short port, _RM_IP_INFO* record) {
  return Guarded([&]() -> int {
    if (host == nullptr || record == nullptr) return RM_STATUS_FAILED;
    const std::optional<_RM_IP_INFO> resolved = provider::ResolveHost(host, port);
    if (!resolved.has_value()) return RM_STATUS_FAILED;
    *record = *resolved;
    return RM_STATUS_OK;
  });
}

int RM_AddOOBAddressToLookupTable(const _RM_IP_INFO* host, unsigned char* proxy) {
  return Guarded([&]() -> int {
    if (host == nullptr) return RM_STATUS_FAILED;
    const std::optional<provider::ProxyAddress> address = RemoteHosts::Get().Add(*host);
    if (!address.has_value()) return RM_STATUS_FAILED;
    if (proxy != nullptr) std::copy(address->begin(), address->end(), proxy);
    return RM_STATUS_OK;
  });
}

int RM_RemoveOOBAddrFromLookupTable(const _RM_IP_INFO* host) {
  return Guarded([&]() -> int {
    if (host == nullptr) return RM_STATUS_FAILED;
    return RemoteHosts::Get().Remove(*host) ? RM_STATUS_OK : RM_STATUS_NOT_FOUND;
  });
}

int RM_GetAllNodeAddr(const _RM_IP_INFO* host, RM_NodeAddrList* list) {
  if (host == nullptr || list == nullptr) return RM_STATUS_FAILED;
  list->count = 0;
  return RM_STATUS_HOST_UNUSABLE;
}

int RM_SetOOBTimeout(unsigned int seconds) {
  gs_TimeoutSeconds = seconds;
  return RM_STATUS_OK;
}

int RM_OOBHandleCacheControl(int value) {
  if (value != kAskCacheFlags) gs_CacheFlags = value;
  return value != kAskCacheFlags ? value : gs_CacheFlags.load();
}

int RM_IPtoStrA(const _RM_IP_INFO* host, char* text) {
  return Guarded([&]() -> int {
    if (host == nullptr || text == nullptr) return RM_STATUS_FAILED;
    const std::string address = provider::AddressText(*host);
    if (address.empty() || address.size() >= kAddressText) return RM_STATUS_FAILED;
    provider::CopyField(text, address.size() + 1, address);
    return RM_STATUS_OK;
  });
}

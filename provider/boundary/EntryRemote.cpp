// Remote hosts: addresses, the table of hosts, and what is asked of a whole host.
#include "provider/Exports.h"

#include <atomic>

#include "provider/boundary/Entry.h"
#include "provider/process/HostNames.h"
#include "provider/process/RemoteHosts.h"
#include "provider/remote/RemoteHost.h"

namespace {

using provider::Guarded;
using provider::RemoteHosts;

constexpr std::size_t kAddressText = 64;
constexpr int kAskCacheFlags = -1;

// Only kept: no answer of a remote host is used twice, so that none is ever out of date. Atomic: set and read
// from any thread.
constinit std::atomic<int> gs_CacheFlags{0};

// The needed number goes into the capacity word when there is not enough room.
int HandOutNames(const provider::ListAnswer<HBA_NAME>& answer, RM_NodeAddrList& list) {
  std::uint32_t count = list.capacity;
  const int status = provider::CopyList(answer, count, &list + 1);
  const bool isTooSmall = status == RM_STATUS_BUFFER_TOO_SMALL || status == RM_STATUS_MORE_DATA;
  if (isTooSmall) list.capacity = count;
  if (status == RM_STATUS_OK) list.count = count;
  return isTooSmall ? int{RM_STATUS_MORE_DATA} : status;
}

}  // namespace

int RM_RemoteOOBHostAddrV2(const char* host, unsigned short port, _RM_IP_INFO* record) {
  return Guarded([&]() -> int {
    if (host == nullptr || record == nullptr) return RM_STATUS_FAILED;
    const std::optional<provider::NetAddress> address = provider::ResolveHost(host);
    if (!address.has_value()) return RM_STATUS_FAILED;
    *record = address->Record(port);
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
  return Guarded([&]() -> int {
    if (host == nullptr || list == nullptr) return RM_STATUS_FAILED;
    list->count = 0;
    const std::shared_ptr<provider::Host> found = RemoteHosts::Get().Find(*host);
    return found == nullptr ? int{RM_STATUS_HOST_UNUSABLE} : HandOutNames(found->PortNames(), *list);
  });
}

int RM_SetOOBTimeout(unsigned int seconds) {
  provider::SetRemoteCallLimit(std::chrono::seconds(seconds));
  return RM_STATUS_OK;
}

int RM_OOBHandleCacheControl(int value) {
  if (value != kAskCacheFlags) gs_CacheFlags = value;
  return value != kAskCacheFlags ? value : gs_CacheFlags.load();
}

int RM_IPtoStrA(const _RM_IP_INFO* host, char* text) {
  return Guarded([&]() -> int {
    if (host == nullptr || text == nullptr) return RM_STATUS_FAILED;
    const std::string address = provider::NetAddress::Of(*host).Text();
    if (address.empty() || address.size() >= kAddressText) return RM_STATUS_FAILED;
    provider::CopyField(text, address.size() + 1, address);
    return RM_STATUS_OK;
  });
}

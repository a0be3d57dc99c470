// The table of CIM hosts. No CIM host can be asked anything: whoever tries gets RM_STATUS_HOST_UNUSABLE.
#include "provider/Exports.h"

#include "provider/boundary/Entry.h"
#include "provider/process/CimTable.h"
#include "provider/process/HostNames.h"
#include "provider/process/RemoteHosts.h"

namespace {

using provider::CimTable;
using provider::Guarded;

enum HandleMode { kAdd = 0, kUpdate = 2 };

}  // namespace

int RM_RemoteCimHostAddrV2(const CIMCredentials* host, unsigned short port, _RM_IP_INFO* record) {
  return Guarded([&]() -> int {
    if (host == nullptr || record == nullptr) return RM_STATUS_FAILED;
    const std::optional<provider::NetAddress> address = provider::ResolveHost(CimTable::AddressOf(*host));
    if (!address.has_value()) return RM_STATUS_FAILED;
    *record = address->Record(port);
    record->flags |= RM_IP_FLAG_CIM;
    return RM_STATUS_OK;
  });
}

int RM_GetCimHostEntry(const CIMCredentials* key, CIMCredentials* stored) {
  return Guarded([&]() -> int {
    if (key == nullptr) return RM_STATUS_FAILED;
    const std::optional<CIMCredentials> found = CimTable::Get().Find(CimTable::AddressOf(*key));
    if (!found.has_value()) return RM_STATUS_NOT_FOUND;
    if (stored != nullptr) *stored = *found;
    return RM_STATUS_OK;
  });
}

int RM_HandleCimHostEntry(const CIMCredentials* entry, int mode) {
  return Guarded([&]() -> int {
    if (entry == nullptr || CimTable::AddressOf(*entry).empty()) return RM_STATUS_FAILED;
    switch (mode) {
      case kAdd:
        return CimTable::Get().Add(*entry);
      case kUpdate:
        return CimTable::Get().Update(*entry);
      default:
        return RM_STATUS_NOT_SUPPORTED;
    }
  });
}

int RM_ClearCimLookupTable(void) {
  return Guarded([] {
    CimTable::Get().Clear();
    return int{RM_STATUS_OK};
  });
}

int RM_GetCimCount(unsigned int* count) {
  return Guarded([&]() -> int {
    if (count == nullptr) return RM_STATUS_FAILED;
    *count = static_cast<unsigned int>(CimTable::Get().Entries().size());
    return RM_STATUS_OK;
  });
}

// As many as there is room for, in the order of their addresses.
int RM_GetCimEntries(unsigned int count, CIMCredentials** entries) {
  return Guarded([&]() -> int {
    if (entries == nullptr || count == 0) return RM_STATUS_FAILED;
    const std::vector<CIMCredentials> stored = CimTable::Get().Entries();
    for (std::size_t i = 0; i < stored.size() && i < count; ++i) {
      if (entries[i] == nullptr) return RM_STATUS_FAILED;
      *entries[i] = stored[i];
    }
    return RM_STATUS_OK;
  });
}

int IsCimHost(const unsigned char* proxy) {
  return Guarded(
      [&] {
        if (proxy == nullptr) return 0;
        return provider::RemoteHosts::Get().IsCim(provider::WwnFromBytes(proxy)) ? 1 : 0;
      },
      0);
}

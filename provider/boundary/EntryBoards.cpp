// The local boards.
#include "provider/Exports.h"

#include "provider/boundary/Entry.h"
#include "provider/host/AdapterModels.h"

using provider::FindHost;
using provider::FoundHost;
using provider::Guarded;

int RM_GetAllLocalHBAInstances(unsigned int* count, unsigned int* instances) {
  return Guarded([&]() -> int {
    if (count == nullptr || (instances == nullptr && *count > 0)) return RM_STATUS_FAILED;
    const FoundHost found = FindHost(nullptr);
    return found.host == nullptr ? found.status
                                 : provider::CopyList(found.host->BoardInstances(), *count, instances);
  });
}

int RM_GetLocalHBAInfoV4(local_hba_info* board, HBA_info_v4* info) {
  return Guarded([&]() -> int {
    if (board == nullptr || info == nullptr) return RM_STATUS_FAILED;
    const FoundHost found = FindHost(nullptr);
    if (found.host == nullptr) return found.status;
    const provider::Answer<provider::Board> answer = found.host->ReadBoard(board->instance);
    if (answer.status == RM_STATUS_OK || answer.status == RM_STATUS_OVER_TEMPERATURE) {
      *info = answer.value.info;
      board->linkStatus = answer.value.linkStatus;
    }
    return answer.status;
  });
}

int RM_IsLocalHBA(const unsigned char* wwn) {
  return Guarded(
      [&] {
        const FoundHost found = FindHost(nullptr);
        return wwn != nullptr && found.host != nullptr && found.host->HasPort(provider::WwnFromBytes(wwn)) ? 1
                                                                                                           : 0;
      },
      0);
}

int RM_IsVarnixPort(const unsigned char* wwpn) {
  return Guarded(
      [&] {
        const FoundHost found = FindHost(nullptr);
        return wwpn != nullptr && found.host != nullptr &&
                       found.host->IsMakersPort(provider::WwnFromBytes(wwpn))
                   ? 1
                   : 0;
      },
      0);
}

int RM_GetAdapterType(unsigned int modelId, char* text) {
  return Guarded([&]() -> int {
    if (text == nullptr) return RM_STATUS_FAILED;
    const std::string model = provider::AdapterModelText(modelId);
    provider::CopyField(text, model.size() + 1, model);
    return model.empty() ? RM_STATUS_NOT_FOUND : RM_STATUS_OK;
  });
}

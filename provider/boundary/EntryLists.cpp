// Targets, virtual ports and virtual functions.
#include "provider/Exports.h"

#include "provider/boundary/Entry.h"

namespace {

using provider::AskHost;
using provider::Host;
using provider::Wwn;

// Records begin right after the header, whatever its size.
template <class List, class Ask>
int FillList(const unsigned char* proxy, const unsigned char* wwn, List* list, Ask ask) {
  if (list == nullptr) return RM_STATUS_FAILED;
  return AskHost(proxy, wwn, [&](Host& host, const Wwn& name) {
    return provider::CopyList(ask(host, name), list->count, list + 1);
  });
}

}  // namespace

int RM_GetAllNodeInfo(const unsigned char* proxy, const unsigned char* wwn, RM_NodeInfoList* list) {
  return FillList(proxy, wwn, list, [](Host& host, const Wwn& name) { return host.Nodes(name); });
}

int RM_VPList(const unsigned char* proxy, const unsigned char* wwn, RM_VPortList* list) {
  return FillList(proxy, wwn, list, [](Host& host, const Wwn& name) { return host.VirtualPorts(name); });
}

int RM_VPListTargets(const unsigned char* proxy, const unsigned char* wwn, const unsigned char* vportWwn,
                     RM_VPortTargetList* list) {
  if (vportWwn == nullptr) return RM_STATUS_FAILED;
  return FillList(proxy, wwn, list, [&](Host& host, const Wwn& name) {
    return host.VirtualPortTargets(name, provider::WwnFromBytes(vportWwn));
  });
}

int RM_iSCSI_GetTargets(const unsigned char* proxy, const unsigned char* wwn, int refresh,
                        RM_ISCSI_TargetList* list) {
  return FillList(proxy, wwn, list,
                  [&](Host& host, const Wwn& name) { return host.IscsiTargets(name, refresh != 0); });
}

int RM_GetVirtualFunctionList(const unsigned char* proxy, const unsigned char* wwn, RM_VFList* list) {
  return FillList(proxy, wwn, list, [](Host& host, const Wwn& name) { return host.VirtualFunctions(name); });
}

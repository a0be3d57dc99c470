#include "tests/system/MemoryProvider.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <iterator>

namespace systemtest {

constinit MemoryProvider g_Provider;

HBA_NAME NameOf(unsigned char number) {
  return {{0x10, 0, 0, 0, 0, 0, 0, number}};
}

namespace {

using Bytes = const unsigned char*;

void SetName(std::uint8_t* field, unsigned char number) {
  std::memcpy(field, NameOf(number).wwn, sizeof(HBA_NAME));
}

// Copies the records when they fit, as every list of the boundary does.
template <class Record>
int Answer(std::uint32_t* count, void* room, std::initializer_list<Record> records) {
  const std::uint32_t capacity = *count;
  *count = static_cast<std::uint32_t>(records.size());
  if (capacity < *count) return RM_STATUS_BUFFER_TOO_SMALL;
  std::copy(records.begin(), records.end(), static_cast<Record*>(room));
  return RM_STATUS_OK;
}

RM_NodeInfoEntry Node(unsigned char number) {
  RM_NodeInfoEntry node{};
  SetName(node.portWwn, number);
  node.nodeState = RM_NODE_EXISTS | RM_NODE_READY;
  return node;
}

RM_VPortEntry VPort(unsigned char number) {
  RM_VPortEntry vport{};
  SetName(vport.portWwn, number);
  return vport;
}

RM_VPortTargetEntry VPortTarget(unsigned char number) {
  RM_VPortTargetEntry target{};
  SetName(target.portWwn, number);
  return target;
}

// All ports that have attributes have the same.
struct Attribute {
  unsigned int id;
  const char* text;
};
constexpr Attribute kAttributes[] = {
    {RM_ATTR_SERVER_NAME, "remote"},        {RM_ATTR_HOST_NAME, "remote"},
    {RM_ATTR_MANUFACTURER, "manufacturer"}, {RM_ATTR_SERIAL_NUMBER, "serial number"},
    {RM_ATTR_MODEL_NAME, "model"},          {RM_ATTR_SUB_ADAPTER_ID, "a sub-adapter with a long name"}};
constexpr std::uint32_t kModel = 0xF100;
constexpr std::uint32_t kLinkUp = 1;

}  // namespace
}  // namespace systemtest

using namespace systemtest;  // NOLINT(google-build-using-namespace): the calls below are in none

#define PROVIDER __attribute__((visibility("default")))

extern "C" {

PROVIDER int RM_InitLib(void) {
  ++g_Provider.started;
  return RM_STATUS_OK;
}

PROVIDER int RM_ExitLib(void) {
  --g_Provider.started;
  return RM_STATUS_OK;
}

PROVIDER int RM_GetAppInstallDirA(char* buffer, unsigned int size) {
  std::snprintf(buffer, size, "/run/lock/");
  return RM_STATUS_OK;
}

// ---- Local boards

PROVIDER int RM_GetAllLocalHBAInstances(unsigned int* count, unsigned int* instances) {
  if (!g_Provider.hasBoards) return Answer<unsigned int>(count, instances, {});
  return Answer<unsigned int>(count, instances, {kFc, kIscsi, kNic});
}

PROVIDER int RM_GetLocalHBAInfoV4(local_hba_info* board, HBA_info_v4* info) {
  *info = {};
  SetName(info->portWwn, static_cast<unsigned char>(board->instance));
  std::strcpy(info->hostName, "local");
  std::strcpy(info->subAdapterId, "a sub-adapter with a long name");
  board->linkStatus = 1;
  switch (board->instance) {
    case kIscsi:
      info->specialFeatures = RM_FEATURE_CONVERGED | RM_FEATURE_ISCSI;
      break;
    case kNic:
      info->specialFeatures = RM_FEATURE_CONVERGED | RM_FEATURE_NIC;
      break;
    default:
      board->linkStatus = g_Provider.link;
  }
  return RM_STATUS_OK;
}

PROVIDER int RM_IsVarnixPort(Bytes wwpn) {
  return wwpn[7] >= 0x80 ? 1 : 0;
}

// ---- Attributes

PROVIDER int RM_GetDiscoveryAttributes(Bytes, Bytes, void*, unsigned int*) {
  return RM_STATUS_OK;  // of a buffer that nobody looks into
}

PROVIDER int RM_GetServerAttributes(Bytes, Bytes, void*, unsigned int*) {
  return RM_STATUS_OK;
}

PROVIDER const void* RM_GetAttributeValue(const void*, unsigned int id, unsigned int* type, int* status) {
  *status = RM_STATUS_OK;
  *type = RM_ATTRIBUTE_U32;
  if (id == RM_ATTR_MODEL_ID) return &kModel;
  if (id == RM_ATTR_PHYSICAL_LINK) return &kLinkUp;
  *type = RM_ATTRIBUTE_TEXT;
  for (const Attribute& attribute : kAttributes) {
    if (attribute.id == id) return attribute.text;
  }
  *status = RM_STATUS_NOT_FOUND;
  return nullptr;
}

PROVIDER int RM_GetDriverType(Bytes, Bytes, unsigned int* type) {
  *type = 0;
  return RM_STATUS_OK;
}

PROVIDER int RM_GetBindingSupport(Bytes, Bytes, int, unsigned int* bindType) {
  *bindType = 1;
  return RM_STATUS_OK;
}

PROVIDER int RM_iSCSI_GetInitiatorProperties(Bytes, Bytes, char* initiatorName, char* defaultName,
                                             char* alias) {
  std::strcpy(initiatorName, "iqn.2020-01.example:initiator");
  std::strcpy(defaultName, "iqn.2020-01.example:default");
  std::strcpy(alias, "an alias of some length");
  return RM_STATUS_OK;
}

// ---- What is below a port

PROVIDER int RM_GetAllNodeInfo(Bytes, Bytes wwn, RM_NodeInfoList* list) {
  if (wwn[7] != kFc) return Answer(&list->count, list + 1, {Node(kTarget)});
  RM_NodeInfoEntry seen = Node(g_Provider.seen);
  seen.nodeState = RM_NODE_EXISTS;
  return Answer(&list->count, list + 1, {seen, Node(kTarget), Node(kTarget + 1)});
}

// More than the library first has room for.
PROVIDER int RM_VPList(Bytes, Bytes, RM_VPortList* list) {
  return Answer(&list->count, list + 1, {VPort(kVPort), VPort(kVPort + 1)});
}

PROVIDER int RM_VPListTargets(Bytes, Bytes, Bytes, RM_VPortTargetList* list) {
  return Answer(&list->count, list + 1, {VPortTarget(kTarget), VPortTarget(kTarget + 1)});
}

PROVIDER int RM_iSCSI_GetTargets(Bytes, Bytes, int, RM_ISCSI_TargetList* list) {
  return Answer(&list->count, list + 1, {_RM_ISCSI_TARGET{"iqn.2020-01.example:target", "", {}}});
}

PROVIDER int RM_GetVirtualFunctionList(Bytes, Bytes, RM_VFList* list) {
  return Answer(&list->count, list + 1, {NameOf(kTarget), NameOf(kTarget + 1)});
}

// ---- Remote hosts

PROVIDER int RM_RemoteOOBHostAddrV2(const char* host, unsigned short port, _RM_IP_INFO* record) {
  *record = {};
  record->port = port;
  return inet_pton(AF_INET, host, record->address) == 1 ? RM_STATUS_OK : RM_STATUS_NOT_FOUND;
}

PROVIDER int RM_GetAllNodeAddr(const _RM_IP_INFO*, RM_NodeAddrList* list) {
  list->count = 1;
  *reinterpret_cast<HBA_NAME*>(list + 1) = NameOf(kRemote);
  return RM_STATUS_OK;
}

PROVIDER int RM_IsLocalHBA(Bytes wwn) {
  return wwn[7] == kFc ? 1 : 0;
}

}  // extern "C"

/* The least that can stand in for librmapi.so: a host with one Fibre Channel port that has one target.
 *
 *   cc -shared -fPIC -I. examples/minimal_provider.c -o /tmp/minimal/librmapi.so
 *   LD_LIBRARY_PATH=/tmp/minimal build/hbadisc list --local-only
 *
 * Thread safety: everything but a lock that is held is constant.
 */
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "rmapi/rmapi.h"

static const unsigned char kPort[8] = {0x10, 0, 0x02, 0x5d, 0x41, 0, 0, 0x01};
static const unsigned char kNode[8] = {0x20, 0, 0x02, 0x5d, 0x41, 0, 0, 0x01};
static const unsigned char kTarget[8] = {0x50, 0x25, 0xd0, 0xaa, 0, 0, 0, 0x10};
static const char kHostName[] = "minimal";
static const char kManufacturer[] = "Varnix";
static const char kSerialNumber[] = "MP0001";
static const char kModel[] = "Minimal FC Adapter";
static const unsigned int kModelId = 0x6A01;
static const unsigned int kSubVendor = 0;
static const unsigned int kLinkUp = 1;

/* Another host is never reached. */
static int IsRemote(const unsigned char* proxy) {
  static const unsigned char zeros[8];
  return proxy != NULL && memcmp(proxy, zeros, 8) != 0;
}

static int Check(const unsigned char* proxy, const unsigned char* wwn) {
  if (IsRemote(proxy)) return RM_STATUS_HOST_UNUSABLE;
  return memcmp(wwn, kPort, 8) == 0 ? RM_STATUS_OK : RM_STATUS_NOT_FOUND;
}

/* ---- Library ---- */

int RM_InitLib(void) {
  return RM_STATUS_OK;
}
int RM_ExitLib(void) {
  return RM_STATUS_OK;
}

void rm_printf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vfprintf(stderr, format, arguments);
  va_end(arguments);
}

int RM_GetAppInstallDirA(char* buffer, unsigned int size) {
  static const char directory[] = "/opt/varnix/quorbench/";
  if (size < sizeof directory) return RM_STATUS_BUFFER_TOO_SMALL;
  memcpy(buffer, directory, sizeof directory);
  return RM_STATUS_OK;
}

int RM_GetSecureMgmtConfig(unsigned int* enabled) {
  *enabled = 0;
  return RM_STATUS_OK;
}

/* ---- Locks: a file each. A lock belongs to the open file, so it serialises threads, too, and dies with its
 * holder. */

struct lock {
  char path[128];
  int fd; /* of whoever holds it */
};

void* RM_OpenGlobalLock(const char* name) {
  struct lock* lock = calloc(1, sizeof *lock);
  if (lock != NULL) snprintf(lock->path, sizeof lock->path, "/run/lock/minimal-%s", name);
  return lock;
}

int RM_GetGlobalLock(void* handle) {
  struct lock* lock = handle;
  if (lock == NULL) return RM_STATUS_FAILED;
  const int fd = open(lock->path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) return RM_STATUS_FAILED;
  while (flock(fd, LOCK_EX) != 0) {
    if (errno == EINTR) continue;
    close(fd);
    return RM_STATUS_FAILED;
  }
  lock->fd = fd;
  return RM_STATUS_OK;
}

int RM_ReleaseGlobalLock(void* handle) {
  struct lock* lock = handle;
  return lock != NULL && close(lock->fd) == 0 ? RM_STATUS_OK : RM_STATUS_FAILED;
}

int RM_CloseGlobalLock(void* handle) {
  if (handle == NULL) return RM_STATUS_FAILED;
  free(handle);
  return RM_STATUS_OK;
}

/* These three answer with not 0 for success. */
int RM_createSemaphore(int initial, const char* name, intptr_t* handle) {
  (void)initial;
  *handle = (intptr_t)RM_OpenGlobalLock(name);
  return *handle != 0;
}
int RM_acquireSemaphore(intptr_t handle) {
  return RM_GetGlobalLock((void*)handle) == RM_STATUS_OK;
}
int RM_releaseSemaphore(intptr_t handle) {
  return RM_ReleaseGlobalLock((void*)handle) == RM_STATUS_OK;
}

/* ---- The board ---- */

int RM_GetAllLocalHBAInstances(unsigned int* count, unsigned int* instances) {
  const unsigned int room = *count;
  *count = 1;
  if (room < 1) return RM_STATUS_BUFFER_TOO_SMALL;
  instances[0] = 0;
  return RM_STATUS_OK;
}

int RM_GetLocalHBAInfoV4(local_hba_info* board, HBA_info_v4* info) {
  if (board->instance != 0) return RM_STATUS_NOT_FOUND;
  memset(info, 0, sizeof *info);
  memcpy(info->portWwn, kPort, 8);
  memcpy(info->nodeWwn, kNode, 8);
  info->modelId = kModelId;
  memcpy(info->hostName, kHostName, sizeof kHostName);
  memcpy(info->manufacturer, kManufacturer, sizeof kManufacturer);
  memcpy(info->model, kModel, sizeof kModel);
  memcpy(info->serialNumber, kSerialNumber, sizeof kSerialNumber);
  info->functionNumber = info->busNumber = 0xFFFF; /* unknown */
  board->linkStatus = kLinkUp;
  return RM_STATUS_OK;
}

int RM_IsLocalHBA(const unsigned char* wwn) {
  return memcmp(wwn, kPort, 8) == 0;
}
int RM_IsVarnixPort(const unsigned char* wwpn) {
  return memcmp(wwpn, kPort, 8) == 0;
}

/* ---- Attributes: they say the same as the board's record, in every buffer, so that nothing needs to be in
 * one. ---- */

static const struct attribute {
  unsigned int id, type;
  const void* value;
} kAttributes[] = {
    {RM_ATTR_HOST_NAME, RM_ATTRIBUTE_TEXT, kHostName},
    {RM_ATTR_MANUFACTURER, RM_ATTRIBUTE_TEXT, kManufacturer},
    {RM_ATTR_SERIAL_NUMBER, RM_ATTRIBUTE_TEXT, kSerialNumber},
    {RM_ATTR_MODEL, RM_ATTRIBUTE_TEXT, kModel},
    {RM_ATTR_NODE_NAME, RM_ATTRIBUTE_NAME, kNode},
    {RM_ATTR_MODEL_ID, RM_ATTRIBUTE_U32, &kModelId},
    {RM_ATTR_SUB_VENDOR_ID, RM_ATTRIBUTE_U32, &kSubVendor},
    {RM_ATTR_PHYSICAL_LINK, RM_ATTRIBUTE_U32, &kLinkUp},
};

int RM_GetDiscoveryAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                              unsigned int* size) {
  (void)buffer;
  *size = 0;
  return Check(proxy, wwn);
}
int RM_GetHBAAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                        unsigned int* size) {
  return RM_GetDiscoveryAttributes(proxy, wwn, buffer, size);
}
int RM_GetPortAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                         unsigned int* size) {
  return RM_GetDiscoveryAttributes(proxy, wwn, buffer, size);
}
int RM_GetServerAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                           unsigned int* size) {
  return RM_GetDiscoveryAttributes(proxy, wwn, buffer, size);
}

const void* RM_GetAttributeValue(const void* buffer, unsigned int id, unsigned int* type, int* status) {
  (void)buffer;
  for (size_t i = 0; i < sizeof kAttributes / sizeof *kAttributes; ++i) {
    if (kAttributes[i].id != id) continue;
    *type = kAttributes[i].type;
    *status = RM_STATUS_OK;
    return kAttributes[i].value;
  }
  *status = RM_STATUS_NOT_FOUND;
  return NULL;
}

int RM_GetAdapterType(unsigned int modelId, char* text) {
  if (modelId != kModelId) return RM_STATUS_NOT_FOUND;
  memcpy(text, kModel, sizeof kModel);
  return RM_STATUS_OK;
}

int RM_GetDriverType(const unsigned char* proxy, const unsigned char* wwn, unsigned int* type) {
  *type = 2;
  return Check(proxy, wwn);
}
int RM_GetBindingSupport(const unsigned char* proxy, const unsigned char* wwn, int query,
                         unsigned int* bindType) {
  (void)query;
  *bindType = 1;
  return Check(proxy, wwn);
}

/* ---- Lists ---- */

int RM_GetAllNodeInfo(const unsigned char* proxy, const unsigned char* wwn, RM_NodeInfoList* list) {
  const int status = Check(proxy, wwn);
  if (status != RM_STATUS_OK) return status;
  const uint32_t room = list->count;
  list->count = 1;
  if (room < 1) return RM_STATUS_MORE_DATA;
  RM_NodeInfoEntry* node = (RM_NodeInfoEntry*)(list + 1);
  memset(node, 0, sizeof *node);
  memcpy(node->portWwn, kTarget, 8);
  memcpy(node->nodeWwn, kTarget, 8);
  node->nodeState = RM_NODE_EXISTS | RM_NODE_READY;
  return RM_STATUS_OK;
}

int RM_VPList(const unsigned char* proxy, const unsigned char* wwn, RM_VPortList* list) {
  list->count = 0;
  return Check(proxy, wwn);
}
int RM_VPListTargets(const unsigned char* proxy, const unsigned char* wwn, const unsigned char* vportWwn,
                     RM_VPortTargetList* list) {
  (void)proxy, (void)wwn, (void)vportWwn;
  list->count = 0;
  return RM_STATUS_NOT_FOUND;
}
int RM_iSCSI_GetTargets(const unsigned char* proxy, const unsigned char* wwn, int refresh,
                        RM_ISCSI_TargetList* list) {
  (void)proxy, (void)wwn, (void)refresh;
  list->count = 0;
  return RM_STATUS_NOT_FOUND;
}
int RM_iSCSI_GetInitiatorProperties(const unsigned char* proxy, const unsigned char* wwn, char* initiatorName,
                                    char* defaultName, char* alias) {
  (void)proxy, (void)wwn;
  initiatorName[0] = defaultName[0] = alias[0] = '\0';
  return RM_STATUS_NOT_FOUND;
}
int RM_GetVirtualFunctionList(const unsigned char* proxy, const unsigned char* wwn, RM_VFList* list) {
  list->count = 0;
  return Check(proxy, wwn);
}

/* ---- Remote and CIM hosts: there are none. ---- */

int RM_RemoteOOBHostAddrV2(const char* host, unsigned short port, _RM_IP_INFO* record) {
  (void)host, (void)port, (void)record;
  return RM_STATUS_FAILED;
}
int RM_AddOOBAddressToLookupTable(const _RM_IP_INFO* host, unsigned char* proxy) {
  (void)host, (void)proxy;
  return RM_STATUS_FAILED;
}
int RM_RemoveOOBAddrFromLookupTable(const _RM_IP_INFO* host) {
  (void)host;
  return RM_STATUS_FAILED;
}
int RM_GetAllNodeAddr(const _RM_IP_INFO* host, RM_NodeAddrList* list) {
  (void)host;
  list->count = 0;
  return RM_STATUS_HOST_UNUSABLE;
}
int RM_SetOOBTimeout(unsigned int seconds) {
  (void)seconds;
  return RM_STATUS_OK;
}
int RM_OOBHandleCacheControl(int value) {
  return value == -1 ? 0 : value;
}
int RM_IPtoStrA(const _RM_IP_INFO* host, char* text) {
  (void)host;
  text[0] = '\0';
  return RM_STATUS_FAILED;
}
int RM_RemoteCimHostAddrV2(const CIMCredentials* host, unsigned short port, _RM_IP_INFO* record) {
  (void)host, (void)port, (void)record;
  return RM_STATUS_FAILED;
}
int RM_GetCimHostEntry(const CIMCredentials* key, CIMCredentials* stored) {
  (void)key, (void)stored;
  return RM_STATUS_NOT_FOUND;
}
int RM_HandleCimHostEntry(const CIMCredentials* entry, int mode) {
  (void)entry, (void)mode;
  return RM_STATUS_FAILED;
}
int RM_ClearCimLookupTable(void) {
  return RM_STATUS_OK;
}
int RM_GetCimCount(unsigned int* count) {
  *count = 0;
  return RM_STATUS_OK;
}
int RM_GetCimEntries(unsigned int count, CIMCredentials** entries) {
  (void)count, (void)entries;
  return RM_STATUS_OK;
}
int IsCimHost(const unsigned char* proxy) {
  (void)proxy;
  return 0;
}

/* ---- Path variables ---- */

char REP_DIR_DEFAULT[256] = "/var/opt/varnix/quorbench/repository";
char LOG_FILE_PATH_DEFAULT[256] = "/var/opt/varnix/quorbench/logs/rm.log";
char DRAXONITE_INSTALL_DIR[256], VAR_OPT_PATH[256], DRAXONITE_JRE_DIR[256], DRAXONITE_CONFIG_DIR[256];
char DRAXONITE_MISC_DIR[256], FLOCK_SEMAPHORE_DIRECTORY[256], START_QUORBENCH_GUI[256], DRAXONITE_BIN_DIR[256];
char DRAXONITE_SCRIPTS_DIR[256], KTDX_SCRIPTS_DIR[256], START_QUORBENCH[256], STOP_QUORBENCH[256];
char START_ZYLDISCOVERYD[256], LOG_DIR_DEFAULT[256], DUMP_PATH_DEFAULT[256], CNABOARDMGMT_FILE_DEFAULT[256];
char FEATUREMGMT_FILE_DEFAULT[256], WWNMGMT_FILE_DEFAULT[256];
char LOCKFILE_SEM[64], HBAHOST_LOCK_SEM[64], CONVERT_CONF_FILE_SH[64];
char INI_FILE_PATH_ROFS[256], LOG_FILE_PATH_ROFS[256], DUMP_PATH_ROFS[256];

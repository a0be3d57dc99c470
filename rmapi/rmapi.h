/* The boundary to the remote-management library, librmapi.so.
 *
 * Declarations only. The discovery library is linked against a provider by its soname, exactly "librmapi.so";
 * any library that exports what this header declares can take the provider's place by being found first on the
 * loader's path.
 *
 * Conventions
 *   1. C linkage. Integers are in host order (x86-64, little-endian). Records have natural alignment; sizes and
 *      offsets are asserted below.
 *   2. A `status` is an int, 0 for success; the codes are the RM_STATUS_ constants. Any other value is an
 *      error.
 *   3. `proxy` points to an 8-byte proxy address or is null. Null and eight zero bytes both mean this host.
 *      `wwn` points to the 8 bytes of a port's world-wide name.
 *   4. A call may be made from any thread and several may run at once, also while RM_ExitLib runs: the
 *      discovery library may still have a worker inside a slow call when it stops the provider. A call never
 *      throws and never exits the process.
 *   5. A list is one block: a header with the capacity or count, then the records. In: capacity. Out: number of
 *      records. When the capacity is too small the provider writes the needed number, copies nothing and
 *      returns RM_STATUS_BUFFER_TOO_SMALL (or RM_STATUS_MORE_DATA). A list names nothing twice.
 *   6. Texts in records end at their NUL or at the end of their field, whichever comes first.
 */
#ifndef RMAPI_RMAPI_H_
#define RMAPI_RMAPI_H_

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#define RM_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define RM_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

/* Status codes that this system knows. */
enum {
  RM_STATUS_OK = 0,
  RM_STATUS_FAILED = 1,           /* failed, or ask again */
  RM_STATUS_NOT_SUPPORTED = 2,    /* RM_GetDiscoveryAttributes: use RM_GetHBAAttributes */
  RM_STATUS_BUFFER_TOO_SMALL = 7, /* the needed count has been written back */
  RM_STATUS_LOCKED = 64,          /* the port is in use: try again */
  RM_STATUS_MORE_DATA = 191,      /* as 7 */
  RM_STATUS_NOT_FOUND = 192,      /* no such board, or no such attribute */
  RM_STATUS_OVER_TEMPERATURE =
      231, /* adapter above its operating temperature; the answer is complete all the same */
  RM_STATUS_TRY_AGAIN = 253,
  RM_STATUS_HOST_UNUSABLE = 302, /* no port of that remote host can be read */
  RM_STATUS_BUSY = 303
};

/* The records that applications see too. hbadiscovery.h defines them in the same words, so that neither header
 * needs the other. */
#ifndef RM_SHARED_RECORDS
#define RM_SHARED_RECORDS

/* An 8-byte world-wide name (port, node or virtual function), a struct so that it passes by value. */
typedef struct HBA_NAME {
  uint8_t wwn[8];
} HBA_NAME;

/* Bits of _RM_IP_INFO::flags. */
enum { RM_IP_FLAG_IPV6 = 0x1, RM_IP_FLAG_CIM = 0x2 };

/* A host's management address. */
typedef struct _RM_IP_INFO {
  uint8_t address[16]; /* IPv4 in the first four, a.b.c.d */
  uint16_t port;       /* host order */
  uint8_t flags;       /* RM_IP_FLAG_ bits */
  uint8_t zero;
} _RM_IP_INFO;

/* Bits of RM_NodeInfoEntry::nodeState. */
enum { RM_NODE_READY = 0x2, RM_NODE_EXISTS = 0x20 };

/* One Fibre Channel target. */
typedef struct RM_NodeInfoEntry {
  uint32_t bindType;
  char osDeviceName[256];
  uint32_t bus;
  uint32_t target;
  uint32_t lun; /* the operating system's LUN */
  uint32_t fcAddressId;
  uint8_t nodeWwn[8];
  uint8_t portWwn[8];
  uint8_t padding1[4];
  uint64_t fcpLun;
  uint8_t lunId[256];
  uint32_t nodeState; /* RM_NODE_ bits */
  uint8_t padding2[4];
} RM_NodeInfoEntry;

/* Bits of the first byte of _RM_ISCSI_TARGET::flags. */
enum { RM_ISCSI_HAS_SESSIONS = 0x40, RM_ISCSI_CONNECTED = 0x80 };

/* One iSCSI target. A target name of up to 511 characters may run on into secondName. */
typedef struct _RM_ISCSI_TARGET {
  char targetName[256];
  char secondName[256];
  uint8_t flags[4];
} _RM_ISCSI_TARGET;

/* A CIM host and how to log in there. Texts are NUL-terminated. */
typedef struct CIMCredentials {
  char hostAddress[64];
  uint32_t port;
  char credential1[64];
  char credential2[64];
  char credential3[64];
  char password[64]; /* scrambled: every byte XOR 0x5C, which also unscrambles it */
} CIMCredentials;

#endif /* RM_SHARED_RECORDS */

/* Special-features bits of a port (HBA_info_v4::specialFeatures). */
enum {
  RM_FEATURE_MARDEL = 0x1,
  RM_FEATURE_CONVERGED = 0x2,
  RM_FEATURE_ISCSI = 0x4,
  RM_FEATURE_NIC = 0x8,
  RM_FEATURE_FCOE = 0x10,
  RM_FEATURE_SORTANE = 0x20,
  RM_FEATURE_ATTRIBUTE_585 = 0x40, /* attribute 585 equals 2 */
  RM_FEATURE_TOVRIN = 0x80,
  RM_FEATURE_ATTRIBUTE_587 = 0x100, /* attribute 587 is not zero */
  RM_FEATURE_SUB_ADAPTER = 0x200,
  RM_FEATURE_ROCE = 0x400,
  RM_FEATURE_KELSO = 0x1000
};

/* Bits of HBA_info_v4::modelId beside the model number. */
enum { RM_MODEL_TARGET_MODE = 0x20000000 };

/* The first 240 bytes of HBA_info_v4; describes a virtual port. */
typedef struct HBA_info_v2 {
  uint8_t portWwn[8];
  uint8_t nodeWwn[8];
  uint8_t fabricName[8];
  uint32_t modelId;
  char hostName[32];
  char manufacturer[32];
  char model[80];
  char serialNumber[60];
  char vpdPortNumber[8];
} HBA_info_v2;

/* One adapter port. */
typedef struct HBA_info_v4 {
  uint8_t portWwn[8];
  uint8_t nodeWwn[8];
  uint8_t fabricName[8];
  uint32_t modelId;      /* model number; bit 29 marks a target-mode port */
  char hostName[32];     /* the system the port sits in, NUL at the last byte at the latest */
  char manufacturer[32]; /* NUL at the last byte at the latest */
  char model[80];        /* this and the texts below may fill their field without a NUL */
  char serialNumber[60];
  char vpdPortNumber[8];
  uint16_t physicalPort;
  uint16_t functionNumber;  /* PCI function, 0xFFFF unknown */
  uint32_t specialFeatures; /* RM_FEATURE_ bits */
  uint16_t busNumber;       /* PCI bus, 0xFFFF unknown */
  char subAdapterId[32];    /* empty when unknown */
  uint8_t padding[2];
} HBA_info_v4;

/* One local board, exchanged with RM_GetLocalHBAInfoV4. */
typedef struct local_hba_info {
  uint32_t zero;
  uint32_t instance;    /* caller: from RM_GetAllLocalHBAInstances */
  uint32_t boardCount;  /* caller: number of local boards */
  uint32_t provider[2]; /* provider's own */
  uint32_t linkStatus;  /* provider: the port's current link status */
  uint8_t portWwn[8];   /* caller */
} local_hba_info;

typedef struct RM_NodeInfoList {
  uint32_t count;
  uint32_t padding;
  /* RM_NodeInfoEntry records follow */
} RM_NodeInfoList;

typedef struct RM_ISCSI_TargetList {
  uint32_t count;
  uint32_t padding;
  /* _RM_ISCSI_TARGET records follow */
} RM_ISCSI_TargetList;

/* One NPIV virtual port. */
typedef struct RM_VPortEntry {
  uint8_t unused1[4];
  uint8_t portWwn[8];
  uint8_t nodeWwn[8];
  uint8_t unused2[4];
} RM_VPortEntry;

typedef struct RM_VPortList {
  uint32_t count;
  /* RM_VPortEntry records follow */
} RM_VPortList;

/* One target of a virtual port: bytes 4-271 of an RM_NodeInfoEntry, four unused bytes, its bytes 272-303. */
typedef struct RM_VPortTargetEntry {
  char osDeviceName[256];
  uint32_t bus;
  uint32_t target;
  uint32_t lun;
  uint8_t unused[4];
  uint32_t fcAddressId;
  uint8_t nodeWwn[8];
  uint8_t portWwn[8];
  uint8_t padding[4];
  uint64_t fcpLun;
} RM_VPortTargetEntry;

typedef struct RM_VPortTargetList {
  uint32_t count;
  uint32_t padding;
  /* RM_VPortTargetEntry records follow */
} RM_VPortTargetList;

typedef struct RM_VFList {
  uint32_t count;
  /* HBA_NAME records follow */
} RM_VFList;

/* Port names of a remote host. On RM_STATUS_MORE_DATA the needed number is in `capacity`. */
typedef struct RM_NodeAddrList {
  uint32_t capacity;
  uint32_t count;
  /* HBA_NAME records follow */
} RM_NodeAddrList;

/* clang-format off */
RM_STATIC_ASSERT(sizeof(HBA_NAME) == 8, "HBA_NAME");
RM_STATIC_ASSERT(sizeof(HBA_info_v2) == 240, "HBA_info_v2");
RM_STATIC_ASSERT(sizeof(HBA_info_v4) == 284, "HBA_info_v4");
RM_STATIC_ASSERT(offsetof(HBA_info_v4, nodeWwn) == 8 && offsetof(HBA_info_v4, fabricName) == 16 &&
                 offsetof(HBA_info_v4, modelId) == 24 && offsetof(HBA_info_v4, hostName) == 28 &&
                 offsetof(HBA_info_v4, manufacturer) == 60 && offsetof(HBA_info_v4, model) == 92 &&
                 offsetof(HBA_info_v4, serialNumber) == 172 && offsetof(HBA_info_v4, vpdPortNumber) == 232 &&
                 offsetof(HBA_info_v4, physicalPort) == 240 && offsetof(HBA_info_v4, functionNumber) == 242 &&
                 offsetof(HBA_info_v4, specialFeatures) == 244 && offsetof(HBA_info_v4, busNumber) == 248 &&
                 offsetof(HBA_info_v4, subAdapterId) == 250, "HBA_info_v4");
RM_STATIC_ASSERT(offsetof(HBA_info_v2, modelId) == 24 && offsetof(HBA_info_v2, vpdPortNumber) == 232, "HBA_info_v2");
RM_STATIC_ASSERT(sizeof(local_hba_info) == 32 && offsetof(local_hba_info, instance) == 4 &&
                 offsetof(local_hba_info, boardCount) == 8 && offsetof(local_hba_info, linkStatus) == 20 &&
                 offsetof(local_hba_info, portWwn) == 24, "local_hba_info");
RM_STATIC_ASSERT(sizeof(_RM_IP_INFO) == 20 && offsetof(_RM_IP_INFO, port) == 16 &&
                 offsetof(_RM_IP_INFO, flags) == 18, "_RM_IP_INFO");
RM_STATIC_ASSERT(sizeof(RM_NodeInfoEntry) == 568 && offsetof(RM_NodeInfoEntry, osDeviceName) == 4 &&
                 offsetof(RM_NodeInfoEntry, bus) == 260 && offsetof(RM_NodeInfoEntry, target) == 264 &&
                 offsetof(RM_NodeInfoEntry, lun) == 268 && offsetof(RM_NodeInfoEntry, fcAddressId) == 272 &&
                 offsetof(RM_NodeInfoEntry, nodeWwn) == 276 && offsetof(RM_NodeInfoEntry, portWwn) == 284 &&
                 offsetof(RM_NodeInfoEntry, fcpLun) == 296 && offsetof(RM_NodeInfoEntry, lunId) == 304 &&
                 offsetof(RM_NodeInfoEntry, nodeState) == 560, "RM_NodeInfoEntry");
RM_STATIC_ASSERT(sizeof(RM_NodeInfoList) == 8, "RM_NodeInfoList");
RM_STATIC_ASSERT(sizeof(_RM_ISCSI_TARGET) == 516 && offsetof(_RM_ISCSI_TARGET, secondName) == 256 &&
                 offsetof(_RM_ISCSI_TARGET, flags) == 512, "_RM_ISCSI_TARGET");
RM_STATIC_ASSERT(sizeof(RM_ISCSI_TargetList) == 8, "RM_ISCSI_TargetList");
RM_STATIC_ASSERT(sizeof(RM_VPortEntry) == 24 && offsetof(RM_VPortEntry, portWwn) == 4 &&
                 offsetof(RM_VPortEntry, nodeWwn) == 12, "RM_VPortEntry");
RM_STATIC_ASSERT(sizeof(RM_VPortList) == 4, "RM_VPortList");
RM_STATIC_ASSERT(sizeof(RM_VPortTargetEntry) == 304 && offsetof(RM_VPortTargetEntry, bus) == 256 &&
                 offsetof(RM_VPortTargetEntry, unused) == 268 && offsetof(RM_VPortTargetEntry, fcAddressId) == 272 &&
                 offsetof(RM_VPortTargetEntry, nodeWwn) == 276 && offsetof(RM_VPortTargetEntry, portWwn) == 284 &&
                 offsetof(RM_VPortTargetEntry, fcpLun) == 296, "RM_VPortTargetEntry");
RM_STATIC_ASSERT(sizeof(RM_VPortTargetList) == 8, "RM_VPortTargetList");
RM_STATIC_ASSERT(sizeof(RM_VFList) == 4, "RM_VFList");
RM_STATIC_ASSERT(sizeof(RM_NodeAddrList) == 8, "RM_NodeAddrList");
RM_STATIC_ASSERT(sizeof(CIMCredentials) == 324 && offsetof(CIMCredentials, port) == 64 &&
                 offsetof(CIMCredentials, credential1) == 68 && offsetof(CIMCredentials, password) == 260, "CIMCredentials");
/* clang-format on */

/* ---- Library ---- */

int RM_InitLib(void);
int RM_ExitLib(void);

/* The provider's own log. */
void rm_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* Writes the install directory with its trailing separator. */
int RM_GetAppInstallDirA(char* buffer, unsigned int size);

/* Writes 1 when secure management is on, else 0. */
int RM_GetSecureMgmtConfig(unsigned int* enabled);

/* ---- Cross-process locks ---- */
/* Shared between processes by name; free again when the holder dies. They serialise threads as well as
 * processes and work before RM_InitLib. */

/* The semaphore calls return non-zero on success. */
int RM_createSemaphore(int initial, const char* name, intptr_t* handle);
int RM_acquireSemaphore(intptr_t handle);
int RM_releaseSemaphore(intptr_t handle);

/* The lock calls return a status; a null handle is refused with RM_STATUS_FAILED. */
void* RM_OpenGlobalLock(const char* name);
int RM_GetGlobalLock(void* lock);
int RM_ReleaseGlobalLock(void* lock);
int RM_CloseGlobalLock(void* lock);

/* ---- Local boards ---- */

/* In: room, out: number of instances. RM_STATUS_BUFFER_TOO_SMALL with the needed number when there is not
 * enough. */
int RM_GetAllLocalHBAInstances(unsigned int* count, unsigned int* instances);

/* Fills `info` and the board's provider fields. RM_STATUS_LOCKED, RM_STATUS_NOT_FOUND. */
int RM_GetLocalHBAInfoV4(local_hba_info* board, HBA_info_v4* info);

/* Non-zero: the port is on this host. */
int RM_IsLocalHBA(const unsigned char* wwn);

/* Non-zero: the port is one of the maker's. */
int RM_IsVarnixPort(const unsigned char* wwpn);

/* ---- Attributes ---- */
/* A buffer is opaque. In: room, out: bytes used. Values are read with RM_GetAttributeValue, are not aligned,
 * and live as long as the buffer. */

enum { RM_ATTRIBUTE_ROOM = 4096, RM_PORT_ATTRIBUTE_ROOM = 3000 };

int RM_GetDiscoveryAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                              unsigned int* size);
int RM_GetHBAAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer, unsigned int* size);
int RM_GetPortAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                         unsigned int* size);
int RM_GetServerAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                           unsigned int* size);

enum { RM_ATTRIBUTE_TEXT = 1, RM_ATTRIBUTE_U32 = 2, RM_ATTRIBUTE_NAME = 3 }; /* value types */

/* The attributes that this system reads. A provider may have others, under numbers of its own. */
enum RM_AttributeId {
  RM_ATTR_SERVER_NAME = 257,        /* text, of RM_GetServerAttributes alone */
  RM_ATTR_HOST_NAME = 513,          /* text */
  RM_ATTR_MANUFACTURER = 514,       /* text */
  RM_ATTR_SERIAL_NUMBER = 515,      /* text */
  RM_ATTR_MODEL = 516,              /* text */
  RM_ATTR_NODE_NAME = 518,          /* name, of FC and FCoE */
  RM_ATTR_MODEL_ID = 527,           /* u32 */
  RM_ATTR_FABRIC_NAME = 535,        /* name */
  RM_ATTR_MODEL_NAME = 537,         /* text, comes before RM_ATTR_MODEL */
  RM_ATTR_VPD_PORT_NUMBER = 553,    /* text */
  RM_ATTR_TARGET_MODE = 554,        /* u32, 0 is no */
  RM_ATTR_PCI_BUS = 555,            /* u32 */
  RM_ATTR_PORT_TYPE = 556,          /* u32 */
  RM_ATTR_SUB_DEVICE_ID = 557,      /* u32 */
  RM_ATTR_PHYSICAL_PORT = 559,      /* u32 */
  RM_ATTR_PCI_FUNCTION = 560,       /* u32 */
  RM_ATTR_SUB_VENDOR_ID = 561,      /* u32 */
  RM_ATTR_FUNCTION_NODE_NAME = 571, /* name, of the other kinds */
  RM_ATTR_585 = 585,                /* u32 */
  RM_ATTR_SUB_ADAPTER_ID = 586,     /* text */
  RM_ATTR_587 = 587,                /* u32 */
  RM_ATTR_PHYSICAL_LINK = 774,      /* u32, its low byte */
  RM_ATTR_FUNCTION_LINK = 802       /* u32, its low byte; of converged ports */
};

/* The value or null. *status is 0 when present, RM_STATUS_NOT_FOUND when missing. Texts are NUL-terminated. */
const void* RM_GetAttributeValue(const void* buffer, unsigned int id, unsigned int* type, int* status);

/* Model text of a model number, at most 80 bytes with its NUL. */
int RM_GetAdapterType(unsigned int modelId, char* text);

int RM_GetDriverType(const unsigned char* proxy, const unsigned char* wwn, unsigned int* type);
int RM_GetBindingSupport(const unsigned char* proxy, const unsigned char* wwn, int query,
                         unsigned int* bindType);

/* Three 256-byte buffers. */
int RM_iSCSI_GetInitiatorProperties(const unsigned char* proxy, const unsigned char* wwn, char* initiatorName,
                                    char* defaultName, char* alias);

/* ---- Targets, virtual ports, virtual functions ---- */

/* Too small: RM_STATUS_BUFFER_TOO_SMALL, RM_STATUS_MORE_DATA, or 0 with a count above the capacity. */
int RM_GetAllNodeInfo(const unsigned char* proxy, const unsigned char* wwn, RM_NodeInfoList* list);
int RM_VPList(const unsigned char* proxy, const unsigned char* wwn, RM_VPortList* list);
int RM_VPListTargets(const unsigned char* proxy, const unsigned char* wwn, const unsigned char* vportWwn,
                     RM_VPortTargetList* list);
int RM_iSCSI_GetTargets(const unsigned char* proxy, const unsigned char* wwn, int refresh,
                        RM_ISCSI_TargetList* list);
int RM_GetVirtualFunctionList(const unsigned char* proxy, const unsigned char* wwn, RM_VFList* list);

/* ---- Remote hosts ---- */

/* Numeric IPv4 or IPv6 text, or a resolvable name, into a record. */
int RM_RemoteOOBHostAddrV2(const char* host, unsigned short port, _RM_IP_INFO* record);

/* Registers the host and writes, when `proxy` is not null, the 8-byte proxy address under which later calls
 * reach it. IPv4: type byte, 0, port, address. IPv6: an 8-byte handle of the provider's, first byte not zero,
 * stable for the life of the process. */
int RM_AddOOBAddressToLookupTable(const _RM_IP_INFO* host, unsigned char* proxy);

/* Forgets a host; matches by address alone, whatever the port. */
int RM_RemoveOOBAddrFromLookupTable(const _RM_IP_INFO* host);

/* The host's port names. RM_STATUS_MORE_DATA too small, RM_STATUS_BUSY busy. */
int RM_GetAllNodeAddr(const _RM_IP_INFO* host, RM_NodeAddrList* list);

/* Limit of one remote call. */
int RM_SetOOBTimeout(unsigned int seconds);

/* -1 returns the cache flags; any other value sets and returns them (1 on, 2 keep between cycles). */
int RM_OOBHandleCacheControl(int value);

/* Address text without port or brackets, at most 64 bytes with its NUL. */
int RM_IPtoStrA(const _RM_IP_INFO* host, char* text);

/* ---- CIM hosts ---- */

int RM_RemoteCimHostAddrV2(const CIMCredentials* host, unsigned short port, _RM_IP_INFO* record);
int RM_GetCimHostEntry(const CIMCredentials* key, CIMCredentials* stored); /* 0: that hostAddress is stored */
int RM_HandleCimHostEntry(const CIMCredentials* entry, int mode);          /* mode 0 add, 2 update */
int RM_ClearCimLookupTable(void);
int RM_GetCimCount(unsigned int* count);
int RM_GetCimEntries(unsigned int count, CIMCredentials** entries);
int IsCimHost(const unsigned char* proxy); /* non-zero: the proxy address belongs to a CIM host */

/* ---- Path variables ---- */

extern char REP_DIR_DEFAULT[256];
extern char DRAXONITE_INSTALL_DIR[256];
extern char VAR_OPT_PATH[256];
extern char DRAXONITE_JRE_DIR[256];
extern char DRAXONITE_CONFIG_DIR[256];
extern char DRAXONITE_MISC_DIR[256];
extern char FLOCK_SEMAPHORE_DIRECTORY[256];
extern char START_QUORBENCH_GUI[256];
extern char DRAXONITE_BIN_DIR[256];
extern char DRAXONITE_SCRIPTS_DIR[256];
extern char KTDX_SCRIPTS_DIR[256];
extern char START_QUORBENCH[256];
extern char STOP_QUORBENCH[256];
extern char START_ZYLDISCOVERYD[256];
extern char LOG_DIR_DEFAULT[256];
extern char DUMP_PATH_DEFAULT[256];
extern char LOG_FILE_PATH_DEFAULT[256];
extern char CNABOARDMGMT_FILE_DEFAULT[256];
extern char FEATUREMGMT_FILE_DEFAULT[256];
extern char WWNMGMT_FILE_DEFAULT[256];
extern char LOCKFILE_SEM[64];
extern char HBAHOST_LOCK_SEM[64];
extern char CONVERT_CONF_FILE_SH[64];
extern char INI_FILE_PATH_ROFS[256];
extern char LOG_FILE_PATH_ROFS[256];
extern char DUMP_PATH_ROFS[256];

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* RMAPI_RMAPI_H_ */

/* Draxonite Discovery: finds the adapter ports (Fibre Channel, FCoE, iSCSI, NIC and RoCE) of this host and of
 * remote hosts, keeps one current picture of them in the background, and calls the application back when it
 * changes. For C99, C++11 and later. Link with -lhbadiscovery.
 *
 * Conventions. They hold for every call that does not say otherwise.
 *
 * Life cycle
 *   Optionally HBADisc_RegisterCallBack; then HBADisc_Startup or HBADisc_StartupEx; then any other calls; last
 *   HBADisc_Terminate. Start and stop may be repeated. There is one discovery controller in a process. It is
 *   constructed when the library is loaded, which already reads the discovery settings file, under a lock that
 *   all processes share and that loading waits for without limit, and opens the log. The library is never
 *   unmapped, and none of its calls may be made in a child after fork(). Before the start and after the stop
 *   there are no ports; hosts files and settings can be read all the same.
 *
 * Results
 *   An int is 1 for yes or done, 0 for no or nothing; of the calls for hosts files and settings, which say so,
 *   it is a status, 0 for done. A call never throws. A null pointer where one is not allowed gives the call's
 *   nothing-found value, and nothing is written.
 *
 * Buffers
 *   Every record, array and text belongs to the caller, is at least as large as the call says, and is not used
 *   by the library once the call has returned; nothing is to be freed. The registered context is kept, but only
 *   handed back. An array's count is in: room for so many records, out: records written. Output records are
 *   written as a whole, reserved and unused bytes as zeros or as the adapter's provider gave them.
 *
 * Values
 *   Integers are in host byte order. Names (WWPN, WWNN) are 8 bytes, the most significant first; all zeros is
 *   no name. Texts in records end at their NUL or at the end of their field, whichever comes first; texts given
 *   to a call end at their NUL.
 *
 * Units and ranges
 *   Intervals are whole seconds, up to 2147483 (24 days); a longer one, up to 4294967, gives no periodic
 *   cycles. Give none above that: an in-band interval is kept in 32 bits of milliseconds and wraps, so that
 *   4294968 leaves 0.7 seconds between two cycles. 0 means no periodic cycles, only those that are asked for; 1
 *   to 4 are too short to be meant: a start takes 90 in their place, a change keeps the interval that there is.
 *   There is no other default: the caller says the interval, except that HBADisc_Startup takes 90 for remote
 *   hosts.
 *
 * Threads
 *   Every call may be made from any thread, unless it says otherwise. Starting and terminating wait for one
 *   another. HBADisc_Terminate, _PauseDiscovery, _StartDiscoveryCycle, _KillDiscoveryCycle and
 *   _ChangeOOBDiscoveryInterval may have to wait for a callback that is running: call them with no lock held
 *   that the callback takes.
 *
 * The enumeration lock
 *   A walk over the ports, from HBADisc_GetFirstHba until HBADisc_GetNextHba gives 0, holds the enumeration
 *   lock, of which there is one in the process; HBADisc_GetFirstHba waits, without limit, while another thread
 *   walks. So a walk is to be finished: to break one off, call HBADisc_GetNextHba, or HBADisc_GetFirstHba, with
 *   a null record on the thread that walks. A thread that ends in the middle of its walk leaves the lock taken.
 *   HBADisc_Terminate drops the snapshot of a walk, but leaves it to the walker, whose next
 *   HBADisc_GetNextHba gives 0, to free the lock. Walking does not hold up discovery: a walk sees the ports as
 *   they were when it began. The per-port queries do not wait for the lock, but they read the snapshot of the
 *   walk, or one that an earlier query took; do not mix them with another thread's walk.
 *
 * The callback
 *   It runs on a thread of the library, one call at a time; what that thread does goes on when it returns. So
 *   it has to return: it ends neither its thread (pthread_exit) nor itself by longjmp or an exception. An
 *   exception that leaves it is caught all the same; with the others the process ends or discovery hangs. No
 *   list is locked meanwhile. It may make every call of this header, also walk over the ports.
 *   HBADisc_Terminate does nothing in it but free the snapshots, and HBADisc_Startup nothing while another
 *   thread starts or stops discovery. The other control calls never wait in it for a cycle or a thread to
 *   end, as they do elsewhere: they leave their request and return. Nor does HBADisc_GetFirstHba wait there
 *   for a walk of a thread that is in a control call and so may be waiting for this very callback, or while
 *   discovery is being stopped: it gives 0. The calls for hosts files and settings wait as they do elsewhere.
 *   No callback starts once HBADisc_Terminate has stopped discovery and returned.
 *
 * Testing a program
 *   Without an adapter, and to have links go down at will, the open provider answers from a fabric file: JSON
 * that describes hosts, ports, targets, events in the course of time and faults. Before the start, a program of
 * that provider calls RMOpen_SetSource("fabric", "lab.json"), found with dlsym(RTLD_DEFAULT,
 * "RMOpen_SetSource"); 0: accepted. The file may be replaced (by rename) while the program runs.
 * docs/fabric-file.md has all its keys, and `hbadisc --fabric lab.json watch` shows what a program will see.
 *
 * Signals
 *   Loading the library, and every thread that it makes later, replaces the application's handler of SIGALRM by
 *   one that does nothing. The library's threads run with all signals blocked.
 */
#ifndef HBADISCOVERY_H_
#define HBADISCOVERY_H_

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#define HBADISC_STATIC_ASSERT(condition, text) static_assert(condition, text)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define HBADISC_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#else /* C99 has no assertions: an array of negative size does not compile */
#define HBADISC_STATIC_ASSERT(condition, text) extern char hbadisc_assertion[(condition) ? 1 : -1]
#endif

#if defined(__GNUC__)
#define HBADISC_API __attribute__((visibility("default")))
#else
#define HBADISC_API
#endif

/* The records shared with the remote-management boundary. */
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

/* A CIM host and how to log in there. Texts but the password are NUL-terminated. */
typedef struct CIMCredentials {
  char hostAddress[64];
  uint32_t port;
  char credential1[64];
  char credential2[64];
  char credential3[64];
  char password[64]; /* scrambled: every character XOR 0x5C, which makes a backslash a NUL; zeros behind */
} CIMCredentials;

#endif /* RM_SHARED_RECORDS */

/* ---- Values ---- */

/* Event mask of HBADisc_RegisterCallBack: which callbacks are wanted. */
enum {
  HBADISC_EVENT_EVERY_CYCLE = 0x01, /* after every in-band cycle, and whenever a bit below asks for it */
  HBADISC_EVENT_FORCED = 0x02,      /* after a forced cycle; the first cycle after a start is one */
  HBADISC_EVENT_CHANGED = 0x04,     /* after a periodic cycle, also of remote hosts or slow ports, that changed
                                       something */
  HBADISC_EVENT_DIRECTED = 0x08     /* after a directed refresh of one port */
};

/* Reason of a callback, a sum of these. The cycle reasons are 1 to 7: 1 stands in the reason when the event
 * mask has HBADISC_EVENT_EVERY_CYCLE. A directed refresh gives 8, 9, 12 or 13. While a forced cycle lasts,
 * intermediate callbacks come with exactly 20, whatever non-zero event mask there is: when something changed,
 * and no sooner than 8 seconds after the one before. */
enum {
  HBADISC_REASON_EVERY_CYCLE = 0x01,
  HBADISC_REASON_FORCED = 0x02,
  HBADISC_REASON_CHANGED = 0x04,
  HBADISC_REASON_DIRECTED = 0x08,
  HBADISC_REASON_INTERMEDIATE = 0x10
};

/* What HBADisc_DirectedDiscoveryUpdate reads again. */
enum { HBADISC_REFRESH_ATTRIBUTES = 0x1, HBADISC_REFRESH_TARGETS = 0x2, HBADISC_REFRESH_VPORTS = 0x4 };

/* Special features of a port (hba_discovery_info_V2::specialFeatures). */
enum {
  HBADISC_FEATURE_CONVERGED = 0x2, /* a function of a converged adapter */
  HBADISC_FEATURE_ISCSI = 0x4,
  HBADISC_FEATURE_NIC = 0x8,
  HBADISC_FEATURE_FCOE = 0x10,
  HBADISC_FEATURE_SUB_ADAPTER = 0x200, /* has a sub-adapter id */
  HBADISC_FEATURE_ROCE = 0x400
};

/* Link status: 0 not read, 1 up, 2 down or unknown, in the low byte (physical) and, where there is one, the
 * next (function). This value marks an adapter above its operating temperature; a local port in that state is
 * never dropped. */
#define HBADISC_LINK_OVER_TEMPERATURE 0xEE000000u

/* Bits of hba_port_info::modelId that are no part of the number: the port is in target mode; the attributes of
 * a local port were read again by a directed refresh (until the next full cycle). */
#define HBADISC_MODEL_TARGET_MODE 0x20000000u
#define HBADISC_MODEL_REFRESHED 0x80000000u

/* An out-of-band interval that means: no discovery of remote hosts. */
#define HBADISC_NO_OOB_DISCOVERY 0xFFFFFFFFu

/* ---- Records ---- */

/* What a port says of itself. Texts are unterminated when they fill their field. */
typedef struct hba_port_info {
  uint8_t portWwn[8];
  uint8_t nodeWwn[8];
  uint8_t fabricName[8];
  uint32_t modelId;  /* model number and HBADISC_MODEL_ bits */
  char hostName[32]; /* the system the port sits in */
  char manufacturer[32];
  char model[80];
} hba_port_info;

typedef struct hba_discovery_info {
  uint32_t isLocal; /* 1: the port is on this host */
  hba_port_info port;
  uint32_t foundOnCount; /* local ports through which a remote one was seen: not recorded at present, 0 */
  HBA_NAME foundOn[4];   /* their names: zeros */
  uint32_t targetCount;
  uint32_t targetBindType;
  uint8_t proxyAddress[8]; /* how a remote port is reached; first byte 0: no proxy. Of an IPv4 host bytes 2-3
                              are the port, 4-7 the address; of an IPv6 host it is a number of no meaning */
  uint32_t proxyOnly;      /* 1: reachable only through its proxy */
  uint32_t linkStatus;
} hba_discovery_info;

/* Where a port sits on its adapter. Which form holds is told by the port: `numbers` when specialFeatures has
 * HBADISC_FEATURE_ISCSI, _NIC or _FCOE, or _SUB_ADAPTER with an id that is not empty, else `vpdPortNumber`. */
typedef union hba_port_position {
  struct {
    uint16_t portNumber;
    uint16_t functionNumber; /* PCI function, 0xFFFF unknown */
    uint16_t busNumber;      /* PCI bus, 0xFFFF unknown */
    uint16_t subAdapter;     /* sub-adapter number, 0xFFFF when the port has none */
  } numbers;
  char vpdPortNumber[8]; /* text */
} hba_port_position;

typedef struct hba_discovery_info_V2 {
  hba_discovery_info base;
  char serialNumber[60];
  hba_port_position position;
  uint32_t vportCount;
  uint32_t specialFeatures; /* HBADISC_FEATURE_ bits and others */
} hba_discovery_info_V2;

typedef struct hba_discovery_info_V3 {
  hba_discovery_info_V2 base;
  uint32_t hasProxyIpInfo; /* 1: proxyIpInfo is set */
  _RM_IP_INFO proxyIpInfo; /* management address of the host that reported the port, else zero; of a local FC
                              or FCoE port 127.0.0.1 when management is secured, and proxyOnly is 1 then, too */
  uint32_t vfCount;        /* SR-IOV virtual functions */
} hba_discovery_info_V3;

/* A system and its ports; `portCount` hba_discovery_info records follow at offset 40. */
typedef struct system_discovery_info {
  uint32_t isLocalSystem;
  char systemName[32]; /* at most 31 characters are written; the last byte stays as the caller left it */
  uint32_t portCount;
} system_discovery_info;

/* One NPIV virtual port. */
typedef struct discovery_vport_info {
  HBA_NAME portWwn;
  HBA_NAME nodeWwn;
  uint32_t targetCount;
} discovery_vport_info;

/* Addresses of virtual functions; `count` HBA_NAME records follow at offset 4. */
typedef struct discovery_vf_addrs {
  uint32_t count; /* in: room, out: number, or the number needed */
} discovery_vf_addrs;

/* Names of an iSCSI port, NUL-terminated. */
typedef struct discovery_iscsi_names {
  char initiatorName[256];
  char defaultName[256];
  char alias[256];
} discovery_iscsi_names;

/* A remote host of the hosts file. Both texts are NUL-terminated. */
typedef struct hbadisc_oob_host {
  char host[48]; /* numeric address; with a port as "10.1.2.3:23333" or "[fe80::1]:23333" */
  char name[32]; /* first word of the line's comment: the name it reported when it was added, or
                    "*UNKNOWN HOST NAME*" */
} hbadisc_oob_host;

/* Remote hosts; the records follow at offset 8. */
typedef struct hbadisc_oob_host_list {
  uint32_t count; /* in: room, out: hosts in the file, also those that did not fit */
  uint32_t padding;
} hbadisc_oob_host_list;

/* The layout of every record is part of the interface; what stands at offset 0 is left out. */
/* clang-format off */
#define HBADISC_SIZE(record, size) HBADISC_STATIC_ASSERT(sizeof(record) == (size), #record)
#define HBADISC_AT(record, field, offset) HBADISC_STATIC_ASSERT(offsetof(record, field) == (offset), #record "." #field)
HBADISC_SIZE(HBA_NAME, 8);
HBADISC_SIZE(_RM_IP_INFO, 20); HBADISC_AT(_RM_IP_INFO, port, 16); HBADISC_AT(_RM_IP_INFO, flags, 18);
HBADISC_AT(_RM_IP_INFO, zero, 19);
HBADISC_SIZE(RM_NodeInfoEntry, 568); HBADISC_AT(RM_NodeInfoEntry, osDeviceName, 4);
HBADISC_AT(RM_NodeInfoEntry, bus, 260); HBADISC_AT(RM_NodeInfoEntry, target, 264);
HBADISC_AT(RM_NodeInfoEntry, lun, 268); HBADISC_AT(RM_NodeInfoEntry, fcAddressId, 272);
HBADISC_AT(RM_NodeInfoEntry, nodeWwn, 276); HBADISC_AT(RM_NodeInfoEntry, portWwn, 284);
HBADISC_AT(RM_NodeInfoEntry, padding1, 292); HBADISC_AT(RM_NodeInfoEntry, fcpLun, 296);
HBADISC_AT(RM_NodeInfoEntry, lunId, 304); HBADISC_AT(RM_NodeInfoEntry, nodeState, 560);
HBADISC_AT(RM_NodeInfoEntry, padding2, 564);
HBADISC_SIZE(_RM_ISCSI_TARGET, 516); HBADISC_AT(_RM_ISCSI_TARGET, secondName, 256);
HBADISC_AT(_RM_ISCSI_TARGET, flags, 512);
HBADISC_SIZE(CIMCredentials, 324); HBADISC_AT(CIMCredentials, port, 64);
HBADISC_AT(CIMCredentials, credential1, 68); HBADISC_AT(CIMCredentials, credential2, 132);
HBADISC_AT(CIMCredentials, credential3, 196); HBADISC_AT(CIMCredentials, password, 260);
HBADISC_SIZE(hba_port_info, 172); HBADISC_AT(hba_port_info, nodeWwn, 8);
HBADISC_AT(hba_port_info, fabricName, 16); HBADISC_AT(hba_port_info, modelId, 24);
HBADISC_AT(hba_port_info, hostName, 28); HBADISC_AT(hba_port_info, manufacturer, 60);
HBADISC_AT(hba_port_info, model, 92);
HBADISC_SIZE(hba_discovery_info, 236); HBADISC_AT(hba_discovery_info, port, 4);
HBADISC_AT(hba_discovery_info, foundOnCount, 176); HBADISC_AT(hba_discovery_info, foundOn, 180);
HBADISC_AT(hba_discovery_info, targetCount, 212); HBADISC_AT(hba_discovery_info, targetBindType, 216);
HBADISC_AT(hba_discovery_info, proxyAddress, 220); HBADISC_AT(hba_discovery_info, proxyOnly, 228);
HBADISC_AT(hba_discovery_info, linkStatus, 232);
HBADISC_SIZE(hba_port_position, 8); HBADISC_AT(hba_port_position, numbers.functionNumber, 2);
HBADISC_AT(hba_port_position, numbers.busNumber, 4); HBADISC_AT(hba_port_position, numbers.subAdapter, 6);
HBADISC_SIZE(hba_discovery_info_V2, 312); HBADISC_AT(hba_discovery_info_V2, serialNumber, 236);
HBADISC_AT(hba_discovery_info_V2, position, 296); HBADISC_AT(hba_discovery_info_V2, vportCount, 304);
HBADISC_AT(hba_discovery_info_V2, specialFeatures, 308);
HBADISC_SIZE(hba_discovery_info_V3, 340); HBADISC_AT(hba_discovery_info_V3, hasProxyIpInfo, 312);
HBADISC_AT(hba_discovery_info_V3, proxyIpInfo, 316); HBADISC_AT(hba_discovery_info_V3, vfCount, 336);
HBADISC_SIZE(system_discovery_info, 40); HBADISC_AT(system_discovery_info, systemName, 4);
HBADISC_AT(system_discovery_info, portCount, 36);
HBADISC_SIZE(discovery_vport_info, 20); HBADISC_AT(discovery_vport_info, nodeWwn, 8);
HBADISC_AT(discovery_vport_info, targetCount, 16);
HBADISC_SIZE(discovery_vf_addrs, 4);
HBADISC_SIZE(discovery_iscsi_names, 768); HBADISC_AT(discovery_iscsi_names, defaultName, 256);
HBADISC_AT(discovery_iscsi_names, alias, 512);
HBADISC_SIZE(hbadisc_oob_host, 80); HBADISC_AT(hbadisc_oob_host, name, 48);
HBADISC_SIZE(hbadisc_oob_host_list, 8); HBADISC_AT(hbadisc_oob_host_list, padding, 4);
/* clang-format on */

/* ---- Life cycle and control ---- */

/* Runs on a thread of the library; see "The callback" above. `context` is what was registered. */
typedef void (*HBADisc_CallBack)(unsigned int reason, void* context);

/* Starts discovery: threads, and the first cycle, which is a forced one, at once. `interval` is the time
 * between in-band cycles, 0 to 4294967 seconds. While discovery is started, a further call does not restart it;
 * it only makes room for one more directed refresh. A failure is not reported: without memory or threads no
 * cycle comes, and no callback. */
HBADISC_API void HBADisc_Startup(unsigned int interval);

/* As HBADisc_Startup, with the interval of remote hosts: 0 to 4294967 seconds, 0 for forced cycles only;
 * HBADISC_NO_OOB_DISCOVERY for no remote hosts at all. When `localOnly` is not 0 there are neither remote hosts
 * nor slow discovery, a thread that reads ports again whose attributes could not be read. */
HBADISC_API void HBADisc_StartupEx(unsigned int interval, unsigned int oobInterval, int localOnly);

/* Stops discovery and frees what it found. Waits up to 5 seconds for a running cycle of remote hosts and up to
 * 10 more for one here, then for the provider call that the discovery thread itself is in, up to 5 seconds for
 * that of a directed refresh, never for a worker's; and for a callback that is running. Takes some seconds at
 * any time. Does nothing but free the snapshots when discovery is not started or is paused: end a pause first.
 */
HBADISC_API void HBADisc_Terminate(void);

/* Replaces callback, event mask (HBADISC_EVENT_ bits, 0: none) and context, at any time. A null callback ends
 * them. Does not wait for a callback that is running, which may still use the context it was given. */
HBADISC_API void HBADisc_RegisterCallBack(HBADisc_CallBack callback, unsigned int eventMask, void* context);

/* Kills a running cycle, waits, without limit, until it has stopped, and runs no more periodic ones and no slow
 * discovery. A forced cycle that was asked for before still runs, without a callback. What was found stays.
 * HBADisc_StartDiscoveryCycle ends the pause, that of slow discovery HBADisc_ChangeDiscoveryInterval. */
HBADISC_API void HBADisc_PauseDiscovery(void);

/* Starts a full cycle, here and for remote hosts, after killing a periodic one that runs and waiting until that
 * has stopped. While a port is read again (HBADisc_DirectedDiscoveryUpdate) the cycle here begins after that,
 * and this call does not wait for it. Nor does it wait for the cycle's end, which the callback reports with
 * HBADISC_REASON_FORCED. 1: started; 0: a forced cycle is running or has been asked for. While discovery is not
 * started nothing starts, whatever the result. */
HBADISC_API int HBADisc_StartDiscoveryCycle(void);

/* Has one known port read again, without a cycle. `what` is a sum of HBADISC_REFRESH_ bits; 0 means all three.
 * Targets and virtual ports that cannot be read become none, attributes empty, but for model id, link status
 * and special features. Does not wait for it. 1: accepted, the callback with HBADISC_REASON_DIRECTED follows,
 * when its mask asks for that, after a running cycle has ended; 0: the port is not known, discovery is not
 * started, or an earlier request is still being worked on. No cycle starts while a port is read again. */
HBADISC_API int HBADisc_DirectedDiscoveryUpdate(HBA_NAME wwpn, unsigned int what);

/* 1 while an in-band cycle runs; 0 inside the callback that ends it. Never waits. */
HBADISC_API int HBADisc_InDiscoveryCycle(void);

/* Ends a running cycle, here and of remote hosts, and drops what it has not merged yet; waits, without limit,
 * until it has stopped. A callback may still be running or come: that of a cycle which has just ended, or of a
 * forced one that only waited for remote hosts. */
HBADISC_API void HBADisc_KillDiscoveryCycle(void);

/* Changes the interval of in-band cycles, 0 to 4294967 seconds: 0 means only when asked; 1 to 4 are ignored.
 * Any other value starts a cycle when none runs, unless discovery is paused. Slow discovery follows: 0 pauses
 * it, any other interval lets it go on, every 2.5 intervals, but no more often than DISCO_SLOW_INTERVAL says,
 * or every 60 seconds. */
HBADISC_API void HBADisc_ChangeDiscoveryInterval(unsigned int interval);

/* Changes the interval of remote hosts, 0 to 4294967 seconds. 1 to 4 leave it as it was. Any value but 0
 * starts a cycle when none runs, unless discovery of remote hosts is paused. 0 pauses it, after killing a cycle
 * that runs and waiting until it has stopped; the interval stays, and only HBADisc_StartDiscoveryCycle ends
 * that pause. Nothing when remote hosts are not discovered. */
HBADISC_API void HBADisc_ChangeOOBDiscoveryInterval(unsigned int interval);

/* ---- Reading the ports ---- */

/* Takes the enumeration lock and a snapshot and fills the record of the first port, in order of port WWN. The
 * three forms differ in the record alone and may be mixed in one walk. Returns the number of ports; with 0 the
 * lock is free again, and the record is as it was. A second call on the walking thread starts over. */
HBADISC_API int HBADisc_GetFirstHba(hba_discovery_info* info);
HBADISC_API int HBADisc_GetFirstHbaV2(hba_discovery_info_V2* info);
HBADISC_API int HBADisc_GetFirstHbaV3(hba_discovery_info_V3* info);

/* Fills the next port's record and returns 1; at the end drops the snapshot, frees the lock, leaves the record
 * as it was and returns 0. Without a walk it returns 0 and drops the snapshot of the queries. On another thread
 * than the walker's it goes on with that walk, and whoever reaches the end frees the lock. */
HBADISC_API int HBADisc_GetNextHba(hba_discovery_info* info);
HBADISC_API int HBADisc_GetNextHbaV2(hba_discovery_info_V2* info);
HBADISC_API int HBADisc_GetNextHbaV3(hba_discovery_info_V3* info);

/* Systems with their ports, from a snapshot of their own, without the enumeration lock: for one thread at a
 * time. `info` needs 40 bytes and 236 more for each port of the system. The first call returns the number of
 * systems, the next ones 1, and 0 at the end. Ports are not grouped by system at present: the number is always
 * 0. */
HBADISC_API int HBADisc_GetFirstSystem(system_discovery_info* info);
HBADISC_API int HBADisc_GetNextSystem(system_discovery_info* info);

/* Per-port queries. During a walk they know only the port that the walk stands on; otherwise every port of the
 * snapshot, which a query takes when there is none and which stays, outdated or not, until a walk begins or
 * ends, HBADisc_GetNextHba is called, or discovery is terminated. None waits for the enumeration lock or an
 * adapter.
 *
 * The first four fill at most *count records and set *count to the number filled. They return how many did not
 * fit, 0 when all did: ask with *count 0 and a null array for the number. They return 0 also for a port that is
 * not known, and then leave *count as it was; it becomes 0 when there is no picture at all, and for a virtual
 * port that is not known. A null count gives 0, as does a null array with a *count that is not 0. */

/* Targets, 568 bytes each; of a virtual port without bind type and LUN id. For an iSCSI port the first 516
 * bytes of each hold an _RM_ISCSI_TARGET. Both calls do the same. */
HBADISC_API int HBADisc_GetTargetMappings(HBA_NAME wwpn, RM_NodeInfoEntry* targets, unsigned int* count);
HBADISC_API int HBADisc_GetiSCSITargets(HBA_NAME wwpn, RM_NodeInfoEntry* targets, unsigned int* count);

/* The NPIV virtual ports, 20 bytes each, and the targets of one of them. */
HBADISC_API int HBADisc_GetVPorts(HBA_NAME wwpn, discovery_vport_info* vports, unsigned int* count);
HBADISC_API int HBADisc_GetVPortTargets(HBA_NAME wwpn, HBA_NAME vportWwpn, RM_NodeInfoEntry* targets,
                                        unsigned int* count);

/* Addresses of the SR-IOV virtual functions. `addresses` is 4 bytes and 8 more for each address; `count` says
 * for how many there is room. 0: copied, `count` says how many; 1: too little room, the number needed is in
 * `count` and nothing was copied; 2: the port is not known, or null. */
HBADISC_API int HBADisc_GetVirtualFunctionAddrs(HBA_NAME wwpn, discovery_vf_addrs* addresses);

/* Fills the names, at most 255 characters each, and returns 1; zeroes the record and returns 0 for a port that
 * is not known or no iSCSI port. Reads the current picture, not the snapshot. */
HBADISC_API int HBADisc_GetiSCSINames(HBA_NAME wwpn, discovery_iscsi_names* names);

/* ---- Remote hosts ---- */
/* Remote hosts are kept in the file hbahosts.lst of the install directory, one per line, and asked for their
 * ports in every cycle of remote discovery; CIM hosts in zylhbacimhosts.so there, which the management
 * application writes. Changes, and the reading of the hosts by a cycle, are made under a lock that all
 * processes share; the calls that list or count take none and may miss a line that is being written. Adding and
 * removing need started discovery with remote hosts (see HBADisc_StartupEx); the other calls do not. */

/* Asks a host for its ports and its name, and appends it to the hosts file; takes as long as the host takes to
 * answer. `host` is an address, with or without a port of 1024 to 65535: "10.1.2.3", "10.1.2.3:23333",
 * "fe80::1", "[fe80::1]:23333", or a name in place of the address. At most 128 characters count. What is
 * written is the numeric address, and the port when one was given; a host without one is asked on the port of
 * the discovery settings. 1024 and 65535 are asked now, but count as no port once they stand in the file.
 *
 *    0  added; also "0.0.0.0" and "255.255.255.255", which do nothing
 *   -1  refused: null, a bad text or port, no such name, no memory, or remote discovery does not run, as when
 *       the port of the discovery settings is below 1024
 *    1  there is no remote discovery at all
 *    2  the host did not answer, has no port, or reported no name; nothing was written
 *   -2  the file could not be written
 *   -3  the host is in the file already, with whatever port; not noticed for an IPv6 address with a port
 *   -4  it is this host
 */
HBADISC_API int HBADisc_AddOOBHostA(const char* host);

/* Takes every line of that host out of the file: 1 when there was one, else 0. Compares the address as text,
 * without brackets and port: give it as HBADisc_GetOOBHostList does. */
HBADISC_API int HBADisc_RemoveOOBHostA(const char* host);

/* Wide text is not supported: always 1, and nothing is done. */
HBADISC_API int HBADisc_AddOOBHostW(const wchar_t* host);
HBADISC_API int HBADisc_RemoveOOBHostW(const wchar_t* host);

/* Lists the hosts of the file, in its order. `list` is 8 bytes and 80 more for each host for which `count` says
 * there is room; afterwards `count` is the number of hosts in the file, 0 without a file. 0: all fitted; 1:
 * there are more, or null, or no memory. */
HBADISC_API int HBADisc_GetOOBHostList(hbadisc_oob_host_list* list);

/* Not supported: -1, or 1 when there is no remote discovery. The management application writes the file of CIM
 * hosts. */
HBADISC_API int HBADisc_AddCimHost(const CIMCredentials* credentials);

/* Takes every line of that `hostAddress` out of the file of CIM hosts: 1 when there was one, else 0. */
HBADISC_API int HBADisc_RemoveCimHost(const CIMCredentials* credentials);

/* The number of CIM hosts in the file, 0 without a file. Returns 0, or 1 for a null pointer. */
HBADISC_API int HBADisc_GetCimCount(unsigned int* count);

/* Fills at most `count` records, in the order of the file. `entries` is an array of `count` pointers to the
 * caller's records, of 324 bytes each; those beyond the last host of the file stay as they are. 0, also without
 * a file; 1 for a null array, a count of 0, or a null record where one was needed. */
HBADISC_API int HBADisc_GetCimEntries(unsigned int count, CIMCredentials** entries);

/* Makes the provider know the CIM hosts of the file, at most 1000, and no others; without a host in the file it
 * keeps those that it has. 0, or 1 when a step failed; the others are done all the same. */
HBADISC_API int HBADisc_UpdateCimEntries(void);

/* ---- Settings ---- */
/* Settings files are lines of a key, a colon and a value. A line answers for every key that begins with the
 * line's key; the first such line wins. A line counts up to its 254th character; what is behind is a line of
 * its own. Statuses: 0 done, 193 no value or output buffer (null, or of no size), 199 key not found or null,
 * 200 file error or no path; the file then is as it was. Files are created with mode 0660, less the umask, and
 * a rewritten file ends with that mode. Who writes waits for another writer of the same file, at most 10
 * seconds, after which it is a file error. So is anything but a regular file, at once. */

/* Copies at most size - 1 characters of the key's value, which ends at a NUL in it, and fills the rest of the
 * buffer with NULs; "" when there is no value, no such key, or a null path or key. */
HBADISC_API int getKeyValue(const char* path, const char* key, char* value, int size);

/* Appends a line, also when the key is present; all of it or nothing. */
HBADISC_API int setKeyValue(const char* path, const char* key, const char* value);

/* Rewrites every line that answers for the key, or appends one. The file is replaced in one step. */
HBADISC_API int replaceKeyValue(const char* path, const char* key, const char* value);

/* Take and give back the lock of the discovery settings file, which is shared between processes; 0 or -1. The
 * lock nests on one thread. Waits without limit for another holder. Given back on a thread that does not hold
 * it, it is taken from its holder. Failures of the lock, also inside other calls, are told on standard output.
 */
HBADISC_API int LockFile(void);
HBADISC_API int UnlockFile(void);

/* The discovery settings file, /etc/varnix/quorbench/varnixDiscConfig, under its lock. A missing or empty
 * integer key leaves *out as it was; a missing text gives "". Integers may be decimal, 0x hexadecimal or 0
 * octal; another text is 0. A value takes the place of another; where the key had none, a line is appended,
 * behind the empty one that readers go on seeing. The result is 0 unless the lock could not be taken or given
 * back, also when the file could not be written. */
HBADISC_API int getDiscConfigIntValue(int* out, const char* key);
HBADISC_API int getDiscConfigStrValue(char* out, unsigned int size, const char* key);
HBADISC_API int setDiscConfigIntValue(int value, const char* key);
HBADISC_API int setDiscConfigStrValue(const char* value, const char* key);

/* Sleeps by select(); -1 when a signal cut the sleep short. */
HBADISC_API int zyl_usleep(unsigned int microseconds);

/* The management settings file, /etc/varnix/quorbench/varnixRMConfig: where the management suite is installed,
 * and which host manages this one. These calls take no lock that is shared between processes; the file is
 * replaced in one step by whoever rewrites it. 0, or 200 with a message in the provider's log; a null pointer
 * is 200 without one.
 *
 * The getters create a missing file, empty. A setting without a line is an error. A line with nothing behind
 * the colon gives the default, and the getter appends a line with it; readers go on seeing the empty line, so
 * every call appends another. After an error the caller's buffer is as it was, unless a call says otherwise. */

/* Directories and files. `path` needs 256 bytes, all of which are written; getRepository needs 257.
 *                     key             default
 * getLogFilePath      LogFilePath     the provider's: /var/opt/varnix/quorbench/logs/rm.log, unless
 *                                     initDirPaths has found another OptDir
 * getInstallDirPath   InstallDir      /opt/varnix/quorbench/
 * getOptDirPath       OptDir          /var/opt/varnix/quorbench
 * getIniFilePath      ConfFilePath    /etc/varnix/quorbench/rm.conf (the provider's configuration)
 */
HBADISC_API int getLogFilePath(char* path);
HBADISC_API int getInstallDirPath(char* path);
HBADISC_API int getOptDirPath(char* path);
HBADISC_API int getIniFilePath(char* path);

/* The firmware repository (RepositoryDir; the provider has the default) with a "/" added, always. Also gives an
 * empty LastFWDir the repository as its value, without that "/"; a missing one is an error. Makes the directory
 * when there is none: one level, mode 0660, which only root can enter. When the root file system is read-only
 * the result is 0 and `path` is as it was. */
HBADISC_API int getRepository(char* path);

/* 1 when ServerRemoteOperation is exactly "enabled", else 0; default "disabled". */
HBADISC_API int getServerOperatingMode(int* mode);

/* 0 when ManagementHost is exactly "false", the default, else 1. */
HBADISC_API int getManagementHostMode(int* mode);

/* 1 when ExclusiveHostMgmnt is exactly "true", else 0; default "false". */
HBADISC_API int getExclusiveHostMgmnt(int* exclusive);

/* MngmtHostIpAddress, in 256 bytes; "" when the line has no value, which is no error, and after an error. */
HBADISC_API int getMgmntHostIpAddress(char* address);

/* The setters change a line that is there: 200 when there is none, and no file is created. A value takes the
 * place of another; where the line had none it is appended, behind the empty line that readers go on seeing.
 * Not 0 is written as "true", 0 as "false". An address may have 256 characters, of which a getter can read the
 * first 235. */
HBADISC_API int setManagementHostMode(int* mode);
HBADISC_API int setExclusiveHostMgmnt(int* exclusive);
HBADISC_API int setMgmntHostIpAddress(char* address);

/* The port of remote hosts, TcpSocketPortNumber of the discovery settings file, read without its lock. The word
 * counts anywhere in a line, and the last such line wins. 0: there was such a line; the port is 0 or 1024 to
 * 65535. 199: there was none, the port is 23333. 178: no file, the same. 107: a number out of that range, told
 * in the provider's log; the port is that of an earlier line, or 23333. Null: 199. */
HBADISC_API int getTcpPortNumber(unsigned short* port);

/* Fills the path variables that the provider exports (DRAXONITE_INSTALL_DIR and others) from InstallDir and
 * OptDir, or from their defaults when these cannot be read; what is longer than a variable is cut. The
 * directories are read once a process. Always 0. To be called before there are threads that use the variables,
 * discovery's among them. */
HBADISC_API int initDirPaths(void);

/* 1 when the root file system is mounted read-only, as found by the first call that could ask; else 0. */
HBADISC_API int IsReadOnlyFS(void);

/* Splits a path into three texts that give it again: `directory` to the last "/" and with it, `extension` from
 * the last "." behind that and with it, also when the name begins with it, and `name` between. What is missing
 * is "", all three for a null path. Each buffer needs room for the whole path and its NUL and must not overlap
 * it; null ones are skipped. */
HBADISC_API void splitpath(const char* path, char* directory, char* name, char* extension);

#ifdef __cplusplus
} /* extern "C" */
#endif

#include "hbadiscovery_follow.h"

#undef HBADISC_AT
#undef HBADISC_SIZE

#endif /* HBADISCOVERY_H_ */

/* Draxonite Discovery, since 14.1: what could not be asked, what has changed, a larger record, and what a
 * program needs to follow discovery. Included by hbadiscovery.h, whose conventions hold here too.
 *
 * Times are milliseconds since 1970-01-01 00:00 UTC by the system's clock; 0: never.
 *
 * The kept picture
 *   The calls of hbadiscovery.h drop a port when the cycle that looks for it does not find it, whatever the
 *   reason. The calls below tell "is not there" from "could not be asked": a port that is known, and whose
 *   board, host or own attributes cannot be read, stays with its last picture and a mark. It goes when it is
 *   positively not there (the boards, or the host, have been read and it is not among them), when its host
 *   leaves the hosts file, or when it has not answered for the time of the setting DISCO_KEEP_UNANSWERED
 *   (seconds; a day without it; 0: not kept at all). Until the first cycle has ended, what it has read so far
 *   is in the kept picture, too.
 *
 *   It is kept, changes are recorded, and ports of this host are asked for what only the larger record has,
 *   from the first of these calls on: HBADisc_GetFirstHbaV4, HBADisc_GetUnanswered,
 *   HBADisc_GetChangeDescriptor, HBADisc_GetChanges. Make one before the start, and the first cycle has it
 *   all. For programs that make none nothing changes. The two settings of this page are read at that call, from
 * the discovery settings file.
 */
#ifndef HBADISCOVERY_FOLLOW_H_
#define HBADISCOVERY_FOLLOW_H_

#ifndef HBADISCOVERY_H_
#error "include hbadiscovery.h"
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Version and texts ---- */

/* Of this header. */
#define HBADISC_HEADER_VERSION 0x0E0100u

/* Of the library that runs: 0xMMmmpp, major, minor and patch number. Any time, any thread, also in a callback;
 * 0x0E0100 is the first that has it. */
HBADISC_API unsigned int HBADisc_GetVersion(void);

/* A link status in words: "up", "down", "up, function down", "not read", "overheated". Never null; the text
 * lives as long as the process. Any thread. */
HBADISC_API const char* HBADisc_GetLinkText(unsigned int linkStatus);

/* What a status of a record below means, in words. As above. */
HBADISC_API const char* HBADisc_GetStatusText(int status);

/* Statuses beside the provider's own, which are 0 and above. */
enum {
  HBADISC_STATUS_WAITING = -1,  /* has been asked, and the answer is still awaited */
  HBADISC_STATUS_NOT_ASKED = -2 /* has not been asked yet */
};

/* ---- The log ---- */

/* Lines of the discovery log for the program, whether there is a log file or not: those whose mask shares a bit
 * with `mask` (the bits of DISCO_LOG_MODE). `line` has no time and no line feed and lives until the function
 * returns. It is called on threads of the library and of the program's calls, several at once, with locks held:
 * it makes no call of this library, and returns soon. What it logs itself is not told. Null, or a mask of 0: no
 * more lines. A line that is being told while this is called may come afterwards. */
typedef void (*HBADisc_LogCallBack)(unsigned int mask, const char* line, void* context);
HBADISC_API void HBADisc_SetLogCallBack(HBADisc_LogCallBack function, unsigned int mask, void* context);

/* ---- The first picture ---- */

/* As HBADisc_StartupEx with intervals of 0, for a program that is waited for and wants one look, as a command
 * is: cycles of this host leave out the pauses by which others spare adapters and processors, and read one port
 * after the other on one thread. It is a cycle all the same, with callback and picture, but while it reads
 * ports no intermediate callbacks come. Remote hosts are asked as ever, unless `localOnly` is not 0. */
HBADISC_API void HBADisc_StartupForOneLook(int localOnly);

/* Waits until the first cycle after a start has ended, remote hosts included, and returns 1; at once when it
 * has. 0: not within that many milliseconds, not started, or stopped meanwhile. Any thread; in a callback it
 * does not wait. */
HBADISC_API int HBADisc_WaitForFirstPicture(unsigned int milliseconds);

/* ---- What did not answer ---- */

enum {
  HBADISC_UNANSWERED_BOARDS = 1, /* the boards of this host could not be counted */
  HBADISC_UNANSWERED_BOARD = 2,  /* a board of this host, one board a port */
  HBADISC_UNANSWERED_PORT = 3    /* a port */
};

typedef struct hbadisc_unanswered {
  uint32_t what;     /* HBADISC_UNANSWERED_ */
  uint32_t instance; /* the provider's number of the board, else 0xFFFFFFFF */
  HBA_NAME port;     /* zeros: not known */
  int32_t status;    /* of the last try: the provider's, or HBADISC_STATUS_ */
  uint32_t tries;    /* failed ones in a row */
  int64_t since;     /* the first of these */
  int64_t last;      /* the last try */
  int64_t lastGood;  /* the last good answer */
  char host[48];     /* the remote host that the port is asked through; "" on this host */
} hbadisc_unanswered;

/* What could not be read when it was last tried, or has not been for longer than a second: boards by number,
 * then ports by name. The counting contract of HBADisc_GetVPorts: fills at most *count records, sets *count to
 * the number filled, returns how many did not fit. None before the start and after a stop. Any thread; waits
 * for no adapter. */
HBADISC_API int HBADisc_GetUnanswered(hbadisc_unanswered* records, unsigned int* count);

enum {
  HBADISC_HOST_NOT_ASKED = 0, /* not yet, or not by this process */
  HBADISC_HOST_ASKED = 1,     /* for the first time: the answer is awaited */
  HBADISC_HOST_ANSWERED = 2,
  HBADISC_HOST_REFUSED = 3,    /* at once: no agent there, or none that can be understood */
  HBADISC_HOST_TIMED_OUT = 4,  /* nothing within the time limit of connections or answers */
  HBADISC_HOST_BUSY = 5,       /* it says that it has too much to do */
  HBADISC_HOST_NOT_A_HOST = 6, /* the line of the hosts file names no usable address */
  HBADISC_HOST_IS_THIS = 7,    /* its ports are those of this host */
  HBADISC_HOST_NO_PORTS = 8    /* answered: it has no port */
};

typedef struct hbadisc_host_state {
  char host[48];  /* as hbadisc_oob_host */
  char name[32];  /* as hbadisc_oob_host */
  uint32_t state; /* HBADISC_HOST_ */
  int32_t status; /* the provider's, of the last try */
  uint32_t ports; /* ports known through it: in the kept picture, or, while that is not kept, the current one */
  uint32_t tries; /* failed ones in a row */
  int64_t asked;  /* last time */
  int64_t answered; /* last time */
  int64_t since;    /* the first of the failed tries */
} hbadisc_host_state;

/* The remote hosts of the hosts file, in its order, and what they answered in the last cycle that asked them.
 * Counting as above; without a file none. Any thread; waits for no host. */
HBADISC_API int HBADisc_GetHostStates(hbadisc_host_state* records, unsigned int* count);

/* "answered", "timed out" and so on; never null. */
HBADISC_API const char* HBADisc_GetHostStateText(unsigned int state);

/* ---- The larger record ---- */

/* A number that is not known. A text that is not known is "". */
#define HBADISC_UNKNOWN_32 0xFFFFFFFFu
#define HBADISC_UNKNOWN_64 0xFFFFFFFFFFFFFFFFu

/* What inventories ask first. A provider without these values, which any but the open one is, leaves them
 * unknown; so do ports that tell too little. */
typedef struct hba_discovery_info_V4 {
  hba_discovery_info_V3 base;
  uint32_t unanswered;         /* 1: could not be asked the last time; all that is here is its last picture */
  int32_t status;              /* why, as in hbadisc_unanswered; else 0 */
  uint32_t lunCount;           /* logical units behind all its targets */
  uint32_t blockDeviceCount;   /* block devices of these */
  uint32_t reserved;           /* 0 */
  int64_t unansweredSince;     /* 0 while it answers */
  uint64_t linkSpeed;          /* bit/s, as negotiated; 0 without a link */
  uint64_t supportedSpeeds[8]; /* bit/s, ascending, zeros behind the last; the first is unknown when all are */
  char firmwareVersion[64];
  char driverName[32];
  char driverVersion[64];
  char bootVersion[64]; /* of the option ROM */
  char pciAddress[32];  /* "0000:3b:00.1": domain, bus, device, function, in hexadecimal */
  char partNumber[64];
  char blockDevices[256]; /* names with blanks between, as many as fit: "sda sdb" */
} hba_discovery_info_V4;

/* A walk as those of hbadiscovery.h, over the kept picture. The port's own queries (targets and so on) answer
 * for the port that the walk stands on, also for one that does not answer. `sequence` may be null; else it is
 * set to the number of the last change that is in the picture: what has changed since is what
 * HBADisc_GetChanges has behind it. */
HBADISC_API int HBADisc_GetFirstHbaV4(hba_discovery_info_V4* info, uint64_t* sequence);
HBADISC_API int HBADisc_GetNextHbaV4(hba_discovery_info_V4* info);

/* ---- What has changed ---- */

enum {
  HBADISC_CHANGE_ADDED = 1,         /* value: port. Records of all that hangs off it follow */
  HBADISC_CHANGE_REMOVED = 2,       /* port; what hung off it has gone with it */
  HBADISC_CHANGE_LINK = 3,          /* link: physical, 0 to 2, or HBADISC_LINK_OVER_TEMPERATURE */
  HBADISC_CHANGE_FUNCTION_LINK = 4, /* link: of the function, 0 to 2 */
  HBADISC_CHANGE_ATTRIBUTES = 5,    /* port: something else of its record, but its counts and its mark */
  HBADISC_CHANGE_ISCSI_NAMES = 6,   /* iscsiNames */
  HBADISC_CHANGE_TARGET = 7,        /* target, of the port or of its virtual port `vport` */
  HBADISC_CHANGE_VPORT = 8,    /* vport; its targets have records of their own, before it goes, after it came */
  HBADISC_CHANGE_FUNCTION = 9, /* function */
  HBADISC_CHANGE_UNANSWERED = 10 /* port: `unanswered` has become 1, or 0 again */
};

/* Which of the two values there are: both of what became another one, one of what came or went. */
enum { HBADISC_CHANGE_HAS_BEFORE = 1, HBADISC_CHANGE_HAS_AFTER = 2 };

typedef union hbadisc_change_value {
  hba_discovery_info_V4 port;
  uint32_t link;
  discovery_iscsi_names iscsiNames;
  RM_NodeInfoEntry target; /* of an iSCSI port an _RM_ISCSI_TARGET in its first 516 bytes */
  discovery_vport_info vport;
  HBA_NAME function;
} hbadisc_change_value;

typedef struct hbadisc_change {
  uint64_t sequence; /* from 1, by one; never used twice in a process */
  int64_t time;      /* when discovery noticed */
  uint32_t kind;     /* HBADISC_CHANGE_ */
  uint32_t values;   /* HBADISC_CHANGE_HAS_ */
  HBA_NAME port;
  HBA_NAME vport; /* zeros: the port itself */
  hbadisc_change_value before;
  hbadisc_change_value after;
} hbadisc_change;

/* Changes behind number `after`, oldest first: fills at most *count records and sets *count to their number.
 * Applied in their order to the picture that HBADisc_GetFirstHbaV4 gave with that number they make the picture
 * that it gives with the number of the last one.
 *
 * The last 10000 are kept, or as many as the setting DISCO_CHANGE_RECORDS says (1 to 10000000), and more while
 * they belong to one port's change. Returns 0; 1 when some behind `after` are no longer kept: what is filled
 * begins with the oldest that is, and whoever keeps a picture walks again. A null argument: 0, nothing. Any
 * thread. */
HBADISC_API int HBADisc_GetChanges(uint64_t after, hbadisc_change* changes, unsigned int* count);

/* A descriptor (eventfd, non-blocking, closed on exec) that becomes readable, for poll, select or any event
 * loop, when there are new changes. Read its 8 bytes, then ask for the changes. The library's own: do not close
 * it. -1 when there is none to be had. One for all the threads of a process. */
HBADISC_API int HBADisc_GetChangeDescriptor(void);

/* clang-format off */
HBADISC_SIZE(hbadisc_unanswered, 96); HBADISC_AT(hbadisc_unanswered, instance, 4);
HBADISC_AT(hbadisc_unanswered, port, 8); HBADISC_AT(hbadisc_unanswered, status, 16);
HBADISC_AT(hbadisc_unanswered, tries, 20); HBADISC_AT(hbadisc_unanswered, since, 24);
HBADISC_AT(hbadisc_unanswered, last, 32); HBADISC_AT(hbadisc_unanswered, lastGood, 40);
HBADISC_AT(hbadisc_unanswered, host, 48);
HBADISC_SIZE(hbadisc_host_state, 120); HBADISC_AT(hbadisc_host_state, name, 48);
HBADISC_AT(hbadisc_host_state, state, 80); HBADISC_AT(hbadisc_host_state, status, 84);
HBADISC_AT(hbadisc_host_state, ports, 88); HBADISC_AT(hbadisc_host_state, tries, 92);
HBADISC_AT(hbadisc_host_state, asked, 96); HBADISC_AT(hbadisc_host_state, answered, 104);
HBADISC_AT(hbadisc_host_state, since, 112);
HBADISC_SIZE(hba_discovery_info_V4, 1016); HBADISC_AT(hba_discovery_info_V4, unanswered, 340);
HBADISC_AT(hba_discovery_info_V4, status, 344); HBADISC_AT(hba_discovery_info_V4, lunCount, 348);
HBADISC_AT(hba_discovery_info_V4, blockDeviceCount, 352); HBADISC_AT(hba_discovery_info_V4, unansweredSince, 360);
HBADISC_AT(hba_discovery_info_V4, linkSpeed, 368); HBADISC_AT(hba_discovery_info_V4, supportedSpeeds, 376);
HBADISC_AT(hba_discovery_info_V4, firmwareVersion, 440); HBADISC_AT(hba_discovery_info_V4, driverName, 504);
HBADISC_AT(hba_discovery_info_V4, driverVersion, 536); HBADISC_AT(hba_discovery_info_V4, bootVersion, 600);
HBADISC_AT(hba_discovery_info_V4, pciAddress, 664); HBADISC_AT(hba_discovery_info_V4, partNumber, 696);
HBADISC_AT(hba_discovery_info_V4, blockDevices, 760);
HBADISC_SIZE(hbadisc_change_value, 1016); HBADISC_SIZE(hbadisc_change, 2072);
HBADISC_AT(hbadisc_change, time, 8); HBADISC_AT(hbadisc_change, kind, 16); HBADISC_AT(hbadisc_change, values, 20);
HBADISC_AT(hbadisc_change, port, 24); HBADISC_AT(hbadisc_change, vport, 32); HBADISC_AT(hbadisc_change, before, 40);
HBADISC_AT(hbadisc_change, after, 1056);
/* clang-format on */

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* HBADISCOVERY_FOLLOW_H_ */

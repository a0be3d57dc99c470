// The targets of one port.
//
// Thread safety: any thread, several at once; `port` is for the calling thread alone, which fills a private
// entry and not one in a shared list. Reads of local ports are made one at a time, each kind under its own
// lock, so that the local driver sees one such request at once; these locks come after any list's. Pauses
// between tries are slept with that lock held. A null `thread` is never cut short; any other is looked at
// between steps.
//
// The port's targets are marked as read once there is an answer.
#ifndef INBAND_PORTTARGETS_H_
#define INBAND_PORTTARGETS_H_

#include "discovery/HbaDiscoveryListEntry.h"
#include "thread/zyl_thread_pool.h"

// Reads the targets of any port into it and returns the number of accepted nodes, which is above the number of
// targets when a target has several LUNs; for an iSCSI port the result of iSCSI_AddTargetInfo, for a NIC 0. A
// port in use (64, 253) keeps the targets that it has, any other failure leaves none. `refresh` goes to the
// iSCSI call, `verbose` chooses the log masks.
unsigned int AddTargetInfo(CHbaEntry* port, CZylTpThread* thread, int refresh, int verbose)
    EXCLUDES(g_TargetLock);

// Reads the targets of an iSCSI port and returns their number, 0 on failure. What the port had is gone in any
// case.
unsigned int iSCSI_AddTargetInfo(CHbaEntry* port, CZylTpThread* thread, int refresh) EXCLUDES(g_TargetLock);

#endif  // INBAND_PORTTARGETS_H_

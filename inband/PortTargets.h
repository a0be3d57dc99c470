// The targets of one port.
//
// Thread safety: any thread, several at once; `port` is for the calling thread alone, which fills a private
// entry and not one in a shared list. Reads of local ports take turns (LocalTurn.h), iSCSI ports apart from the
// others, pauses between tries included; the calling thread holds no list. A null `thread` is never cut short;
// any other is looked at between steps and while the read waits for its turn.
//
// The port's targets are marked as read once there is an answer, as not read when the turn does not come.
#ifndef INBAND_PORTTARGETS_H_
#define INBAND_PORTTARGETS_H_

#include "inband/StopQuery.h"
#include "model/HbaEntry.h"
#include "thread/zyl_thread_pool.h"

// Reads the targets of any port into it and returns the number of accepted nodes, which is above the number of
// targets when a target has several LUNs; for an iSCSI port the result of iSCSI_AddTargetInfo, for a NIC 0. A
// port in use (64, 253) or whose turn does not come keeps the targets that it has, any other failure leaves
// none. `refresh` goes to the iSCSI call, `verbose` chooses the log masks.
unsigned int AddTargetInfo(CHbaEntry* port, CZylTpThread* thread, int refresh, int verbose)
    EXCLUDES(g_TargetLock);

// Reads the targets of an iSCSI port and returns their number, 0 on failure. What the port had is gone in any
// case.
unsigned int iSCSI_AddTargetInfo(CHbaEntry* port, CZylTpThread* thread, int refresh) EXCLUDES(g_TargetLock);
// For a thread that is no worker. A read that was given up is marked as not made.
unsigned int iSCSI_AddTargetInfo(CHbaEntry* port, const StopQuery& stopped, int refresh) EXCLUDES(g_TargetLock);

#endif  // INBAND_PORTTARGETS_H_

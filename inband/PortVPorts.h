// The NPIV virtual ports and the SR-IOV virtual functions of one port.
//
// Thread safety: as PortTargets.h: `port` is for the calling thread alone, reads of virtual ports of local
// ports take turns.
#ifndef INBAND_PORTVPORTS_H_
#define INBAND_PORTVPORTS_H_

#include "model/HbaEntry.h"
#include "thread/zyl_thread_pool.h"

// Reads the virtual ports and their targets into the port; for a NIC its virtual functions, for an iSCSI port
// nothing. 0 or a status: that of the list, else that of the last virtual port's targets. A failed list leaves
// the virtual ports as they are; one whose targets cannot be read is added without. RM_STATUS_LOCKED when the
// turn does not come. Marks virtual ports and functions as read as AddTargetInfo does targets.
int AddVPortInfo(CHbaEntry* port, CZylTpThread* thread, int verbose) EXCLUDES(g_VPortLock, g_VPTargetLock);

// Adds the virtual functions that the provider lists to those that the port has. Always 0.
int AddSriovVFInfo(CHbaEntry* port, CZylTpThread* thread, int verbose) EXCLUDES(g_VFListLock);

// Room for virtual functions in a first call.
inline constexpr unsigned int kFirstVFRoom = 64;

#endif  // INBAND_PORTVPORTS_H_

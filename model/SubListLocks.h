// The four process-wide locks of the lists that hang off a port.
//
// Thread safety: they guard the handle of such a list while it is exchanged or copied, in every entry at once;
// what a handle points at is immutable as soon as it is shared and needs no lock. All four come after any
// list's own lock.
//
// Ownership: alive from load to the end of the process.
#ifndef MODEL_SUBLISTLOCKS_H_
#define MODEL_SUBLISTLOCKS_H_

#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

extern CZylThreadLock g_VPTargetLock;                               // targets of virtual ports
extern CZylThreadLock g_TargetLock;                                 // targets of ports
extern CZylThreadLock g_VPortLock ACQUIRED_BEFORE(g_VPTargetLock);  // virtual ports of ports
extern CZylThreadLock g_VFListLock;                                 // virtual functions of ports

#endif  // MODEL_SUBLISTLOCKS_H_

// The attributes of one port: its record, kind, link status and iSCSI names.
//
// Thread safety: any thread, several at once; `entry` is for the calling thread alone.
#ifndef INBAND_PORTATTRIBUTES_H_
#define INBAND_PORTATTRIBUTES_H_

#include "model/HbaEntry.h"
#include "thread/zyl_thread_pool.h"

// Reads everything but the port's name, which the entry brings along. Returns 0, a provider status,
// RM_STATUS_OVER_TEMPERATURE (all was read, the link status is kLinkOverTemperature) or kNoISCSINames. A
// failing call leaves a cleared record. A null `thread` is never cut short.
int GetRemotePortAttr(CHbaEntry* entry, CZylTpThread* thread);

// Status of an iSCSI port whose names cannot be read.
inline constexpr int kNoISCSINames = 506;

#endif  // INBAND_PORTATTRIBUTES_H_

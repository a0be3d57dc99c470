// The host lists as the exported interface gives them: read from the files, without the controller and without
// a lock.
//
// Thread safety: no state; any thread. Results are those of the exported calls; no exception leaves them.
#ifndef OOB_HOSTLIST_H_
#define OOB_HOSTLIST_H_

#include <cstddef>
#include <vector>

#include "rmapi/rmapi.h"

// A record of GetOOBHostList; both texts are terminated.
struct OobHostRecord {
  char host[48];
  char name[32];
};
static_assert(sizeof(OobHostRecord) == 80 && offsetof(OobHostRecord, name) == 48);

// The hosts of the file, in its order.
std::vector<OobHostRecord> ReadHostList();

// `list` begins with a 32-bit count (in: room, out: hosts in the file); the records follow at byte 8. 0: all
// fitted, 1: there are more, or null.
int GetOOBHostList(void* list);

// 1: null.
int GetCimCount(unsigned int* count);

// Fills at most `count` of the caller's records. 1: null, no room, or a null record where one was needed.
int GetCimEntries(unsigned int count, CIMCredentials** entries);

// Makes the provider's table of CIM hosts that of the file; without a host in the file the table stays. 1: a
// call failed.
int UpdateCimEntries();

#endif  // OOB_HOSTLIST_H_

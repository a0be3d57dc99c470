// Fills the application's port records from an entry.
//
// Thread safety: the entry must not change meanwhile; a snapshot's entries never do.
#ifndef DISCOVERY_PORTRECORDS_H_
#define DISCOVERY_PORTRECORDS_H_

#include "include/hbadiscovery.h"
#include "model/HbaEntry.h"
#include "model/Systems.h"

// Zeroes the record first. Throws nothing: a walk that is under way must not end for want of memory.
void FillRecord(const CHbaEntry& entry, hba_discovery_info* record) noexcept;
void FillRecord(const CHbaEntry& entry, hba_discovery_info_V2* record) noexcept;
void FillRecord(const CHbaEntry& entry, hba_discovery_info_V3* record) noexcept;
void FillRecord(const CHbaEntry& entry, hba_discovery_info_V4* record) noexcept;
void FillRecord(const CDiscISCSINames& names, discovery_iscsi_names* record) noexcept;

// The status of one that could not be asked, as applications see it.
int StatusOf(const AnswerRecord& asked) noexcept;

// Does not zero the record. `record` has room for all ports of the system behind it.
void FillRecord(CSystemEntry& system, system_discovery_info* record);

#endif  // DISCOVERY_PORTRECORDS_H_

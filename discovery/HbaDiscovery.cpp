// The exported calls: forward to the controller and copy results out.

#include <cstring>
#include <memory>
#include <utility>

#include "discovery/Library.h"
#include "include/hbadiscovery.h"
#include "oob/HostList.h"

Library& TheLibrary() {
  static Library& library = *new Library;
  return library;
}

namespace {

// Loading the library constructs the controller, which reads the settings and opens the log.
[[maybe_unused]] const Library& gs_Loaded = TheLibrary();

constexpr unsigned int kDefaultOobInterval = 90;  // seconds
constexpr int kVFPortUnknown = 2;

// Looks a port up in the snapshot and takes a snapshot first when there is none.
EnumerationWalk::Port FindPort(const HBA_NAME& wwpn) {
  EnumerationWalk& walk = TheLibrary().walk;
  EnumerationWalk::Port port = walk.Find(wwpn);
  if (port.snapshot != nullptr) return port;
  return walk.FindIn(TheLibrary().controller.Picture().GetCurrentHbaList(), wwpn);
}

// Runs `query` on the port. Without any snapshot the count becomes 0; an unknown port leaves it alone.
template <class Query>
int AskPort(const HBA_NAME& wwpn, const void* records, unsigned int* count, Query query) {
  if (count == nullptr || (records == nullptr && *count != 0)) return 0;
  try {
    const EnumerationWalk::Port port = FindPort(wwpn);
    if (port.snapshot != nullptr) return port.entry == nullptr ? 0 : static_cast<int>(query(*port.entry));
  } catch (...) {
    // No memory for a snapshot: there is none.
  }
  *count = 0;
  return 0;
}

int FillNextSystem(system_discovery_info* info, bool first) {
  SharedSlot<CSystemList>& slot = TheLibrary().systems;
  const std::shared_ptr<CSystemList> systems = slot.Get();
  if (systems == nullptr) return 0;
  SystemListGuard guard(*systems);
  CSystemEntry* system = first ? systems->GetFirstEntry() : systems->GetNextEntry();
  if (system == nullptr) {
    slot.Set(nullptr);
    return 0;
  }
  FillRecord(*system, info);
  return first ? static_cast<int>(systems->GetCount()) : 1;
}

template <class Record>
int GetFirst(Record* record) {
  return BeginWalk(record, [] { return TheLibrary().controller.Picture().GetCurrentHbaList(); });
}

// The names of a port that does not answer, in a walk over the kept picture: the current one may have lost it.
bool NamesOfKept(const HBA_NAME& wwpn, CDiscISCSINames* names) {
  const EnumerationWalk::Port port = TheLibrary().walk.Find(wwpn);
  if (port.entry == nullptr || !port.entry->GetUnanswered()) return false;
  if ((port.entry->GetSpecialFeatures() & RM_FEATURE_ISCSI) == 0) return false;
  *names = *port.entry->GetISCSINames();
  return true;
}

}  // namespace

// ---- Life cycle and control

void HBADisc_Startup(unsigned int interval) {
  HBADisc_StartupEx(interval, kDefaultOobInterval, 0);
}

void HBADisc_StartupEx(unsigned int interval, unsigned int oobInterval, int localOnly) {
  TheLibrary().controller.Startup(interval, oobInterval, localOnly);
}

void HBADisc_Terminate(void) {
  Library& library = TheLibrary();
  // Without waiting for the gate: a walk that is half done still owns it.
  library.walk.DropSnapshot();
  FreeSystemList(library.systems);
  library.controller.Terminate();
}

void HBADisc_RegisterCallBack(HBADisc_CallBack callback, unsigned int eventMask, void* context) {
  TheLibrary().controller.RegisterCallBack(callback, eventMask, context);
}

void HBADisc_PauseDiscovery(void) {
  TheLibrary().controller.PauseDiscovery();
}

int HBADisc_StartDiscoveryCycle(void) {
  return TheLibrary().controller.StartDiscoveryCycle();
}

int HBADisc_DirectedDiscoveryUpdate(HBA_NAME wwpn, unsigned int what) {
  return Guarded(0, [&] { return TheLibrary().controller.DirectedDiscoveryUpdate(wwpn, what); });
}

int HBADisc_InDiscoveryCycle(void) {
  return TheLibrary().controller.InDiscoveryCycle();
}

void HBADisc_KillDiscoveryCycle(void) {
  TheLibrary().controller.KillDiscoveryCycle(0);
}

void HBADisc_ChangeDiscoveryInterval(unsigned int interval) {
  TheLibrary().controller.ChangeDiscoveryInterval(interval);
}

// As documented, nothing while remote hosts are not discovered.
void HBADisc_ChangeOOBDiscoveryInterval(unsigned int interval) {
  TheLibrary().controller.ChangeOOBDiscoveryInterval(interval);
}

// ---- Reading the ports

int HBADisc_GetFirstHba(hba_discovery_info* info) {
  return GetFirst(info);
}
int HBADisc_GetFirstHbaV2(hba_discovery_info_V2* info) {
  return GetFirst(info);
}
int HBADisc_GetFirstHbaV3(hba_discovery_info_V3* info) {
  return GetFirst(info);
}

int HBADisc_GetNextHba(hba_discovery_info* info) {
  return ContinueWalk(info);
}
int HBADisc_GetNextHbaV2(hba_discovery_info_V2* info) {
  return ContinueWalk(info);
}
int HBADisc_GetNextHbaV3(hba_discovery_info_V3* info) {
  return ContinueWalk(info);
}

int HBADisc_GetFirstSystem(system_discovery_info* info) {
  if (info == nullptr) return 0;
  return Guarded(0, [info] {
    Library& library = TheLibrary();
    FreeSystemList(library.systems);
    library.systems.Set(library.controller.Picture().GetCurrentSystemList());
    return FillNextSystem(info, true);
  });
}

int HBADisc_GetNextSystem(system_discovery_info* info) {
  if (info == nullptr) return 0;
  return Guarded(0, [info] { return FillNextSystem(info, false); });
}

int HBADisc_GetTargetMappings(HBA_NAME wwpn, RM_NodeInfoEntry* targets, unsigned int* count) {
  return AskPort(wwpn, targets, count, [&](const CHbaEntry& port) { return port.GetTargets(targets, count); });
}

int HBADisc_GetiSCSITargets(HBA_NAME wwpn, RM_NodeInfoEntry* targets, unsigned int* count) {
  return HBADisc_GetTargetMappings(wwpn, targets, count);
}

int HBADisc_GetVPorts(HBA_NAME wwpn, discovery_vport_info* vports, unsigned int* count) {
  return AskPort(wwpn, vports, count, [&](const CHbaEntry& port) { return port.GetVPorts(vports, count); });
}

int HBADisc_GetVPortTargets(HBA_NAME wwpn, HBA_NAME vportWwpn, RM_NodeInfoEntry* targets, unsigned int* count) {
  return AskPort(wwpn, targets, count,
                 [&](const CHbaEntry& port) { return port.GetVPortTargets(vportWwpn, targets, count); });
}

int HBADisc_GetVirtualFunctionAddrs(HBA_NAME wwpn, discovery_vf_addrs* addresses) {
  if (addresses == nullptr) return kVFPortUnknown;
  return Guarded(kVFPortUnknown, [&] {
    const EnumerationWalk::Port port = FindPort(wwpn);
    return port.entry == nullptr ? kVFPortUnknown
                                 : static_cast<int>(port.entry->GetVirtualFunctionAddrs(addresses));
  });
}

int HBADisc_GetiSCSINames(HBA_NAME wwpn, discovery_iscsi_names* names) {
  if (names == nullptr) return 0;
  *names = {};
  return Guarded(0, [&] {
    CDiscISCSINames found;
    if (TheLibrary().controller.Picture().GetiSCSINames(wwpn, &found) == 0 && !NamesOfKept(wwpn, &found))
      return 0;
    FillRecord(found, names);
    return 1;
  });
}

// ---- Remote hosts

int HBADisc_AddOOBHostA(const char* host) {
  return Guarded(COOBHbaDiscover::kRefused,
                 [&] { return TheLibrary().controller.RemoteHosts().AddOOBHost(host); });
}

int HBADisc_RemoveOOBHostA(const char* host) {
  return Guarded(0, [&] { return TheLibrary().controller.RemoteHosts().RemoveOOBHost(host); });
}

int HBADisc_AddOOBHostW(const wchar_t* /*host*/) {
  return 1;
}

int HBADisc_RemoveOOBHostW(const wchar_t* /*host*/) {
  return 1;
}

int HBADisc_GetOOBHostList(hbadisc_oob_host_list* list) {
  return GetOOBHostList(list);
}

int HBADisc_AddCimHost(const CIMCredentials* credentials) {
  return TheLibrary().controller.RemoteHosts().AddCimHost(credentials);
}

int HBADisc_RemoveCimHost(const CIMCredentials* credentials) {
  return Guarded(0, [&] { return TheLibrary().controller.RemoteHosts().RemoveCimHost(credentials); });
}

int HBADisc_GetCimCount(unsigned int* count) {
  return GetCimCount(count);
}

int HBADisc_GetCimEntries(unsigned int count, CIMCredentials** entries) {
  return GetCimEntries(count, entries);
}

int HBADisc_UpdateCimEntries(void) {
  return UpdateCimEntries();
}

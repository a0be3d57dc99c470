#include "tests/tool/FakeLibrary.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>

namespace fake {

namespace {

struct State {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<Step> steps;
  std::vector<Port> ports;
  unsigned int refreshReason = 0;
  std::vector<hbadisc_oob_host> hosts;
  int addResult = 0;
  int removeResult = 1;
  std::vector<Port> snapshot;
  std::size_t cursor = 0;
  bool stopping = false;
  Record record;
  HBADisc_CallBack callBack = nullptr;
  void* context = nullptr;
  std::thread thread;
};

State& TheState() {
  static State state;
  return state;
}

[[noreturn]] void Breach(const char* text) {
  std::fprintf(stderr, "breach of contract: %s\n", text);
  std::abort();
}

// Takes one step after the other; each waits for the walk that the step before has caused.
void RunScript() {
  State& state = TheState();
  std::unique_lock lock(state.mutex);
  for (const Step& step : std::exchange(state.steps, {})) {
    if (state.stopping) return;
    state.ports = step.ports;
    state.refreshReason = step.refreshReason;
    const int walksBefore = state.record.walksEnded;
    lock.unlock();
    state.callBack(step.reason, state.context);
    lock.lock();
    if (!step.awaitWalk) continue;
    state.changed.wait(lock, [&] { return state.stopping || state.record.walksEnded > walksBefore; });
  }
}

bool SameName(const std::uint8_t (&bytes)[8], HBA_NAME name) {
  return std::memcmp(bytes, name.wwn, 8) == 0;
}

// The port a query may see: the one that the walk stands on.
const Port* Visible(const State& state, HBA_NAME name) {
  if (!state.record.walkOpen) Breach("a per-port query outside a walk");
  const Port& port = state.snapshot[state.cursor];
  return SameName(port.record.base.base.port.portWwn, name) ? &port : nullptr;
}

template <class T>
int CopyOut(const std::vector<T>& from, T* to, unsigned int* count) {
  if (!to || !count) Breach("a null array or count");
  const std::size_t copied = std::min<std::size_t>(*count, from.size());
  std::copy_n(from.begin(), copied, to);
  *count = static_cast<unsigned int>(copied);
  return static_cast<int>(from.size() - copied);
}

void CloseWalk(State& state) {
  state.record.walkOpen = false;
  ++state.record.walksEnded;
  state.changed.notify_all();
}

int FirstPort(hba_discovery_info_V3* info) {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  if (state.record.walkOpen) Breach("a walk begun before another was finished");
  state.snapshot = state.ports;
  state.cursor = 0;
  state.record.walkOpen = true;
  if (state.snapshot.empty()) {
    CloseWalk(state);
    return 0;
  }
  *info = state.snapshot.front().record;
  return static_cast<int>(state.snapshot.size());
}

int NextPort(hba_discovery_info_V3* info) {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  if (!state.record.walkOpen) Breach("GetNextHba without a walk");
  if (++state.cursor == state.snapshot.size()) {
    CloseWalk(state);
    return 0;
  }
  *info = state.snapshot[state.cursor].record;
  return 1;
}

}  // namespace

void SetScript(std::vector<Step> steps) {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  if (state.thread.joinable()) Breach("a new script while discovery runs");
  state.steps = std::move(steps);
  state.ports.clear();
  state.stopping = false;
  state.record = {};
}

void SetHosts(std::vector<hbadisc_oob_host> hosts, int addResult, int removeResult) {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  state.hosts = std::move(hosts);
  state.addResult = addResult;
  state.removeResult = removeResult;
}

Record Recorded() {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  return state.record;
}

void SetText(char* field, std::size_t size, const std::string& text) {
  std::memset(field, 0, size);
  std::memcpy(field, text.data(), std::min(size, text.size()));
}

Port MakePort(unsigned char number, unsigned int features) {
  Port port;
  hba_discovery_info& info = port.record.base.base;
  info.isLocal = 1;
  const std::uint8_t wwpn[8] = {0x10, 0, 2, 0x5d, 0xfa, 0, 0, number};
  const std::uint8_t wwnn[8] = {0x20, 0, 2, 0x5d, 0xfa, 0, 0, number};
  std::memcpy(info.port.portWwn, wwpn, sizeof wwpn);
  std::memcpy(info.port.nodeWwn, wwnn, sizeof wwnn);
  SetText(info.port.hostName, "lab1");
  SetText(info.port.manufacturer, "Varnix");
  SetText(info.port.model, "VX3200");
  info.linkStatus = 1;
  port.record.base.specialFeatures = features;
  SetText(port.record.base.position.vpdPortNumber, std::to_string(number));
  return port;
}

RM_NodeInfoEntry MakeFcTarget(unsigned char number) {
  RM_NodeInfoEntry target{};
  const std::uint8_t wwpn[8] = {0x50, 0, 0, 0, 0, 0, 0, number};
  const std::uint8_t wwnn[8] = {0x51, 0, 0, 0, 0, 0, 0, number};
  std::memcpy(target.portWwn, wwpn, sizeof wwpn);
  std::memcpy(target.nodeWwn, wwnn, sizeof wwnn);
  target.target = number;
  target.fcAddressId = 0x010200;
  target.nodeState = RM_NODE_EXISTS | RM_NODE_READY;
  SetText(target.osDeviceName, "/dev/sda");
  return target;
}

RM_NodeInfoEntry MakeIscsiTarget(const std::string& name, unsigned char flags) {
  _RM_ISCSI_TARGET target{};
  SetText(target.targetName, name);
  if (name.size() > sizeof target.targetName) SetText(target.secondName, name.substr(sizeof target.targetName));
  target.flags[0] = flags;
  RM_NodeInfoEntry slot{};
  std::memcpy(static_cast<void*>(&slot), &target, sizeof target);
  return slot;
}

VPort MakeVPort(unsigned char number, std::vector<RM_NodeInfoEntry> targets) {
  VPort vport;
  vport.record.portWwn = {{0x30, 0, 0, 0, 0, 0, 0, number}};
  vport.record.nodeWwn = {{0x31, 0, 0, 0, 0, 0, 0, number}};
  vport.record.targetCount = static_cast<std::uint32_t>(targets.size());
  vport.targets = std::move(targets);
  return vport;
}

}  // namespace fake

extern "C" {

void HBADisc_RegisterCallBack(HBADisc_CallBack callback, unsigned int eventMask, void* context) {
  fake::State& state = fake::TheState();
  const std::lock_guard lock(state.mutex);
  state.callBack = callback;
  state.context = context;
  state.record.eventMask = eventMask;
}

void HBADisc_StartupEx(unsigned int interval, unsigned int oobInterval, int localOnly) {
  fake::State& state = fake::TheState();
  const std::lock_guard lock(state.mutex);
  state.record.interval = interval;
  state.record.oobInterval = oobInterval;
  state.record.localOnly = localOnly;
  ++state.record.startups;
  state.thread = std::thread(fake::RunScript);
}

void HBADisc_Terminate(void) {
  fake::State& state = fake::TheState();
  std::thread thread;
  {
    const std::lock_guard lock(state.mutex);
    if (state.record.walkOpen) fake::Breach("HBADisc_Terminate during a walk");
    state.stopping = true;
    ++state.record.terminates;
    state.changed.notify_all();
    thread = std::move(state.thread);
  }
  if (thread.joinable()) thread.join();
}

int HBADisc_DirectedDiscoveryUpdate(HBA_NAME wwpn, unsigned int what) {
  fake::State& state = fake::TheState();
  const std::lock_guard lock(state.mutex);
  state.record.refreshWhat = what;
  const bool known = std::ranges::any_of(state.ports, [&](const fake::Port& port) {
    return fake::SameName(port.record.base.base.port.portWwn, wwpn);
  });
  if (known && state.refreshReason != 0) state.callBack(state.refreshReason, state.context);
  return known ? 1 : 0;
}

int HBADisc_AddOOBHostA(const char* host) {
  fake::State& state = fake::TheState();
  const std::lock_guard lock(state.mutex);
  state.record.hosts.push_back(std::string("add ") + host);
  return state.addResult;
}

int HBADisc_RemoveOOBHostA(const char* host) {
  fake::State& state = fake::TheState();
  const std::lock_guard lock(state.mutex);
  state.record.hosts.push_back(std::string("remove ") + host);
  return state.removeResult;
}

int HBADisc_GetOOBHostList(hbadisc_oob_host_list* list) {
  fake::State& state = fake::TheState();
  const std::lock_guard lock(state.mutex);
  const std::size_t room = list->count;
  const std::size_t copied = std::min(room, state.hosts.size());
  std::copy_n(state.hosts.begin(), copied, reinterpret_cast<hbadisc_oob_host*>(list + 1));
  list->count = static_cast<std::uint32_t>(state.hosts.size());
  return state.hosts.size() > room ? 1 : 0;
}

int HBADisc_GetFirstHbaV3(hba_discovery_info_V3* info) {
  return fake::FirstPort(info);
}
int HBADisc_GetNextHbaV3(hba_discovery_info_V3* info) {
  return fake::NextPort(info);
}

int HBADisc_GetTargetMappings(HBA_NAME wwpn, RM_NodeInfoEntry* targets, unsigned int* count) {
  fake::State& state = fake::TheState();
  const std::lock_guard lock(state.mutex);
  const fake::Port* port = fake::Visible(state, wwpn);
  return port ? fake::CopyOut(port->targets, targets, count) : 0;
}

int HBADisc_GetVPorts(HBA_NAME wwpn, discovery_vport_info* vports, unsigned int* count) {
  fake::State& state = fake::TheState();
  const std::lock_guard lock(state.mutex);
  const fake::Port* port = fake::Visible(state, wwpn);
  if (!port) return 0;
  std::vector<discovery_vport_info> records;
  for (const fake::VPort& vport : port->vports) records.push_back(vport.record);
  return fake::CopyOut(records, vports, count);
}

int HBADisc_GetVPortTargets(HBA_NAME wwpn, HBA_NAME vportWwpn, RM_NodeInfoEntry* targets, unsigned int* count) {
  fake::State& state = fake::TheState();
  const std::lock_guard lock(state.mutex);
  const fake::Port* port = fake::Visible(state, wwpn);
  if (!port) return 0;
  for (const fake::VPort& vport : port->vports) {
    if (fake::SameName(vport.record.portWwn.wwn, vportWwpn))
      return fake::CopyOut(vport.targets, targets, count);
  }
  *count = 0;
  return 0;
}

int HBADisc_GetVirtualFunctionAddrs(HBA_NAME wwpn, discovery_vf_addrs* addresses) {
  fake::State& state = fake::TheState();
  const std::lock_guard lock(state.mutex);
  const fake::Port* port = fake::Visible(state, wwpn);
  if (!port) return 2;
  const auto needed = static_cast<std::uint32_t>(port->virtualFunctions.size());
  const bool fits = addresses->count >= needed;
  if (fits && needed > 0) {
    std::memcpy(reinterpret_cast<char*>(addresses) + sizeof addresses->count, port->virtualFunctions.data(),
                needed * sizeof(HBA_NAME));
  }
  addresses->count = needed;
  return fits ? 0 : 1;
}

int HBADisc_GetiSCSINames(HBA_NAME wwpn, discovery_iscsi_names* names) {
  fake::State& state = fake::TheState();
  const std::lock_guard lock(state.mutex);
  std::memset(names, 0, sizeof *names);
  const fake::Port* port = fake::Visible(state, wwpn);
  if (!port || !port->iscsiNames) return 0;
  *names = *port->iscsiNames;
  return 1;
}

}  // extern "C"

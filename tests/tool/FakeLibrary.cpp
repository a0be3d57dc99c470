#include "tests/tool/FakeLibrary.h"

#include <algorithm>
#include <array>
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
  std::vector<Port> refreshed;
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

class Locked {
 public:
  State* operator->() const { return &m_State; }

 private:
  State& m_State = TheState();
  const std::lock_guard<std::mutex> m_Lock{m_State.mutex};
};

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
    state.refreshed = step.refreshed;
    const int walksBefore = state.record.walksEnded;
    lock.unlock();
    state.callBack(step.reason, state.context);
    lock.lock();
    if (!step.awaitWalk) continue;
    state.changed.wait(lock, [&] { return state.stopping || state.record.walksEnded > walksBefore; });
  }
}

bool HasName(const Port& port, HBA_NAME name) {
  return std::memcmp(port.record.base.base.port.portWwn, name.wwn, sizeof name.wwn) == 0;
}

// The port at the cursor, or the end of the walk.
bool Show(const Locked& state, hba_discovery_info_V3* info) {
  if (state->cursor < state->snapshot.size()) {
    *info = state->snapshot[state->cursor].record;
    return true;
  }
  state->record.walkOpen = false;
  ++state->record.walksEnded;
  state->changed.notify_all();
  return false;
}

// A query may see the port that the walk stands on, and no other.
template <class Answer>
int AskPort(HBA_NAME name, int unknown, Answer answer) {
  const Locked state;
  if (!state->record.walkOpen) Breach("a per-port query outside a walk");
  const Port& port = state->snapshot[state->cursor];
  return HasName(port, name) ? answer(port) : unknown;
}

void SetName(std::uint8_t (&field)[8], const std::array<std::uint8_t, 8>& name) {
  std::ranges::copy(name, field);
}

template <class T>
int CopyOut(const std::vector<T>& from, T* to, unsigned int* count) {
  if (!to || !count) Breach("a null array or count");
  const std::size_t copied = std::min<std::size_t>(*count, from.size());
  std::copy_n(from.begin(), copied, to);
  *count = static_cast<unsigned int>(copied);
  return static_cast<int>(from.size() - copied);
}

}  // namespace

void SetScript(std::vector<Step> steps) {
  const Locked state;
  if (state->thread.joinable()) Breach("a new script while discovery runs");
  state->steps = std::move(steps);
  state->ports.clear();
  state->stopping = false;
  state->record = {};
}

void SetHosts(std::vector<hbadisc_oob_host> hosts, int addResult, int removeResult) {
  const Locked state;
  state->hosts = std::move(hosts);
  state->addResult = addResult;
  state->removeResult = removeResult;
}

Record Recorded() {
  return Locked()->record;
}

Port MakePort(unsigned char number, unsigned int features) {
  Port port;
  hba_discovery_info& info = port.record.base.base;
  info.isLocal = 1;
  SetName(info.port.portWwn, {0x10, 0, 2, 0x5d, 0xfa, 0, 0, number});
  SetName(info.port.nodeWwn, {0x20, 0, 2, 0x5d, 0xfa, 0, 0, number});
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
  SetName(target.portWwn, {0x50, 0, 0, 0, 0, 0, 0, number});
  SetName(target.nodeWwn, {0x51, 0, 0, 0, 0, 0, 0, number});
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

using fake::Locked;
using fake::Port;

extern "C" {

void HBADisc_RegisterCallBack(HBADisc_CallBack callback, unsigned int, void* context) {
  const Locked state;
  state->callBack = callback;
  state->context = context;
}

void HBADisc_StartupEx(unsigned int interval, unsigned int oobInterval, int localOnly) {
  const Locked state;
  state->record.interval = interval;
  state->record.oobInterval = oobInterval;
  state->record.localOnly = localOnly;
  ++state->record.startups;
  state->thread = std::thread(fake::RunScript);
}

void HBADisc_Terminate(void) {
  std::thread thread;
  {
    const Locked state;
    if (state->record.walkOpen) fake::Breach("HBADisc_Terminate during a walk");
    state->stopping = true;
    ++state->record.terminates;
    state->changed.notify_all();
    thread = std::move(state->thread);
  }
  if (thread.joinable()) thread.join();
}

int HBADisc_DirectedDiscoveryUpdate(HBA_NAME wwpn, unsigned int what) {
  const Locked state;
  state->record.refreshWhat = what;
  const bool known =
      std::ranges::any_of(state->ports, [&](const Port& port) { return fake::HasName(port, wwpn); });
  if (known && !state->refreshed.empty()) state->ports = state->refreshed;
  if (known && state->refreshReason != 0) state->callBack(state->refreshReason, state->context);
  return known ? 1 : 0;
}

int HBADisc_AddOOBHostA(const char* host) {
  const Locked state;
  state->record.hosts.push_back(std::string("add ") + host);
  return state->addResult;
}

int HBADisc_RemoveOOBHostA(const char* host) {
  const Locked state;
  state->record.hosts.push_back(std::string("remove ") + host);
  return state->removeResult;
}

int HBADisc_GetOOBHostList(hbadisc_oob_host_list* list) {
  const Locked state;
  const std::size_t room = list->count;
  std::copy_n(state->hosts.begin(), std::min(room, state->hosts.size()),
              reinterpret_cast<hbadisc_oob_host*>(list + 1));
  list->count = static_cast<std::uint32_t>(state->hosts.size());
  return state->hosts.size() > room ? 1 : 0;
}

int HBADisc_GetFirstHbaV3(hba_discovery_info_V3* info) {
  const Locked state;
  if (state->record.walkOpen) fake::Breach("a walk begun before another was finished");
  state->snapshot = state->ports;
  state->cursor = 0;
  state->record.walkOpen = true;
  return fake::Show(state, info) ? static_cast<int>(state->snapshot.size()) : 0;
}

int HBADisc_GetNextHbaV3(hba_discovery_info_V3* info) {
  const Locked state;
  if (!state->record.walkOpen) fake::Breach("GetNextHba without a walk");
  ++state->cursor;
  return fake::Show(state, info) ? 1 : 0;
}

int HBADisc_GetTargetMappings(HBA_NAME wwpn, RM_NodeInfoEntry* targets, unsigned int* count) {
  return fake::AskPort(wwpn, 0, [&](const Port& port) { return fake::CopyOut(port.targets, targets, count); });
}

int HBADisc_GetVPorts(HBA_NAME wwpn, discovery_vport_info* vports, unsigned int* count) {
  return fake::AskPort(wwpn, 0, [&](const Port& port) {
    std::vector<discovery_vport_info> records;
    for (const fake::VPort& vport : port.vports) records.push_back(vport.record);
    return fake::CopyOut(records, vports, count);
  });
}

int HBADisc_GetVPortTargets(HBA_NAME wwpn, HBA_NAME vportWwpn, RM_NodeInfoEntry* targets, unsigned int* count) {
  return fake::AskPort(wwpn, 0, [&](const Port& port) {
    const auto vport = std::ranges::find_if(port.vports, [&](const fake::VPort& each) {
      return std::memcmp(each.record.portWwn.wwn, vportWwpn.wwn, sizeof vportWwpn.wwn) == 0;
    });
    return fake::CopyOut(vport != port.vports.end() ? vport->targets : std::vector<RM_NodeInfoEntry>(), targets,
                         count);
  });
}

int HBADisc_GetVirtualFunctionAddrs(HBA_NAME wwpn, discovery_vf_addrs* addresses) {
  return fake::AskPort(wwpn, 2, [&](const Port& port) {
    const std::vector<HBA_NAME>& functions = port.virtualFunctions;
    const bool fits = addresses->count >= functions.size();
    char* const room = reinterpret_cast<char*>(addresses) + sizeof addresses->count;
    if (fits) std::ranges::copy(functions, reinterpret_cast<HBA_NAME*>(room));
    addresses->count = static_cast<std::uint32_t>(functions.size());
    return fits ? 0 : 1;
  });
}

int HBADisc_GetiSCSINames(HBA_NAME wwpn, discovery_iscsi_names* names) {
  return fake::AskPort(wwpn, 0, [&](const Port& port) {
    *names = port.iscsiNames.value_or(discovery_iscsi_names{});
    return port.iscsiNames ? 1 : 0;
  });
}

}  // extern "C"

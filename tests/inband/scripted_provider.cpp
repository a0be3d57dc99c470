#include "tests/inband/scripted_provider.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "discovery/HbaDiscoveryListKey.h"

ScriptedProvider* ScriptedProvider::s_Current = nullptr;

HBA_NAME Name(std::uint64_t wwn) {
  HBA_NAME name{};
  for (int i = 0; i < 8; ++i) name.wwn[i] = static_cast<std::uint8_t>(wwn >> (56 - 8 * i));
  return name;
}

RM_NodeInfoEntry Node(std::uint64_t wwpn, std::uint32_t state) {
  RM_NodeInfoEntry node{};
  std::memcpy(node.portWwn, Name(wwpn).wwn, 8);
  std::memcpy(node.nodeWwn, Name(wwpn + 0x100).wwn, 8);
  node.nodeState = state;
  return node;
}

_RM_ISCSI_TARGET ISCSITarget(const std::string& name, std::uint8_t flags) {
  _RM_ISCSI_TARGET target{};
  std::memcpy(&target, name.data(), name.size());
  target.flags[0] = flags;
  return target;
}

RM_VPortTargetEntry VPortTarget(std::uint64_t wwpn) {
  RM_VPortTargetEntry target{};
  std::memset(target.unused, 0xAA, sizeof(target.unused));
  std::memcpy(target.osDeviceName, "/dev/sdv", 9);
  target.bus = 1;
  target.target = 2;
  target.lun = 3;
  target.fcAddressId = 4;
  std::memcpy(target.nodeWwn, Name(wwpn + 0x100).wwn, 8);
  std::memcpy(target.portWwn, Name(wwpn).wwn, 8);
  target.fcpLun = 5;
  return target;
}

HBA_info_v4 Info(std::uint64_t wwpn, std::uint32_t features) {
  HBA_info_v4 info{};
  std::memcpy(info.portWwn, Name(wwpn).wwn, 8);
  std::memcpy(info.hostName, "host", 5);
  info.specialFeatures = features;
  return info;
}

Attribute Attribute::Text(const std::string& text) {
  return {RM_ATTRIBUTE_TEXT, text + '\0', false};
}

Attribute Attribute::Number(std::uint32_t number) {
  return {RM_ATTRIBUTE_U32, std::string(reinterpret_cast<const char*>(&number), sizeof(number)), false};
}

Attribute Attribute::Wwn(std::uint64_t wwn) {
  return {RM_ATTRIBUTE_NAME, std::string(reinterpret_cast<const char*>(Name(wwn).wwn), 8), false};
}

ScriptedBoard& ScriptedProvider::AddBoard(const HBA_info_v4& info) {
  boards.push_back({100 + static_cast<unsigned int>(boards.size()), 1, info});
  return boards.back();
}

void ScriptedProvider::Script(const std::string& call, std::vector<Step> steps) {
  const std::lock_guard guard(m_Lock);
  m_Steps[call] = std::deque<Step>(steps.begin(), steps.end());
}

void ScriptedProvider::OnCall(const std::string& call, std::function<void()> action) {
  const std::lock_guard guard(m_Lock);
  m_Actions[call] = std::move(action);
}

int ScriptedProvider::Calls(const std::string& call) const {
  const std::lock_guard guard(m_Lock);
  const auto found = m_Calls.find(call);
  return found == m_Calls.end() ? 0 : found->second;
}

std::vector<std::uint32_t> ScriptedProvider::Rooms(const std::string& call) const {
  const std::lock_guard guard(m_Lock);
  const auto found = m_Rooms.find(call);
  return found == m_Rooms.end() ? std::vector<std::uint32_t>() : found->second;
}

std::set<unsigned int> ScriptedProvider::LookedUp() const {
  const std::lock_guard guard(m_Lock);
  return m_LookedUp;
}

std::optional<Step> ScriptedProvider::Enter(const std::string& call, std::optional<std::uint32_t> room) {
  std::function<void()> action;
  std::optional<Step> step;
  {
    const std::lock_guard guard(m_Lock);
    ++m_Calls[call];
    if (room) m_Rooms[call].push_back(*room);
    if (const auto found = m_Actions.find(call); found != m_Actions.end()) action = found->second;
    if (auto& steps = m_Steps[call]; !steps.empty()) {
      step = steps.front();
      steps.pop_front();
    }
  }
  if (action) action();
  return step;
}

const ScriptedPort& ScriptedProvider::PortOf(const unsigned char* wwn) const {
  static const ScriptedPort nothing;
  const auto found = ports.find(WwpnKey(wwn));
  return found == ports.end() ? nothing : found->second;
}

void ScriptedProvider::NoteLookUp(unsigned int id) {
  const std::lock_guard guard(m_Lock);
  m_LookedUp.insert(id);
}

namespace {

ScriptedProvider& Provider() {
  return *ScriptedProvider::s_Current;
}

void NoteProxy(const unsigned char* proxy) {
  Provider().lastProxy = proxy == nullptr ? 0 : WwpnKey(proxy);
}

template <typename Header, typename Record>
int FillList(const char* call, Header* list, const std::vector<Record>& records) {
  const std::uint32_t room = list->count;
  if (const auto step = Provider().Enter(call, room)) {
    if (step->count) list->count = *step->count;
    // Without a count a fault leaves anything behind.
    if (!step->count && step->status != 0) list->count = 0;
    if (step->status != 0 || step->count) return step->status;
  }
  list->count = static_cast<std::uint32_t>(records.size());
  if (records.size() > room) return Provider().overfullIsSuccess ? RM_STATUS_OK : RM_STATUS_BUFFER_TOO_SMALL;
  if (!records.empty()) std::memcpy(list + 1, records.data(), records.size() * sizeof(Record));
  return RM_STATUS_OK;
}

int StatusOf(const char* call) {
  const auto step = Provider().Enter(call);
  return step ? step->status : RM_STATUS_OK;
}

// Attributes one after the other, id, type, length, kind and bytes, at odd addresses.
constexpr std::size_t kBufferStart = 1;

int FillAttributes(const char* call, const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                   unsigned int* size) {
  NoteProxy(proxy);
  const int status = StatusOf(call);
  if (status != RM_STATUS_OK && status != RM_STATUS_OVER_TEMPERATURE) return status;
  std::string bytes(kBufferStart, '\0');
  for (const auto& [id, attribute] : Provider().PortOf(wwn).attributes) {
    const std::uint32_t head[] = {id, attribute.type, static_cast<std::uint32_t>(attribute.bytes.size()),
                                  attribute.withoutValue ? 1U : 0U};
    bytes.append(reinterpret_cast<const char*>(head), sizeof(head)).append(attribute.bytes);
  }
  if (bytes.size() > *size) return RM_STATUS_BUFFER_TOO_SMALL;
  std::memcpy(buffer, bytes.data(), bytes.size());
  *size = Provider().usedSize.value_or(static_cast<unsigned int>(bytes.size()));
  return status;
}

void CopyName(char* field, const std::string& name) {
  // As the boundary allows, a name of 256 bytes has no NUL.
  std::memcpy(field, name.data(), std::min<std::size_t>(name.size(), 256));
}

}  // namespace

extern "C" {

int RM_GetAllLocalHBAInstances(unsigned int* count, unsigned int* instances) {
  const unsigned int room = *count;
  if (const auto step = Provider().Enter("RM_GetAllLocalHBAInstances", room)) {
    if (step->count) *count = *step->count;
    if (step->status != 0 || step->count) return step->status;
  }
  const auto& boards = Provider().boards;
  *count = static_cast<unsigned int>(boards.size());
  if (*count > room) return RM_STATUS_BUFFER_TOO_SMALL;
  for (std::size_t i = 0; i < boards.size(); ++i) instances[i] = boards[i].instance;
  return RM_STATUS_OK;
}

int RM_GetLocalHBAInfoV4(local_hba_info* board, HBA_info_v4* info) {
  if (const int status = StatusOf("RM_GetLocalHBAInfoV4"); status != RM_STATUS_OK) return status;
  for (const ScriptedBoard& scripted : Provider().boards) {
    if (scripted.instance != board->instance) continue;
    board->provider[0] = scripted.instance;
    board->linkStatus = scripted.linkStatus;
    *info = scripted.info;
    return RM_STATUS_OK;
  }
  return RM_STATUS_NOT_FOUND;
}

int RM_IsVarnixPort(const unsigned char* wwpn) {
  return Provider().varnixPorts.count(WwpnKey(wwpn)) != 0 ? 1 : 0;
}

int RM_GetDiscoveryAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                              unsigned int* size) {
  return FillAttributes("RM_GetDiscoveryAttributes", proxy, wwn, buffer, size);
}

int RM_GetHBAAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                        unsigned int* size) {
  return FillAttributes("RM_GetHBAAttributes", proxy, wwn, buffer, size);
}

const void* RM_GetAttributeValue(const void* buffer, unsigned int id, unsigned int* type, int* status) {
  Provider().NoteLookUp(id);
  const char* at = static_cast<const char*>(buffer) + kBufferStart;
  for (;;) {
    std::uint32_t head[4];
    std::memcpy(head, at, sizeof(head));
    at += sizeof(head);
    if (head[0] == 0) break;
    if (head[0] == id) {
      *type = head[1];
      *status = RM_STATUS_OK;
      return head[3] != 0 ? nullptr : at;
    }
    at += head[2];
  }
  *status = RM_STATUS_NOT_FOUND;
  return nullptr;
}

int RM_GetAdapterType(unsigned int modelId, char* text) {
  Provider().lastModelId = modelId;
  std::memcpy(text, Provider().adapterType.c_str(), Provider().adapterType.size() + 1);
  return RM_STATUS_OK;
}

int RM_GetDriverType(const unsigned char* proxy, const unsigned char* wwn, unsigned int* type) {
  NoteProxy(proxy);
  *type = Provider().PortOf(wwn).driverType;
  return StatusOf("RM_GetDriverType");
}

int RM_GetBindingSupport(const unsigned char*, const unsigned char* wwn, int, unsigned int* bindType) {
  *bindType = Provider().PortOf(wwn).bindType;
  return StatusOf("RM_GetBindingSupport");
}

int RM_iSCSI_GetInitiatorProperties(const unsigned char*, const unsigned char* wwn, char* initiatorName,
                                    char* defaultName, char* alias) {
  const ScriptedPort& port = Provider().PortOf(wwn);
  CopyName(initiatorName, port.initiatorName);
  CopyName(defaultName, port.defaultName);
  CopyName(alias, port.alias);
  return StatusOf("RM_iSCSI_GetInitiatorProperties");
}

int RM_GetAllNodeInfo(const unsigned char*, const unsigned char* wwn, RM_NodeInfoList* list) {
  return FillList("RM_GetAllNodeInfo", list, Provider().PortOf(wwn).nodes);
}

int RM_VPList(const unsigned char*, const unsigned char* wwn, RM_VPortList* list) {
  std::vector<RM_VPortEntry> records;
  for (const ScriptedVPort& vport : Provider().PortOf(wwn).vports) {
    RM_VPortEntry& record = records.emplace_back();
    std::memset(record.unused1, 0xAA, sizeof(record.unused1));
    std::memset(record.unused2, 0xAA, sizeof(record.unused2));
    std::memcpy(record.portWwn, Name(vport.wwpn).wwn, 8);
    std::memcpy(record.nodeWwn, Name(vport.wwnn).wwn, 8);
  }
  return FillList("RM_VPList", list, records);
}

int RM_VPListTargets(const unsigned char*, const unsigned char* wwn, const unsigned char* vportWwn,
                     RM_VPortTargetList* list) {
  std::vector<RM_VPortTargetEntry> records;
  for (const ScriptedVPort& vport : Provider().PortOf(wwn).vports) {
    if (vport.wwpn == WwpnKey(vportWwn)) records = vport.targets;
  }
  return FillList("RM_VPListTargets", list, records);
}

int RM_iSCSI_GetTargets(const unsigned char*, const unsigned char* wwn, int refresh,
                        RM_ISCSI_TargetList* list) {
  Provider().lastRefresh = refresh;
  return FillList("RM_iSCSI_GetTargets", list, Provider().PortOf(wwn).iscsiTargets);
}

int RM_GetVirtualFunctionList(const unsigned char*, const unsigned char* wwn, RM_VFList* list) {
  return FillList("RM_GetVirtualFunctionList", list, Provider().PortOf(wwn).functions);
}

int IsCimHost(const unsigned char*) {
  return Provider().isCimHost ? 1 : 0;
}

}  // extern "C"

#include "tests/support/ScriptedProvider.h"
#include "tests/support/Testing.h"

// Values lie at odd addresses.
Attribute Attribute::Text(const std::string& text) {
  return {RM_ATTRIBUTE_TEXT, '\0' + text + '\0'};
}

Attribute Attribute::Number(std::uint32_t number) {
  return {RM_ATTRIBUTE_U32, '\0' + std::string(reinterpret_cast<const char*>(&number), sizeof(number))};
}

Attribute Attribute::Wwn(std::uint64_t wwn) {
  return {RM_ATTRIBUTE_NAME, '\0' + std::string(reinterpret_cast<const char*>(Name(wwn).wwn), 8)};
}

void ScriptedProvider::Script(const std::string& call, const std::vector<Step>& steps) {
  const std::lock_guard guard(m_Lock);
  m_Calls[call].steps.assign(steps.begin(), steps.end());
  m_Calls[call].rooms.clear();
}

std::optional<Step> ScriptedProvider::Enter(const std::string& call, std::uint32_t room) {
  std::function<void()> action;
  std::optional<Step> step;
  {
    const std::lock_guard guard(m_Lock);
    Call& entered = m_Calls[call];
    entered.rooms.push_back(room);
    action = entered.action;
    if (!entered.steps.empty()) {
      step = entered.steps.front();
      entered.steps.pop_front();
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

void FillAttributes(const Attributes& attributes, void* buffer) {
  const Attributes* place = &attributes;
  std::memcpy(buffer, &place, sizeof(place));
}

namespace {

ScriptedProvider& Provider() {
  return *ScriptedProvider::s_Current;
}

// Answers with the records, unless a step is scripted; a fault without a count leaves anything behind.
template <typename Record>
int FillRecords(const char* call, std::uint32_t* count, void* room, const std::vector<Record>& records) {
  const std::uint32_t capacity = *count;
  const auto step = Provider().Enter(call, capacity);
  if (step && step->count) *count = *step->count;
  if (step && (step->count || step->status != RM_STATUS_OK)) return step->status;
  *count = static_cast<std::uint32_t>(records.size());
  if (*count > capacity) return RM_STATUS_BUFFER_TOO_SMALL;
  if (!records.empty()) std::memcpy(room, records.data(), records.size() * sizeof(Record));
  return RM_STATUS_OK;
}

template <typename Header, typename Record>
int FillList(const char* call, Header* list, const std::vector<Record>& records) {
  return FillRecords(call, &list->count, list + 1, records);
}

int GetAttributes(const char* call, const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                  unsigned int* size) {
  Provider().lastProxy = WwpnKey(proxy);
  const int status = Provider().Status(call);
  if (status != RM_STATUS_OK && status != RM_STATUS_OVER_TEMPERATURE) return status;
  FillAttributes(Provider().PortOf(wwn).attributes, buffer);
  *size = sizeof(void*);
  return status;
}

void CopyName(char* field, const std::string& name) {
  // As the boundary allows, a name of 256 bytes has no NUL.
  std::memcpy(field, name.data(), std::min<std::size_t>(name.size(), 256));
}

}  // namespace

extern "C" {

int RM_GetAllLocalHBAInstances(unsigned int* count, unsigned int* instances) {
  std::vector<unsigned int> records;
  records.reserve(Provider().boards.size());
  for (const ScriptedBoard& board : Provider().boards) records.push_back(board.instance);
  return FillRecords("RM_GetAllLocalHBAInstances", count, instances, records);
}

int RM_GetLocalHBAInfoV4(local_hba_info* board, HBA_info_v4* info) {
  if (const int status = Provider().Status("RM_GetLocalHBAInfoV4"); status != RM_STATUS_OK) return status;
  for (const ScriptedBoard& scripted : Provider().boards) {
    if (scripted.instance != board->instance) continue;
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
  return GetAttributes("RM_GetDiscoveryAttributes", proxy, wwn, buffer, size);
}

int RM_GetHBAAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                        unsigned int* size) {
  return GetAttributes("RM_GetHBAAttributes", proxy, wwn, buffer, size);
}

const void* RM_GetAttributeValue(const void* buffer, unsigned int id, unsigned int* type, int* status) {
  const Attributes* attributes = nullptr;
  std::memcpy(&attributes, buffer, sizeof(attributes));
  const auto found = attributes->find(id);
  *status = found == attributes->end() ? RM_STATUS_NOT_FOUND : RM_STATUS_OK;
  if (*status != RM_STATUS_OK) return nullptr;
  *type = found->second.type;
  return found->second.withoutValue ? nullptr : found->second.bytes.data() + 1;
}

int RM_GetAdapterType(unsigned int, char* text) {
  std::strcpy(text, "model by number");
  return RM_STATUS_OK;
}

int RM_GetDriverType(const unsigned char*, const unsigned char* wwn, unsigned int* type) {
  *type = Provider().PortOf(wwn).driverType;
  return Provider().Status("RM_GetDriverType");
}

int RM_GetBindingSupport(const unsigned char*, const unsigned char* wwn, int, unsigned int* bindType) {
  *bindType = Provider().PortOf(wwn).bindType;
  return Provider().Status("RM_GetBindingSupport");
}

int RM_iSCSI_GetInitiatorProperties(const unsigned char*, const unsigned char* wwn, char* initiatorName,
                                    char* defaultName, char* alias) {
  const ScriptedPort& port = Provider().PortOf(wwn);
  CopyName(initiatorName, port.initiatorName);
  CopyName(defaultName, port.defaultName);
  CopyName(alias, port.alias);
  return Provider().Status("RM_iSCSI_GetInitiatorProperties");
}

int RM_GetAllNodeInfo(const unsigned char*, const unsigned char* wwn, RM_NodeInfoList* list) {
  return FillList("RM_GetAllNodeInfo", list, Provider().PortOf(wwn).nodes);
}

int RM_VPList(const unsigned char*, const unsigned char* wwn, RM_VPortList* list) {
  std::vector<RM_VPortEntry> records;
  for (const ScriptedVPort& vport : Provider().PortOf(wwn).vports) {
    RM_VPortEntry& record = records.emplace_back();
    std::memset(&record, 0xAA, sizeof(record));  // what is unused may hold anything
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

#include "tests/provider/Boundary.h"

#include <iomanip>

#include "provider/OpenProvider.h"
#include "tests/support/Testing.h"

namespace providertest {

namespace {

// A list block: header, then the records. Exactly as large as asked for, so that a byte too many is noticed.
template <class Record, class List, class Call>
Listed<Record> CallList(std::uint32_t room, Call call) {
  std::vector<unsigned char> block(sizeof(List) + room * sizeof(Record));
  auto* list = reinterpret_cast<List*>(block.data());
  list->count = room;
  Listed<Record> listed;
  listed.status = call(list);
  listed.count = list->count;
  if (listed.status == RM_STATUS_OK) {
    listed.records.resize(std::min(room, listed.count));
    if (!listed.records.empty()) {
      std::memcpy(listed.records.data(), list + 1, listed.records.size() * sizeof(Record));
    }
  }
  return listed;
}

}  // namespace

int SetSource(const std::string& kind, const std::string& path, std::string* reason) {
  const int result = RMOpen_SetSource(kind.c_str(), path.c_str());
  char text[1024];
  RMOpen_LastError(text, sizeof(text));
  if (reason != nullptr) *reason = text;
  return result;
}

Fabric::Fabric(const Boards& boards, const json& more) {
  m_File["local"] = more;
  m_File["local"]["name"] = "testhost";
  m_File["local"]["boards"] = boards;
  Rewrite();
  std::string reason;
  EXPECT_EQ(SetSource("fabric", Path(), &reason), 0) << reason;
  EXPECT_EQ(RM_InitLib(), RM_STATUS_OK);
}

Fabric::~Fabric() {
  RM_ExitLib();
}

void Fabric::RewriteInPlace() {
  std::ofstream(Path(), std::ios::binary) << m_File.dump(2);
}

Listed<RM_NodeInfoEntry> Nodes(const std::string& port, std::uint32_t room) {
  return CallList<RM_NodeInfoEntry, RM_NodeInfoList>(
      room, [&](RM_NodeInfoList* list) { return RM_GetAllNodeInfo(nullptr, Name(port).wwn, list); });
}

Listed<RM_VPortEntry> VirtualPorts(const std::string& port, std::uint32_t room) {
  return CallList<RM_VPortEntry, RM_VPortList>(
      room, [&](RM_VPortList* list) { return RM_VPList(nullptr, Name(port).wwn, list); });
}

Listed<RM_VPortTargetEntry> VirtualPortTargets(const std::string& port, const std::string& vport,
                                               std::uint32_t room) {
  return CallList<RM_VPortTargetEntry, RM_VPortTargetList>(room, [&](RM_VPortTargetList* list) {
    return RM_VPListTargets(nullptr, Name(port).wwn, Name(vport).wwn, list);
  });
}

Listed<_RM_ISCSI_TARGET> IscsiTargets(const std::string& port, std::uint32_t room) {
  return CallList<_RM_ISCSI_TARGET, RM_ISCSI_TargetList>(
      room, [&](RM_ISCSI_TargetList* list) { return RM_iSCSI_GetTargets(nullptr, Name(port).wwn, 0, list); });
}

Listed<HBA_NAME> Functions(const std::string& port, std::uint32_t room) {
  return CallList<HBA_NAME, RM_VFList>(
      room, [&](RM_VFList* list) { return RM_GetVirtualFunctionList(nullptr, Name(port).wwn, list); });
}

Listed<unsigned int> Instances(std::uint32_t room) {
  Listed<unsigned int> listed;
  listed.records.resize(room);
  listed.count = room;
  listed.status = RM_GetAllLocalHBAInstances(&listed.count, listed.records.data());
  listed.records.resize(listed.status == RM_STATUS_OK ? std::min(room, listed.count) : 0);
  return listed;
}

BoardRead ReadBoard(unsigned int instance) {
  BoardRead read;
  read.board.instance = instance;
  read.status = RM_GetLocalHBAInfoV4(&read.board, &read.info);
  return read;
}

AttributesRead::AttributesRead(AttributeCall call, const std::string& port, unsigned int room,
                               const unsigned char* proxy)
    : buffer(room), size(room), status(call(proxy, Name(port).wwn, buffer.data(), &size)) {}

const void* AttributesRead::Value(unsigned int id, unsigned int ofType) const {
  unsigned int type = 0;
  int found = 0;
  const void* value = RM_GetAttributeValue(buffer.data(), id, &type, &found);
  return type == ofType ? value : nullptr;
}

std::string AttributesRead::Text(unsigned int id) const {
  const void* value = Value(id, RM_ATTRIBUTE_TEXT);
  return value != nullptr ? static_cast<const char*>(value) : "";
}

std::string AttributesRead::NameOf(unsigned int id) const {
  const void* value = Value(id, RM_ATTRIBUTE_NAME);
  return value != nullptr ? Digits(static_cast<const unsigned char*>(value)) : "";
}

long AttributesRead::Number(unsigned int id) const {
  const void* value = Value(id, RM_ATTRIBUTE_U32);
  std::uint32_t number = 0;
  if (value != nullptr) std::memcpy(&number, value, sizeof(number));
  return value != nullptr ? long{number} : -1;
}

int AttributesRead::StatusOf(unsigned int id) const {
  unsigned int type = 0;
  int found = -1;
  RM_GetAttributeValue(buffer.data(), id, &type, &found);
  return found;
}

}  // namespace providertest

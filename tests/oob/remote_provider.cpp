#include "tests/oob/remote_provider.h"
#include "tests/support/Testing.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

RemoteProvider::RemoteProvider() {
  std::string name = testing::TempDir() + "oob-XXXXXX";
  EXPECT_NE(mkdtemp(name.data()), nullptr);
  folder = name;
  s_Current = this;
}

RemoteProvider::~RemoteProvider() {
  EXPECT_EQ(heldLocks, 0);
  s_Current = nullptr;
  std::filesystem::remove_all(folder);
}

std::string RemoteProvider::Read(const std::string& name) const {
  std::ifstream file(folder / name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void RemoteProvider::Write(const std::string& name, const std::string& text) const {
  std::ofstream(folder / name, std::ios::binary) << text;
}

void RemoteProvider::SetPorts(const std::string& address, const std::vector<std::uint64_t>& ports) {
  for (const std::uint64_t port : ports) {
    const auto [known, isNew] = scripted.ports.try_emplace(port);
    if (!isNew) continue;
    known->second.attributes = {{513, Attribute::Text("system of " + address)},
                                {537, Attribute::Text("model")},
                                {774, Attribute::Number(1)}};
  }
  const std::lock_guard guard(m_Lock);
  m_Hosts[address] = ports;
}

namespace {

RemoteProvider& Remote() {
  return *RemoteProvider::s_Current;
}

int StatusOf(const char* call) {
  return Remote().scripted.Status(call);
}

std::string TextOf(const _RM_IP_INFO& host) {
  char text[64] = {};
  inet_ntop((host.flags & RM_IP_FLAG_IPV6) != 0 ? AF_INET6 : AF_INET, host.address, text, sizeof(text));
  return text;
}

int Resolve(const char* host, unsigned short port, std::uint8_t flags, _RM_IP_INFO* record) {
  *record = _RM_IP_INFO{};
  record->port = port;
  record->flags = flags;
  if (inet_pton(AF_INET, host, record->address) == 1) return RM_STATUS_OK;
  record->flags |= RM_IP_FLAG_IPV6;
  return inet_pton(AF_INET6, host, record->address) == 1 ? RM_STATUS_OK : RM_STATUS_NOT_FOUND;
}

// Each handle is a file that the lock's name opens.
int FileOf(void* lock) {
  return static_cast<int>(reinterpret_cast<std::intptr_t>(lock));
}

}  // namespace

extern "C" {

int RM_GetAppInstallDirA(char* buffer, unsigned int size) {
  if (!Remote().hasFolder) return RM_STATUS_FAILED;
  const std::string name = Remote().folder.string() + '/';
  std::memcpy(buffer, name.c_str(), std::min<std::size_t>(size, name.size() + 1));
  return RM_STATUS_OK;
}

void* RM_OpenGlobalLock(const char* name) {
  const int file = open((Remote().folder / name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  return reinterpret_cast<void*>(static_cast<std::intptr_t>(file));
}

int RM_GetGlobalLock(void* lock) {
  if (lock == nullptr || flock(FileOf(lock), LOCK_EX) != 0) return RM_STATUS_FAILED;
  ++Remote().heldLocks;
  return RM_STATUS_OK;
}

int RM_ReleaseGlobalLock(void* lock) {
  --Remote().heldLocks;
  return flock(FileOf(lock), LOCK_UN) == 0 ? RM_STATUS_OK : RM_STATUS_FAILED;
}

int RM_CloseGlobalLock(void* lock) {
  return close(FileOf(lock)) == 0 ? RM_STATUS_OK : RM_STATUS_FAILED;
}

int RM_IsLocalHBA(const unsigned char* wwn) {
  return Remote().localPorts.count(WwpnKey(wwn)) != 0 ? 1 : 0;
}

int RM_GetPortAttributes(const unsigned char*, const unsigned char* wwn, void* buffer, unsigned int*) {
  FillAttributes(Remote().scripted.PortOf(wwn).attributes, buffer);
  return StatusOf("RM_GetPortAttributes");
}

int RM_GetServerAttributes(const unsigned char*, const unsigned char*, void* buffer, unsigned int*) {
  FillAttributes(Remote().serverAttributes, buffer);
  return StatusOf("RM_GetServerAttributes");
}

int RM_RemoteOOBHostAddrV2(const char* host, unsigned short port, _RM_IP_INFO* record) {
  if (const int status = StatusOf("RM_RemoteOOBHostAddrV2"); status != RM_STATUS_OK) return status;
  return Resolve(host, port, 0, record);
}

int RM_AddOOBAddressToLookupTable(const _RM_IP_INFO* host, unsigned char* proxy) {
  if (const int status = StatusOf("RM_AddOOBAddressToLookupTable"); status != RM_STATUS_OK) return status;
  Remote().Register(TextOf(*host), true);
  if (proxy != nullptr) std::memset(proxy, 0x55, 8);
  return RM_STATUS_OK;
}

int RM_RemoveOOBAddrFromLookupTable(const _RM_IP_INFO* host) {
  Remote().Register(TextOf(*host), false);
  return RM_STATUS_OK;
}

int RM_GetAllNodeAddr(const _RM_IP_INFO* host, RM_NodeAddrList* list) {
  const std::string address = TextOf(*host);
  if (const int status = StatusOf(("RM_GetAllNodeAddr of " + address).c_str()); status != RM_STATUS_OK)
    return status;
  if (const auto step = Remote().scripted.Enter("RM_GetAllNodeAddr", list->capacity)) {
    if (step->count) list->capacity = *step->count;
    if (step->status != RM_STATUS_OK) return step->status;
  }
  const std::vector<std::uint64_t> ports = Remote().PortsOf(address);
  list->count = static_cast<std::uint32_t>(ports.size());
  if (ports.size() > list->capacity) {
    list->capacity = list->count;
    return RM_STATUS_MORE_DATA;
  }
  std::transform(ports.begin(), ports.end(), reinterpret_cast<HBA_NAME*>(list + 1),
                 [](std::uint64_t wwn) { return Name(wwn); });
  return RM_STATUS_OK;
}

int RM_SetOOBTimeout(unsigned int) {
  return RM_STATUS_OK;
}

int RM_OOBHandleCacheControl(int value) {
  if (value != -1) Remote().cacheFlags = value;
  return Remote().cacheFlags;
}

int RM_IPtoStrA(const _RM_IP_INFO* host, char* text) {
  const std::string written = TextOf(*host);
  std::memcpy(text, written.c_str(), written.size() + 1);
  return RM_STATUS_OK;
}

int RM_RemoteCimHostAddrV2(const CIMCredentials* host, unsigned short port, _RM_IP_INFO* record) {
  return Resolve(host->hostAddress, port, RM_IP_FLAG_CIM, record);
}

int RM_GetCimHostEntry(const CIMCredentials* key, CIMCredentials* stored) {
  const auto found = Remote().cimTable.find(key->hostAddress);
  if (found == Remote().cimTable.end()) return RM_STATUS_NOT_FOUND;
  *stored = found->second;
  return RM_STATUS_OK;
}

int RM_HandleCimHostEntry(const CIMCredentials* entry, int mode) {
  if (const int status = StatusOf(mode == 0 ? "add CIM host" : "update CIM host"); status != RM_STATUS_OK)
    return status;
  Remote().cimTable[entry->hostAddress] = *entry;
  return RM_STATUS_OK;
}

int RM_ClearCimLookupTable(void) {
  Remote().cimTable.clear();
  return StatusOf("RM_ClearCimLookupTable");
}

}  // extern "C"

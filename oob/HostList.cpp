#include "oob/HostList.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "oob/HostEntry.h"
#include "oob/HostFile.h"

namespace {

constexpr std::size_t kFirstRecord = 8;
constexpr std::size_t kMostCimEntries = 1000;

// The result of an exported call that fails with 1.
template <typename Call>
int Guarded(Call call) {
  try {
    return call();
  } catch (...) {
    return 1;
  }
}

template <std::size_t size>
void CopyCut(char (&field)[size], std::string_view text) {
  text = text.substr(0, size - 1);
  std::copy(text.begin(), text.end(), field);
}

// Calls `visit` with the record of each line that holds one, until it returns false.
template <typename Visit>
void VisitCimHosts(Visit visit) {
  const auto content = ReadHostFile(kCimHostsFile);
  if (!content) return;
  HostFilePieces pieces(*content);
  CIMCredentials record{};
  while (const auto piece = pieces.Next()) {
    if (ParseCimHostEntry(pieces.Line(*piece), &record) != 0 && !visit(record)) return;
  }
}

int FillHostList(unsigned char* list) {
  std::uint32_t room = 0;
  std::memcpy(&room, list, sizeof(room));
  const std::vector<OobHostRecord> hosts = ReadHostList();
  const auto found = static_cast<std::uint32_t>(hosts.size());
  const std::size_t filled = std::min(room, found);
  if (filled != 0) std::memcpy(list + kFirstRecord, hosts.data(), filled * sizeof(OobHostRecord));
  std::memcpy(list, &found, sizeof(found));
  return found > room ? 1 : 0;
}

// True unless a call failed.
bool StoreCimHost(const CIMCredentials& record) {
  CIMCredentials stored{};
  if (RM_GetCimHostEntry(&record, &stored) != RM_STATUS_OK)
    return RM_HandleCimHostEntry(&record, 0) == RM_STATUS_OK;
  if (std::memcmp(&record, &stored, sizeof(record)) == 0) return true;
  return RM_HandleCimHostEntry(&record, 2) == RM_STATUS_OK;
}

}  // namespace

std::vector<OobHostRecord> ReadHostList() {
  std::vector<OobHostRecord> hosts;
  const auto content = ReadHostFile(kOobHostsFile);
  if (!content) return hosts;
  HostFilePieces pieces(*content);
  char* host = nullptr;
  const char* name = nullptr;
  while (const auto piece = pieces.Next()) {
    if (ParseHostEntry(pieces.Line(*piece), &host, &name) == 0) continue;
    OobHostRecord& record = hosts.emplace_back();
    CopyCut(record.host, host);
    CopyCut(record.name, name);
  }
  return hosts;
}

int GetOOBHostList(void* list) {
  if (list == nullptr) return 1;
  return Guarded([list] { return FillHostList(static_cast<unsigned char*>(list)); });
}

int GetCimCount(unsigned int* count) {
  if (count == nullptr) return 1;
  *count = 0;
  return Guarded([count] {
    VisitCimHosts([count](const CIMCredentials&) { return ++*count != 0; });
    return 0;
  });
}

int GetCimEntries(unsigned int count, CIMCredentials** entries) {
  if (entries == nullptr || count == 0) return 1;
  return Guarded([count, entries] {
    unsigned int filled = 0;
    bool refused = false;
    VisitCimHosts([&](const CIMCredentials& record) {
      refused = entries[filled] == nullptr;
      if (refused) return false;
      *entries[filled] = record;
      return ++filled < count;
    });
    return refused ? 1 : 0;
  });
}

int UpdateCimEntries() {
  return Guarded([] {
    std::vector<CIMCredentials> records;
    VisitCimHosts([&records](const CIMCredentials& record) {
      records.push_back(record);
      return records.size() < kMostCimEntries;
    });
    if (records.empty()) return 0;
    bool done = RM_ClearCimLookupTable() == RM_STATUS_OK;
    for (const CIMCredentials& record : records) done &= StoreCimHost(record);
    return done ? 0 : 1;
  });
}

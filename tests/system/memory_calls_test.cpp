// Calls that answer something do so, or give their documented "nothing", when an allocation of theirs fails;
// the next call answers, and another thread may walk over the ports.

#include "tests/support/Testing.h"
#include "tests/system/memory_fixture.h"

namespace systemtest {
namespace {

constexpr char kManagementPath[] = "/etc/varnix/quorbench/varnixRMConfig";
constexpr char kCimHost[] = "10.0.0.1";

// The result of a call and what it has written, collected without allocating.
struct Answer {
  int result = 0;
  std::size_t size = 0;
  unsigned char bytes[4096] = {};

  void Add(const void* from, std::size_t length) {
    ASSERT_LE(size + length, sizeof bytes);
    std::memcpy(bytes + size, from, length);
    size += length;
  }
  void AddText(const char* text) { Add(text, std::strlen(text)); }
  bool operator==(const Answer& other) const {
    return result == other.result && size == other.size && std::memcmp(bytes, other.bytes, size) == 0;
  }
};

// ---- What the rows below call; the name is the row's

using Call = void (*)(const Library&, const char* name, Answer&);

template <class Record, auto first, auto next>
void Walk(const Library& library, const char*, Answer& answer) {
  Record record{};
  answer.result = AsLibrary([&] { return (library.*first)(&record); });
  for (int more = answer.result; more != 0; more = AsLibrary([&] { return (library.*next)(&record); })) {
    answer.Add(&record, sizeof record);
  }
}

// Calls about a port that answer an array of records with its count.
template <class Record, auto call, unsigned char... names>
void Array(const Library& library, const char*, Answer& answer) {
  Record records[4] = {};
  unsigned int count = 4;
  answer.result = AsLibrary([&] { return (library.*call)(NameOf(names)..., records, &count); });
  answer.Add(records, count * sizeof(Record));
}

void Functions(const Library& library, const char*, Answer& answer) {
  struct {
    discovery_vf_addrs header{4};
    HBA_NAME names[4]{};
  } functions;
  answer.result = AsLibrary([&] { return library.GetVirtualFunctionAddrs(NameOf(kNic), &functions.header); });
  if (answer.result == 0) answer.Add(functions.names, functions.header.count * sizeof(HBA_NAME));
}

void IscsiNames(const Library& library, const char*, Answer& answer) {
  discovery_iscsi_names names{};
  answer.result = AsLibrary([&] { return library.GetiSCSINames(NameOf(kIscsi), &names); });
  for (const char* name : {names.initiatorName, names.defaultName, names.alias}) answer.AddText(name);
}

// ---- Hosts

CIMCredentials CimHost() {
  CIMCredentials host{};
  std::strcpy(host.hostAddress, kCimHost);
  return host;
}

void AddHost(const Library& library, const char*, Answer& answer) {
  answer.result = AsLibrary([&] { return library.AddOOBHostA(kRemoteHost); });
}

void RemoveHost(const Library& library, const char*, Answer& answer) {
  answer.result = AsLibrary([&] { return library.RemoveOOBHostA(kRemoteHost); });
}

void ListOfHosts(const Library& library, const char*, Answer& answer) {
  struct {
    hbadisc_oob_host_list header{4, 0};
    hbadisc_oob_host hosts[4]{};
  } list;
  answer.result = AsLibrary([&] { return library.GetOOBHostList(&list.header); });
  if (answer.result == 0) answer.Add(list.hosts, list.header.count * sizeof(hbadisc_oob_host));
}

void RemoveCimHost(const Library& library, const char*, Answer& answer) {
  const CIMCredentials host = CimHost();
  answer.result = AsLibrary([&] { return library.RemoveCimHost(&host); });
}

void CimCount(const Library& library, const char*, Answer& answer) {
  unsigned int count = 0;
  answer.result = AsLibrary([&] { return library.GetCimCount(&count); });
  if (answer.result == 0) answer.Add(&count, sizeof count);
}

void CimEntries(const Library& library, const char*, Answer& answer) {
  CIMCredentials host{};
  CIMCredentials* hosts[] = {&host};
  answer.result = AsLibrary([&] { return library.GetCimEntries(1, hosts); });
  if (answer.result == 0) answer.Add(&host, sizeof host);
}

void UpdateCim(const Library& library, const char*, Answer& answer) {
  answer.result = AsLibrary([&] { return library.UpdateCimEntries(); });
}

// ---- Settings

void Path(const Library& library, const char* name, Answer& answer) {
  char path[257] = "";
  const auto call = library.Symbol<int (*)(char*)>(name);
  answer.result = AsLibrary([&] { return call(path); });
  answer.AddText(path);
}

void GetValue(const Library& library, const char* name, Answer& answer) {
  char value[256] = "";
  const auto call = library.Symbol<decltype(&getKeyValue)>(name);
  answer.result = AsLibrary([&] { return call(kManagementPath, "LogFilePath", value, sizeof value); });
  answer.AddText(value);
}

// An appended or a replaced line.
void SetValue(const Library& library, const char* name, Answer& answer) {
  const auto call = library.Symbol<decltype(&setKeyValue)>(name);
  answer.result =
      AsLibrary([&] { return call(kManagementPath, "LogFilePath", "another long name of a log file"); });
}

void GetText(const Library& library, const char* name, Answer& answer) {
  char value[256] = "";
  const auto call = library.Symbol<decltype(&getDiscConfigStrValue)>(name);
  AsLibrary([&] { return call(value, sizeof value, "DISCO_LOG_PATH"); });
  answer.AddText(value);
}

void PrepareFiles() {
  WriteFile(kSettingsPath, "DISCO_MAX_THREADS:1\nDISCO_LOG_PATH:/a/log/file\nTcpSocketPortNumber:23333\n");
  WriteFile(Scratch("hbahosts.lst"), std::string(kRemoteHost) + " # remote\n");
  WriteFile(Scratch("zylhbacimhosts.so"), std::string(kCimHost) + ",5988,root,one,two,password\n");
  WriteFile(
      kManagementPath,
      "LogFilePath:/a/log/file/with/a/long/name\nInstallDir:/a/directory/with/a/long/name/\nOptDir:/opt/\n"
      "RepositoryDir:/run/lock/\nLastFWDir:/run/lock\n");
}

void PrepareNoHosts() {
  PrepareFiles();
  WriteFile(Scratch("hbahosts.lst"), "");
}

struct Row {
  const char* name;
  int nothing;  // the result when it fails; then it has written nothing
  Call call;
  void (*prepare)() = PrepareFiles;
};

class CallsWithoutMemory : public WithoutMemory,
                           public testing::WithParamInterface<std::tuple<Row, Failures>> {};

TEST_P(CallsWithoutMemory, AnswerOrGiveNothingWithoutMemory) {
  const auto& [row, failures] = GetParam();
  library.StartupEx(kNever, kNever, 0);
  ASSERT_TRUE(Eventually([&] { return library.Ports().size() == 4; }, kPatience));
  row.prepare();
  Answer expected;
  row.call(library, row.name, expected);
  Answer nothing;
  nothing.result = row.nothing;
  EXPECT_FALSE(expected == nothing);
  unsigned int nth = 0;
  for (bool failed = true; failed && !HasFailure();) {
    SCOPED_TRACE("allocation " + std::to_string(++nth));
    library.Ports();  // leaves no snapshot
    row.prepare();
    Answer answer;
    FailAllocation(nth, Victims::kExposedThread, failures);
    row.call(library, row.name, answer);
    failed = StopFailing();
    EXPECT_TRUE(answer == expected || answer == nothing) << answer.result << ", " << answer.size << " bytes";
    auto walk = std::async(std::launch::async, [this] { return library.Ports().size(); });
    ASSERT_EQ(walk.wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(walk.get(), 4U);
    row.prepare();
    Answer again;
    row.call(library, row.name, again);
    EXPECT_TRUE(again == expected) << again.result << ", " << again.size << " bytes";
  }
  RecordProperty("allocations", static_cast<int>(nth - 1));
}

constexpr Row kRows[] = {
    {"GetFirstHba", 0, Walk<hba_discovery_info, &Library::GetFirstHba, &Library::GetNextHba>},
    {"GetFirstHbaV2", 0, Walk<hba_discovery_info_V2, &Library::GetFirstHbaV2, &Library::GetNextHbaV2>},
    {"GetFirstHbaV3", 0, Walk<hba_discovery_info_V3, &Library::GetFirstHbaV3, &Library::GetNextHbaV3>},
    {"GetTargetMappings", 0, Array<RM_NodeInfoEntry, &Library::GetTargetMappings, kFc>},
    {"GetiSCSITargets", 0, Array<RM_NodeInfoEntry, &Library::GetiSCSITargets, kIscsi>},
    {"GetVPorts", 0, Array<discovery_vport_info, &Library::GetVPorts, kFc>},
    {"GetVPortTargets", 0, Array<RM_NodeInfoEntry, &Library::GetVPortTargets, kFc, kVPort>},
    {"GetVirtualFunctionAddrs", 2, Functions},
    {"GetiSCSINames", 0, IscsiNames},
    {"AddOOBHostA", -1, AddHost, PrepareNoHosts},
    {"RemoveOOBHostA", 0, RemoveHost},
    {"GetOOBHostList", 1, ListOfHosts},
    {"RemoveCimHost", 0, RemoveCimHost},
    {"GetCimCount", 1, CimCount},
    {"GetCimEntries", 1, CimEntries},
    {"UpdateCimEntries", 1, UpdateCim},
    {"getKeyValue", 200, GetValue},
    {"setKeyValue", 200, SetValue},
    {"replaceKeyValue", 200, SetValue},
    {"getDiscConfigStrValue", 0, GetText},
    {"getInstallDirPath", 200, Path},
    {"getRepository", 200, Path},
};

INSTANTIATE_TEST_SUITE_P(Calls, CallsWithoutMemory,
                         testing::Combine(testing::ValuesIn(kRows),
                                          testing::Values(Failures::kOne, Failures::kAllFromThere)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) +
                                  (std::get<1>(test.param) == Failures::kOne ? "One" : "AndAllThatFollow");
                         });

}  // namespace
}  // namespace systemtest

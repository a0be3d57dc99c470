// Fabric files good and bad: what is refused, with which message, and that nothing crashes on anything.
#include <gmock/gmock.h>

#include <random>

#include "tests/provider/Boundary.h"
#include "tests/support/Rows.h"
#include "tests/support/Testing.h"

namespace providertest {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

const std::string kExamples = PROVIDER_SOURCE_DIR "/examples/";

// What RMOpen_SetSource says of a file with this text, without the file's name; empty when it takes it.
class FabricFile : public testing::Test {
 protected:
  std::string Refusal(const std::string& text) {
    const std::string path = m_Scratch.Write("f.json", text);
    std::string reason;
    const int result = SetSource("fabric", path, &reason);
    EXPECT_EQ(result, reason.empty() ? 0 : 1);
    if (reason.empty()) return {};
    EXPECT_THAT(reason, StartsWith(path + ":"));
    EXPECT_THAT(reason, testing::Not(HasSubstr("\n")));
    return reason.substr(path.size() + 1);
  }

  Scratch m_Scratch;
};

// Three boards, the first on line 3; what a row puts in stands on line 4 (first board) and line 9 (host).
std::string Filled(const std::string& inBoard, const std::string& inHost = "") {
  return "{\"local\": {\"name\": \"h\",\n\"boards\": [\n{\"kind\": \"fc\", \"wwpn\": \"1000000000000001\"\n" +
         inBoard +
         "\n},\n{\"kind\": \"nic\", \"wwpn\": \"1000000000000002\", \"virtual_functions\": "
         "[\"0100000000000001\"]},\n"
         "{\"kind\": \"iscsi\", \"wwpn\": \"1000000000000003\", \"iscsi\": {\"initiator_name\": \"i\"}}\n]\n" +
         inHost + "}}\n";
}

// A row's file, from the section that it stands in and what is put in.
std::string FileOf(const std::string& section, const std::string& text) {
  if (section == "good") return text.starts_with("board") ? Filled(text.substr(5)) : Filled("", text.substr(4));
  if (section == "first board") return Filled(", " + text);
  if (section == "other boards") return Filled(text);
  return Filled("", section == "host" ? text : ", \"faults\": [{\"call\": " + text + "}]");
}

TEST_F(FabricFile, Rows) {
  for (const std::string section : {"good", "first board", "other boards", "host", "fault"}) {
    const std::string place = section == "first board" ? "4: local.boards[0]."
                              : section == "fault"     ? "9: local.faults[0]"
                                                       : "";
    for (const auto& [text, message] : Rows(PROVIDER_SOURCE_DIR "/tests/provider/fabric_rows.txt", section)) {
      const std::string refusal = Refusal(FileOf(section, text));
      EXPECT_EQ(refusal.substr(0, place.size() + message.size()), place + message) << text;
      EXPECT_EQ(refusal.empty(), section == "good") << text << refusal;
    }
  }
  EXPECT_THAT(Refusal(Filled(", \"serial_number\": \"" + std::string(61, '1') + '"')),
              HasSubstr("serial_number: expected a text of at most 60 bytes"));
}

// The remote hosts on line 2.
TEST_F(FabricFile, RemoteHosts) {
  const auto refusal = [this](const std::string& remote) {
    return Refusal("{\"local\": {\"name\": \"l\", \"boards\": []},\n\"remote\": [" + remote + "]}");
  };
  const auto host = [](const std::string& address, const std::string& more = "") {
    return R"({"name": "r", "boards": [{"kind": "fc", "wwpn": "1000000000000001"}], "address": )" + address +
           more + "}";
  };
  EXPECT_EQ(refusal(""), "");
  EXPECT_EQ(
      refusal(host(R"("127.0.1.1")", R"(, "unreachable": true, "comment": "c")") + "," +
              host(R"(["127.0.1.2", "::1"])", R"(, "faults": [{"call": "RM_GetAllNodeAddr", "status": 303}])")),
      "");
  const std::string notNumeric = "expected a numeric IPv4 or IPv6 address without a port";
  const std::pair<std::string, std::string> rows[] = {
      {R"({"name": "r", "boards": []})", "2: remote[0].address: expected the host's address"},
      {host("7"), "2: remote[0].address: expected an array"},
      {host("[]"), "2: remote[0].address: expected at least one address"},
      {host(R"("server7")"), "2: remote[0].address: " + notNumeric},
      {host(R"("127.0.0.1:23333")"), "2: remote[0].address: " + notNumeric},
      {host(R"(["::1", 5])"), "2: remote[0].address[1]: " + notNumeric},
      {host(R"("0.0.0.0")"), "2: remote[0].address: expected the address of one host"},
      {host(R"(["::1", "0:0::1"])"), "2: remote[0].address[1]: expected an address that no other host"},
      {host(R"("127.0.1.1")") + ",\n" + host(R"("127.0.1.1")"),
       "3: remote[1].address: expected an address that no other host"},
      {host(R"("127.0.1.1")",
            R"(, "faults": [{"call": "RM_GetAllNodeAddr", "port": "1000000000000001", "status": 1}])"),
       "2: remote[0].faults[0].port: expected no port"},
      {host(R"("127.0.1.1")",
            R"(, "events": [{"after_ms": 1, "port": "1000000000000001", "remove_targets": ["01"]}])"),
       "2: remote[0].events[0].remove_targets[0]: expected"},
  };
  for (const auto& [text, message] : rows) EXPECT_THAT(refusal(text), StartsWith(message)) << text;
}

TEST_F(FabricFile, FilesThatAreNoneAtAll) {
  EXPECT_THAT(Refusal(""), StartsWith("1: (file): expected JSON: "));
  EXPECT_THAT(Refusal("[]"), StartsWith("1: (file): expected an object"));
  EXPECT_THAT(Refusal("{}"), StartsWith("1: local: expected the local host, but the key is missing"));
  EXPECT_THAT(Refusal("{\"local\": {}}\n\n1"), StartsWith("3: (file): expected JSON: "));
  EXPECT_THAT(Refusal(std::string(100'000, '[')), HasSubstr("at most 32 levels"));
  std::string values = "{\"x\": [0";
  for (int i = 0; i < 2'000'001; ++i) values += ",0";
  EXPECT_THAT(Refusal(values + "]}"), HasSubstr("at most 2000000 values"));
  EXPECT_THAT(Refusal("{\"a\nb\": 1}"), HasSubstr("expected JSON"));
  EXPECT_THAT(Refusal("{\"\\n\\u0001\": " + std::string(3, ' ') + "1, \"" + std::string(5000, 'k') + "\": 2}"),
              HasSubstr("missing"));

  std::string reason;
  for (const std::string& path : {m_Scratch.Path("none"), m_Scratch.Path("."), std::string("/dev/zero")}) {
    EXPECT_EQ(SetSource("fabric", path, &reason), 1);
    EXPECT_THAT(reason, StartsWith(path + ": "));
  }
  std::filesystem::resize_file(m_Scratch.Write("large", ""), (64u << 20) + 1);
  EXPECT_EQ(SetSource("fabric", m_Scratch.Path("large"), &reason), 1);
  EXPECT_THAT(reason, HasSubstr("at most 64 MiB"));
}

// Wherever it ends, it says so in one line with the file's name (Refusal checks that).
TEST_F(FabricFile, CutOffAnywhereAndGarbledAnyhow) {
  const std::string whole = ReadFile(kExamples + "flaky-host.json");
  const std::size_t end = whole.find_last_of('}');
  for (std::size_t size = 0; size < end; size += 3) EXPECT_NE(Refusal(whole.substr(0, size)), "") << size;
  std::mt19937 random(1);
  const std::string pieces[] = {
      "\"", "{", "}", "[", "]", ",", ":", "0", "-1", "1e99", "\xff", "null", std::string(1, '\0')};
  int refused = 0;
  for (int i = 0; i < 500; ++i) {
    std::string text = whole;
    for (int changes = 0; changes < 2; ++changes) {
      const std::string& piece = pieces[random() % std::size(pieces)];
      text.replace(random() % text.size(), random() % 4, piece);
    }
    refused += Refusal(text).empty() ? 0 : 1;
  }
  EXPECT_GT(refused, 400);
}

TEST_F(FabricFile, ExamplesAreGood) {
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(kExamples)) {
    const std::string path = entry.path();
    if (!path.ends_with("-host.json") && !path.ends_with("-fabric.json")) continue;
    ++files;
    std::string reason;
    EXPECT_EQ(SetSource("fabric", path, &reason), 0) << reason;
  }
  EXPECT_GE(files, 4);
}

// The schema file and the provider name the same keys. What the provider takes is told by its own message about
// a key that nobody takes.
TEST_F(FabricFile, SchemaFileNamesTheKeysThatAreTaken) {
  const struct {
    const char* definition;
    const char* inBoard;
    const char* inHost;
  } rows[] = {
      {"host", "", R"(, "?": 0)"},
      {"remoteHost", "", R"(}, "remote": [{"name": "r", "address": "::1", "boards": [], "?": 0}], "x": {)"},
      {"board", R"(, "?": 0)", ""},
      {"board", R"(}, {"kind": "nic", "wwpn": "1000000000000009", "?": 0)", ""},
      {"board", R"(}, {"kind": "iscsi", "wwpn": "1000000000000009", "iscsi": {"initiator_name": "i"}, "?": 0)",
       ""},
      {"target", R"(, "targets": [{"wwpn": "5000000000000001", "?": 0}])", ""},
      {"virtualPort", R"(, "virtual_ports": [{"wwpn": "1100000000000001", "?": 0}])", ""},
      {"attribute", R"(, "attributes": [{"id": 1, "value": 1, "?": 0}])", ""},
      {"event", "", R"(, "events": [{"after_ms": 0, "port": "1000000000000001", "?": 0}])"},
      {"event", "", R"(, "events": [{"after_ms": 0, "port": "1000000000000002", "?": 0}])"},
      {"event", "", R"(, "events": [{"after_ms": 0, "port": "1000000000000003", "?": 0}])"},
      {"iscsiTarget", "", R"(, "events": [{"after_ms": 0, "port": "1000000000000003",
                                           "iscsi_targets": [{"name": "t", "?": 0}]}])"},
      {"fault", "", R"(, "faults": [{"call": "RM_VPListTargets", "status": 1, "?": 0}])"},
  };
  std::map<std::string, std::set<std::string>> taken;
  for (const auto& row : rows) {
    const std::string message = Refusal(Filled(row.inBoard, row.inHost));
    const std::string begin = "unknown key, expected one of ";
    ASSERT_THAT(message, HasSubstr(begin)) << row.definition;
    std::istringstream words(message.substr(message.find(begin) + begin.size()));
    for (std::string word; std::getline(words >> std::ws, word, ',');) taken[row.definition].insert(word);
  }
  const json schema = json::parse(ReadFile(kExamples + "fabric.schema.json"));
  for (const auto& [definition, keys] : taken) {
    std::set<std::string> named;
    for (const auto& property : schema["definitions"][definition]["properties"].items())
      named.insert(property.key());
    EXPECT_EQ(keys, named) << definition;
  }
}

}  // namespace
}  // namespace providertest

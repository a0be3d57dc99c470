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

const std::string kRows = PROVIDER_SOURCE_DIR "/tests/provider/fabric_rows.txt";
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
    for (const auto& [text, message] : Rows(kRows, section)) {
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
  EXPECT_EQ(refusal(""), "");
  for (const auto& [text, message] : Rows(kRows, "remote")) {
    EXPECT_THAT(refusal(text), StartsWith(message)) << text;
    EXPECT_EQ(refusal(text).empty(), message.empty()) << text;
  }
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
      {"details", R"(, "details": {"?": 0})", ""},
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

// Fabric files good and bad: what is refused, with which message, and that nothing crashes on anything.
#include <gmock/gmock.h>

#include <random>

#include "tests/provider/Boundary.h"
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

TEST_F(FabricFile, GoodRows) {
  const std::pair<const char*, const char*> rows[] = {
      {"", ""},
      {R"(, "wwnn": "0x2000000000000001", "fabric_name": "10:00:00:00:00:00:00:0F", "model_name": null)", ""},
      {R"(, "model_id": "0x1fffffff", "port_type": 4294967295, "pci_bus": 65535, "sub_adapter_id": "")", ""},
      {R"(, "model": null, "vpd_port_number": null, "physical_port": null, "pci_function": null)", ""},
      {R"(, "link": 0, "comment": "x")", ""},
      {R"(, "link": {})", ""},
      {R"(, "targets": [{"wwpn": "ffffffffffffff00", "count": 256}])", ""},
      {R"(, "targets": [{"wwpn": "5000000000000001", "lun": 0}, {"wwpn": "5000000000000001", "lun": 1}])", ""},
      {R"(, "targets": [{"wwpn": "5000000000000001", "count": 2, "luns": 50000, "state": 4294967295}])", ""},
      {R"(, "virtual_ports": [{"wwpn": "1100000000000001", "wwnn_step": 0, "count": 3}])", ""},
      {"", R"(, "secure_management": true, "delay_ms": 604800000, "events": [], "faults": [])"},
      {"", R"(, "events": [{"after_ms": 0, "port": "1000000000000001"}])"},
      {"", R"(, "faults": [{"call": "*", "status": 2147483647, "skip": 0, "times": 1, "hang": 0.5}])"},
      {"", R"(, "faults": [{"call": "RM_IsLocalHBA", "delay_ms": 1, "port": "1000000000000001"}])"},
      // A function that moves from one board to another.
      {"", R"(, "events": [{"after_ms": 1, "port": "1000000000000002", "virtual_functions": []},
              {"after_ms": 2, "port": "1000000000000002", "virtual_functions": ["0100000000000001"]}])"},
  };
  for (const auto& [board, host] : rows) EXPECT_EQ(Refusal(Filled(board, host)), "") << board << host;
}

// On line 4 each.
TEST_F(FabricFile, BadRowsOfTheFirstBoard) {
  const std::pair<std::string, const char*> rows[] = {
      {R"("colour": 1)", "colour: unknown key, expected one of kind, wwpn,"},
      {R"("virtual_functions": [])", "virtual_functions: unknown key"},
      {R"("kind": "nic")", "kind: expected each key once"},
      {R"("wwnn": 5)", "wwnn: expected a name of 8 bytes"},
      {R"("wwnn": "0000000000000000")", "wwnn: expected a name of 8 bytes"},
      {R"("wwnn": "10:00:00:00:00:00:00:0g")", "wwnn: expected a name of 8 bytes"},
      {R"("wwnn": "100:0:00:00:00:00:00:00")", "wwnn: expected a name of 8 bytes"},
      {R"("wwnn": "+000000000000001")", "wwnn: expected a name of 8 bytes"},
      {R"("model_id": -1)", "model_id: expected a whole number from 0 to 536870911"},
      {R"("model_id": 536870912)", "model_id: expected a whole number"},
      {R"("model_id": 1.5)", "model_id: expected a whole number"},
      {R"("model_id": "0x")", "model_id: expected a whole number"},
      {R"("model_id": "12")", "model_id: expected a whole number"},
      {R"("pci_bus": 65536)", "pci_bus: expected a whole number from 0 to 65535"},
      {R"("port_type": 6)", "port_type: expected a port type of FC: not 1, 2, 3 or 6"},
      {R"("serial_number": ")" + std::string(61, '1') + '"',
       "serial_number: expected a text of at most 60 bytes"},
      {R"("model": "a\u0000b")", "model: expected a text of at most 80 bytes without control"},
      {R"("model": "tab	in it")", "model: expected JSON: "},
      {R"("target_mode": 1)", "target_mode: expected true or false"},
      {R"("link": "sideways")", "link: expected one of up, down"},
      {R"("link": {"function": 256})", "link.function: expected a whole number from 0 to 255"},
      {R"("attributes": [{"id": 1}])", "attributes[0].value: expected a text, a number"},
      {R"("targets": {})", "targets: expected an array"},
      {R"("targets": [7])", "targets[0]: expected an object"},
      {R"("targets": [{}])", "targets[0].wwpn: expected the target's port name, but the key is missing"},
      {R"("targets": [{"wwpn": "5000000000000001", "state": "gone"}])",
       "targets[0].state: expected one of ready, exists, absent"},
      {R"("targets": [{"wwpn": "5000000000000001", "count": 0}])",
       "targets[0].count: expected a whole number from 1 to 100000"},
      {R"("targets": [{"wwpn": "5000000000000001", "count": 100000, "luns": 100000}])",
       "targets[0]: expected at most 400000 targets"},
      {R"("targets": [{"wwpn": "ffffffffffffff00", "count": 257, "wwnn": "2000000000000001"}])",
       "targets[0]: expected a range that ends at"},
      {R"("targets": [{"wwpn": "5000000000000001", "count": 3}, {"wwpn": "5000000000000003"}])",
       "targets[1]: expected each port name and LUN once, not 50:00:00:00:00:00:00:03"},
      {R"("virtual_ports": [{"wwpn": "1100000000000001"}, {"wwpn": "1100000000000001"}])",
       "virtual_ports[1]: expected a name that no other port has"},
      {R"("virtual_ports": [{"wwpn": "1000000000000001"}])",
       "virtual_ports[0]: expected a name that no other port has"},
  };
  for (const auto& [text, message] : rows) {
    EXPECT_THAT(Refusal(Filled(", " + text)), StartsWith(std::string("4: local.boards[0].") + message)) << text;
  }
}

TEST_F(FabricFile, BadRowsOfOtherBoards) {
  const std::pair<std::string, const char*> rows[] = {
      {R"(, "virtual_ports": [{"wwpn": "1000000000000002"}])",
       "6: local.boards[1].wwpn: expected a name that no other port of the file has"},
      {"}, {\n\"kind\": \"fc\"\n", "4: local.boards[1].wwpn: expected the port's name, but the key is missing"},
      {"}, {\"kind\": \"fcoe\", \"wwpn\": \n\"1000000000000001\"\n",
       "5: local.boards[1].wwpn: expected a name that no"},
      {"}, {\"kind\": \"tape\"", "4: local.boards[1].kind: expected one of fc, fcoe, iscsi, nic, nic-roce"},
      {R"(}, {"kind": "iscsi", "wwpn": "1000000000000009")",
       "4: local.boards[1].iscsi: expected an object with the"},
      {R"(}, {"kind": "iscsi", "wwpn": "1000000000000009", "iscsi": {"initiator_name": "i"},
           "iscsi_targets": [{"name": "t", "count": 2}])",
       "5: local.boards[1].iscsi_targets[0]: expected each name once (a range needs \"{n}\" in it)"},
      {R"(}, {"kind": "iscsi", "wwpn": "1000000000000009", "iscsi": {"initiator_name": "i"},
           "iscsi_targets": [{"second_name": "s", "name": ")" +
           std::string(256, 'n') + R"("}])",
       "5: local.boards[1].iscsi_targets[0].name: expected a name of at most 255 bytes"},
      {R"(}, {"kind": "nic", "wwpn": "1000000000000009", "virtual_functions": [{"address": "0100000000000001"}])",
       "6: local.boards[2].virtual_functions[0]: expected an address that no other function has"},
      {R"(, "wwnn": )", "5: local.boards[0].wwnn: expected JSON: "},
      {"] ", "4: local.boards[0]"},
  };
  for (const auto& [text, message] : rows) EXPECT_THAT(Refusal(Filled(text)), StartsWith(message)) << text;
}

TEST_F(FabricFile, BadRowsOfAHost) {
  const std::pair<const char*, const char*> rows[] = {
      {R"(}, "local": {)", "9: local: expected each key once"},
      {R"(}, "remotes": {)", "9: remotes: unknown key, expected one of $schema, comment, local, remote"},
      {R"(}, "remote": {)", "9: remote: expected an array of at most 10000 elements"},
      {R"(, "remote": [])", "9: local.remote: unknown key, expected one of name,"},
      {R"(, "delay_ms": 604800001)", "9: local.delay_ms: expected a whole number from 0 to 604800000"},
      {R"(, "events": [{"port": "1000000000000001"}])", "9: local.events[0].after_ms: expected the time"},
      {R"(, "events": [{"after_ms": 1, "port": "1000000000000009"}])",
       "9: local.events[0].port: expected the \"wwpn\""},
      {R"(, "events": [{"after_ms": 1, "port": "1000000000000002", "targets": []}])",
       "9: local.events[0].targets: unknown key"},
      {R"(, "events": [
            {"after_ms": 9, "port": "1000000000000001", "add_targets": [{"wwpn": "5000000000000001"}]},
            {"after_ms": 5, "port": "1000000000000001", "targets": [{"wwpn": "5000000000000001"}]}])",
       "10: local.events[0].add_targets: expected targets that are not there yet, not 50:00:00:00:00:00:00:01"},
      {R"(, "events": [{"after_ms": 9, "port": "1000000000000001", "remove_targets": ["5000000000000001"]}])",
       "9: local.events[0].remove_targets: expected targets that are there by then"},
      {R"(, "events": [{"after_ms": 9, "port": "1000000000000001", "virtual_ports": [{"wwpn": "1000000000000002"}]}])",
       "9: local.events[0].virtual_ports: expected names that no other port has, not 10:00:00:00:00:00:00:02"},
  };
  for (const auto& [text, message] : rows) EXPECT_THAT(Refusal(Filled("", text)), StartsWith(message)) << text;
}

TEST_F(FabricFile, BadFaults) {
  const std::pair<const char*, const char*> rows[] = {
      {R"("RM_Nothing")", ".call: expected one of RM_GetAllLocalHBAInstances,"},
      {R"("*")", ": expected at least one of status, delay_ms, hang, claim_count"},
      {R"("*", "status": -1)", ".status: expected a whole number"},
      {R"("*", "claim_count": 1)", ".claim_count: expected no count"},
      {R"("RM_IsLocalHBA", "status": 1)", ".status: expected no status"},
      {R"("RM_GetSecureMgmtConfig", "port": "1000000000000001", "status": 1)",
       ".port: expected no port, where the call has none"},
      {R"("*", "hang": "long")", ".hang: expected true or a number of seconds"},
      {R"("*", "hang": -0.5)", ".hang: expected a number from 0"},
      {R"("*", "times": 0, "status": 1)", ".times: expected a whole number from 1"},
  };
  for (const auto& [fault, message] : rows) {
    EXPECT_THAT(Refusal(Filled("", std::string(", \"faults\": [{\"call\": ") + fault + "}]")),
                StartsWith(std::string("9: local.faults[0]") + message))
        << fault;
  }
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

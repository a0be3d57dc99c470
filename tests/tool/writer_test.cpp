#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "tools/hbadisc/JsonWriter.h"
#include "tools/hbadisc/TableWriter.h"
#include "tools/hbadisc/Text.h"

namespace hbadisc {
namespace {

constexpr char kHostile[] = "a\x1b[31m\xff\n\xc2\x9b\xe2\x80\xaez\"\\";

Port MakePort(std::uint8_t number) {
  Port port;
  port.wwpn.bytes = {0x10, 0, 2, 0x5d, 0xfa, 0, 0, number};
  port.local = true;
  port.link = Link::Up;
  port.model = "VX3200";
  port.system = "lab1";
  return port;
}

Port MakeFullPort() {
  Port port = MakePort(1);
  port.details.emplace();
  FcTarget target;
  target.wwpn.bytes[7] = 0x51;
  target.fcAddressId = 0x0a01;
  target.fcpLun = 0x4001000000000000;
  port.details->fcTargets = {target};
  port.details->virtualPorts = {{{{0x30}}, std::nullopt, 1, {target}}};
  port.details->virtualFunctions = {Wwn{{2}}};
  return port;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

bool HasControl(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return c != '\n' && (static_cast<unsigned char>(c) < 0x20 || c == 0x7f); });
}

class TextTest : public testing::Test {
 protected:
  TextTest()
      : m_Utf8(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), m_Ascii(newlocale(LC_CTYPE_MASK, "C", nullptr)) {}
  ~TextTest() override {
    freelocale(m_Utf8);
    freelocale(m_Ascii);
  }
  const locale_t m_Utf8;
  const locale_t m_Ascii;
};

TEST_F(TextTest, EscapesWhatATerminalMightAct) {
  const std::pair<std::string, std::string> rows[] = {
      {"plain \\ text", "plain \\ text"},
      {"a\x1b[2J\r\n\t", "a\\x1b[2J\\x0d\\x0a\\x09"},
      {"\x7f", "\\x7f"},
      {std::string("a\0b", 3), "a\\x00b"},
      {"\xc2\x9b", "\\xc2\\x9b"},            // CSI as one C1 character
      {"\xff\xc0\xaf", "\\xff\\xc0\\xaf"},   // never valid, overlong
      {"\xe2\x82", "\\xe2\\x82"},            // cut off
      {"\xe2\x80\xae", "\\xe2\\x80\\xae"},   // right-to-left override
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"}};  // surrogate
  for (const auto& [text, shown] : rows) {
    EXPECT_EQ(ToTerminal(text, m_Utf8).text, shown);
    EXPECT_EQ(ToTerminal(text, m_Utf8).width, shown.size());
  }
}

TEST_F(TextTest, KnowsTheWidthOfCharacters) {
  EXPECT_EQ(ToTerminal("Gr\xc3\xbc\xc3\x9f\x65", m_Utf8).width, 5U);
  EXPECT_EQ(ToTerminal("\xe6\x97\xa5", m_Utf8).width, 2U);
  EXPECT_EQ(ToTerminal("\xc3\xbc", m_Ascii).text, "\\xc3\\xbc");
}

TEST(TableWriterTest, AlignsColumns) {
  Port longer = MakePort(2);
  longer.model = "A much longer model name";
  longer.link = Link::Unknown;
  longer.functionLink = Link::Down;
  longer.targetCount = 1234;
  longer.system = "";
  const auto lines = Lines(PortTable({MakePort(1), longer}, false));
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(
      lines[0],
      "WWPN                     WHERE  KIND  LINK   MODEL                     SYSTEM  TARGETS  VPORTS  VFS");
  EXPECT_EQ(
      lines[1],
      "10:00:02:5d:fa:00:00:01  local  FC    up     VX3200                    lab1          0       0    0");
  EXPECT_EQ(
      lines[2],
      "10:00:02:5d:fa:00:00:02  local  FC    /down  A much longer model name  -          1234       0    0");
}

TEST(TableWriterTest, ShowsTheWayOnlyWithRemotePorts) {
  Port remote = MakePort(2);
  remote.local = false;
  remote.via = Proxy{"10.0.0.5", 23333, false};
  remote.proxyOnly = true;
  EXPECT_EQ(PortTable({MakePort(1)}, false).find("VIA"), std::string::npos);
  const auto lines = Lines(PortTable({MakePort(1), remote}, false));
  EXPECT_TRUE(lines.at(1).ends_with("  -")) << lines[1];
  EXPECT_TRUE(lines.at(2).ends_with("  10.0.0.5 (only)")) << lines[2];
  EXPECT_EQ(PortTable({}, false), "");
}

TEST(TableWriterTest, ColoursDoNotMoveColumns) {
  std::string coloured = PortTable({MakePort(1)}, true);
  EXPECT_NE(coloured.find("\x1b[32mup\x1b[0m"), std::string::npos);
  for (std::size_t at; (at = coloured.find('\x1b')) != std::string::npos;) {
    coloured.erase(at, coloured.find('m', at) - at + 1);
  }
  EXPECT_EQ(coloured, PortTable({MakePort(1)}, false));
}

TEST(TableWriterTest, NoControlCharacterPasses) {
  Port port = MakeFullPort();
  port.model = port.system = port.manufacturer = port.serialNumber = port.position.vpdPortNumber = kHostile;
  port.via = Proxy{kHostile, 1, false};
  port.details->fcTargets[0].device = kHostile;
  port.details->iscsiTargets = {{kHostile, kHostile, true, true}};
  port.details->iscsiNames = IscsiNames{kHostile, kHostile, kHostile};
  for (const std::string& text :
       {PortTable({port}, false), PortSheet(port, false), TargetTables(port, false)}) {
    EXPECT_FALSE(HasControl(text)) << text;
    EXPECT_NE(text.find("a\\x1b[31m\\xff\\x0a"), std::string::npos) << text;
  }
}

TEST(TableWriterTest, SheetHasEverything) {
  Port port = MakeFullPort();
  port.specialFeatures = 0x12;
  const std::string sheet = PortSheet(port, false);
  for (const char* part :
       {"Port 10:00:02:5d:fa:00:00:01\n", "  Serial number      -\n", "  Kind               FC\n",
        "  Special features   0x12\n", "\nTargets\n",
        "  00:00:00:00:00:00:00:51  -     -:-:-        0x4001000000000000  -       0x000a01  no\n",
        "\nVirtual port 30:00:00:00:00:00:00:00, node -, 1 target\n",
        "\nVirtual functions\n  02:00:00:00:00:00:00:00\n"}) {
    EXPECT_NE(sheet.find(part), std::string::npos) << part << "\n" << sheet;
  }
}

TEST(TableWriterTest, TargetsOfAVirtualPortAlone) {
  Port port = MakeFullPort();
  port.details->fcTargets.clear();
  EXPECT_TRUE(TargetTables(port, false).starts_with("Virtual port 30:"));
  port.details->virtualPorts.clear();
  EXPECT_EQ(TargetTables(port, false), "");
}

TEST(JsonWriterTest, UnknownIsNullAndNamesAreTexts) {
  Port port = MakePort(1);
  port.wwnn = Wwn{{0x20}};
  port.model = "";
  const Json json = ToJson(port);
  EXPECT_EQ(json["wwpn"], "0x1000025dfa000001");
  EXPECT_EQ(json["wwnn"], "0x2000000000000000");
  EXPECT_EQ(json["kind"], "FC");
  EXPECT_EQ(json["link"], "up");
  for (const char* key :
       {"function_link", "model", "serial_number", "fabric_name", "port_number", "pci_bus", "via"}) {
    ASSERT_TRUE(json.contains(key)) << key;
    EXPECT_TRUE(json[key].is_null()) << key;
  }
  for (const auto& [key, value] : json.items()) {
    EXPECT_EQ(key.find_first_not_of("abcdefghijklmnopqrstuvwxyz_"), std::string::npos) << key;
  }
  EXPECT_FALSE(json.contains("targets")) << "details were not read";
}

TEST(JsonWriterTest, DetailsAndTargetLines) {
  const Port port = MakeFullPort();
  const Json json = ToJson(port);
  EXPECT_EQ(json["targets"][0]["fcp_lun"], "0x4001000000000000");
  EXPECT_EQ(json["targets"][0]["fc_address_id"], "0x000a01");
  EXPECT_TRUE(json["targets"][0]["lun"].is_null());
  EXPECT_EQ(json["vports"][0]["targets"].size(), 1U);
  EXPECT_EQ(json["virtual_functions"], Json({"0x0200000000000000"}));
  EXPECT_TRUE(json["iscsi_names"].is_null());

  const std::vector<Json> lines = TargetLines(port);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0]["format_version"], 1);
  EXPECT_TRUE(lines[0]["vport"].is_null());
  EXPECT_EQ(lines[1]["vport"], "0x3000000000000000");
  EXPECT_EQ(lines[1]["target"], TargetsJson(port)["vports"][0]["targets"][0]);
}

TEST(JsonWriterTest, HostileTextsGiveValidJson) {
  Port port = MakeFullPort();
  port.model = kHostile;
  port.details->iscsiTargets = {{std::string(511, '\xfe'), "", false, false}};
  for (const Layout layout : {Layout::Indented, Layout::OneLine}) {
    const std::string text = Dump(ToJson(port), layout);
    const Json parsed = Json::parse(text);
    EXPECT_EQ(parsed["model"], "a\x1b[31m\xef\xbf\xbd\n\xc2\x9b\xe2\x80\xaez\"\\");
    EXPECT_FALSE(HasControl(text));
  }
  EXPECT_EQ(Lines(Dump(ToJson(port), Layout::OneLine)).size(), 1U);
}

}  // namespace
}  // namespace hbadisc

// What no fabric file can say: records without an end, texts that act on a terminal, and the library's own
// output.
#include <fcntl.h>
#include <unistd.h>

#include "tests/support/Testing.h"
#include "tools/hbadisc/JsonWriter.h"
#include "tools/hbadisc/Output.h"
#include "tools/hbadisc/PortReader.h"
#include "tools/hbadisc/TableWriter.h"
#include "tools/hbadisc/Text.h"

namespace hbadisc {
namespace {

constexpr char kHostile[] = "a\x1b[31m\xff\n\xc2\x9b\xe2\x80\xaez\"\\";

bool HasControl(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return c != '\n' && (static_cast<unsigned char>(c) < 0x20 || c == 0x7f); });
}

TEST(Record, TextsAndCountsAreBounded) {
  hba_discovery_info_V3 record{};
  hba_discovery_info& info = record.base.base;
  std::memset(info.port.hostName, 'h', sizeof info.port.hostName);
  std::memset(info.port.model, 'm', sizeof info.port.model);
  std::memset(record.base.serialNumber, 's', sizeof record.base.serialNumber);
  info.port.modelId = HBADISC_MODEL_TARGET_MODE | 7;
  info.foundOnCount = 4000;
  info.linkStatus = 0x0201;
  const Port read = ToPort(record);
  EXPECT_EQ(read.system, std::string(32, 'h'));
  EXPECT_EQ(read.model, std::string(80, 'm'));
  EXPECT_EQ(read.serialNumber, std::string(60, 's'));
  EXPECT_EQ(read.modelNumber, 7U);
  EXPECT_TRUE(read.targetMode);
  EXPECT_EQ(read.foundOn.size(), 4U);
  EXPECT_EQ(read.link, Link::Up);
  EXPECT_EQ(read.functionLink, Link::Down);
}

TEST(Record, TheWayToARemotePortMayHaveSixteenBytes) {
  hba_discovery_info_V3 record{};
  record.hasProxyIpInfo = 1;
  record.proxyIpInfo = {{0xfd, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 2000, RM_IP_FLAG_IPV6, 0};
  EXPECT_EQ(ToPort(record).via.value().address, "fd00::1");
  EXPECT_EQ(ToPort(record).via.value().port, 2000);
}

TEST(Text, EscapesWhatATerminalMightAct) {
  const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const locale_t ascii = newlocale(LC_CTYPE_MASK, "C", nullptr);
  const std::pair<std::string, std::string> rows[] = {
      {"plain \\ text", "plain \\ text"},
      {"a\x1b[2J\r\n\t", "a\\x1b[2J\\x0d\\x0a\\x09"},
      {std::string("a\0b\x7f", 4), "a\\x00b\\x7f"},
      {"\xc2\x9b", "\\xc2\\x9b"},            // CSI as one C1 character
      {"\xff\xc0\xaf", "\\xff\\xc0\\xaf"},   // never valid, overlong
      {"\xe2\x82", "\\xe2\\x82"},            // cut off
      {"\xe2\x80\xae", "\\xe2\\x80\\xae"},   // right-to-left override
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"}};  // surrogate
  for (const auto& [text, shown] : rows) {
    EXPECT_EQ(ToTerminal(text, utf8).text, shown);
    EXPECT_EQ(ToTerminal(text, utf8).width, shown.size());
  }
  EXPECT_EQ(ToTerminal("\xe6\x97\xa5\xc3\xbc", utf8).width, 3U);
  EXPECT_EQ(ToTerminal("\xc3\xbc", ascii).text, "\\xc3\\xbc");
  freelocale(utf8);
  freelocale(ascii);
}

TEST(Text, OfAPortPassesNoControlCharacter) {
  Port port;
  port.model = port.system = port.manufacturer = port.serialNumber = port.position.vpdPortNumber = kHostile;
  port.via = Proxy{kHostile, 1, false};
  port.details.emplace();
  port.details->fcTargets.resize(1);
  port.details->fcTargets[0].device = kHostile;
  port.details->iscsiTargets = {{kHostile, kHostile, true, true}};
  port.details->iscsiNames = IscsiNames{kHostile, kHostile, kHostile};
  for (const std::string& text :
       {PortTable({port}, false), PortSheet(port, false), TargetTables(port, false)}) {
    EXPECT_FALSE(HasControl(text)) << text;
    EXPECT_NE(text.find("a\\x1b[31m\\xff\\x0a"), std::string::npos) << text;
  }
  const std::string json = Dump(ToJson(port), Layout::OneLine);
  EXPECT_EQ(Json::parse(json)["model"], "a\x1b[31m\xef\xbf\xbd\n\xc2\x9b\xe2\x80\xaez\"\\");
  EXPECT_FALSE(HasControl(json));
  EXPECT_EQ(std::count(json.begin(), json.end(), '\n'), 1);
}

TEST(Output, AFileThatTheStarterHasNotGivenIsNotWritten) {
  const int library = open("/dev/null", O_WRONLY | O_CLOEXEC);
  EXPECT_THROW(Output(library).Write("x"), OutputError);
  close(library);
}

// The library prints words of its own, on standard output.
TEST(OutputDeathTest, DataStandsAlone) {
  int data[2];
  ASSERT_EQ(pipe(data), 0);
  const auto write = [&data] {
    dup2(data[1], STDOUT_FILENO);
    std::puts("while it was loaded");
    Output(ClaimStandardOutput()).Write("data");
    std::puts("later");
    std::fflush(stdout);
    std::_Exit(0);
  };
  EXPECT_EXIT(write(), testing::ExitedWithCode(0), "while it was loaded\nlater");
  close(data[1]);
  char text[100] = {};
  EXPECT_EQ(read(data[0], text, sizeof text), 4);
  EXPECT_STREQ(text, "data");
  close(data[0]);
}

}  // namespace
}  // namespace hbadisc

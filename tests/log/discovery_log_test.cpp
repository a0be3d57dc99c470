// What a line of the log looks like, whatever text an adapter, a host or a file has brought into it.
#include "log/DiscoveryLog.h"
#include "tests/support/Testing.h"

#include <unistd.h>

namespace {

class DiscoveryLog : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    SetDiscoveryLogMode(kLogInBand);
    OpenDiscoveryLog(Path().c_str());
  }
  static void TearDownTestSuite() { unlink(Path().c_str()); }

  DiscoveryLog() { NewText(); }

  static std::string Path() { return testing::TempDir() + "discovery_log." + std::to_string(getpid()); }

  // What has been written since the last call, without the time in front.
  std::string NewText() {
    std::ifstream file(Path(), std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::string line = text.substr(m_Seen);
    m_Seen = text.size();
    return line.substr(std::min<std::size_t>(line.size(), std::string("12:34:56: ").size()));
  }

  std::size_t m_Seen = 0;
};

TEST_F(DiscoveryLog, NothingInAnArgumentIsMoreThanText) {
  std::string controls;
  for (char c = 1; c < ' '; ++c) controls += c;
  const struct {
    const char* format;
    std::string argument;
    std::string line;
  } rows[] = {
      // The message's own newlines, of which one at the end is not doubled.
      {"host %s", "one", "host one\n"},
      {"host %s\n", "one", "host one\n"},
      {"** DONE %s **\n\n", "one", "** DONE one **\n\n"},
      {"Target %s,\n           LUN=1", "one", "Target one,\n           LUN=1\n"},
      {"\n%s", "", "\n"},
      {"%s", "", "\n"},
      // Those of the argument.
      {"host %s", "one\n12:34:56: forged", "host one?12:34:56: forged\n"},
      {"host %s\n", "one\n", "host one?\n"},
      {"host %s\n\nis %s", "one\n\n", "host one??\n\nis up\n"},
      {"host %s\n", controls + "\x7f", "host " + std::string(32, '?') + "\n"},
      {"host %s", "\x1b[2Jone", "host ?[2Jone\n"},
      {"host %s,\n  %s", std::string(600, 'x'), "host " + std::string(510 - 15, 'x') + "\n"},
      {"host %s\n", std::string(494, 'x') + "\n", "host " + std::string(494, 'x') + "?\n"},
      {"host %s\n", std::string(494, '\n') + "\n", "host " + std::string(495, '?') + "\n"},
      // A terminal takes bytes of 0x80 to 0x9f for control bytes, but not within a character.
      {"host %s", "M\u00fcnchen \u6771\u4eac \u20ac \U0001d11e",
       "host M\u00fcnchen \u6771\u4eac \u20ac \U0001d11e\n"},
      {"host %s", "M\xfcnchen", "host M\xfcnchen\n"},
      {"host %s",
       "\x9b"
       "2Jone",
       "host ?2Jone\n"},
      {"host %s",
       "\u009b"
       "2J\u00a0\u009f",
       "host \xc2?2J\u00a0\xc2?\n"},
      {"host %s", "\xc0\x9b \xe0\x80\x9b \xf0\x80\x80\x9b", "host \xc0? \xe0?? \xf0???\n"},
      {"host %s", "\xed\x9f\xbf \xed\xa0\x80 \xf4\x8f\xbf\xbf \xf4\x90\x80\x80",
       "host \xed\x9f\xbf \xed\xa0? \xf4\x8f\xbf\xbf \xf4???\n"},
      {"host %s!", "\xe2\x82", "host \xe2?!\n"},
  };
  for (const auto& row : rows) {
    disco_printf(kLogInBand, nullptr, row.format, row.argument.c_str(), "up");
    EXPECT_EQ(NewText(), row.line) << row.format << " of " << row.argument;
  }
}

TEST_F(DiscoveryLog, LinesTellThePortAndComeWhenTheirMaskIsAsked) {
  const unsigned char wwn[8] = {0x10, 0, 0, 0, 0xc9, 0, 0, 0xff};
  disco_printf(kLogSlow, wwn, "slow");
  disco_printf(kLogSlow | kLogInBand, wwn, "%s", std::string(600, 'x').c_str());
  EXPECT_EQ(NewText(), " HBA 10:00:00:00:c9:00:00:ff -  " + std::string(510 - 42, 'x') + "\n");
}

}  // namespace

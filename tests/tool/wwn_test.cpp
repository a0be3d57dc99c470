#include "tools/hbadisc/Wwn.h"

#include <gtest/gtest.h>

namespace hbadisc {
namespace {

TEST(WwnTest, AcceptsTheUsualForms) {
  for (const char* text : {"1000025dfa00c0de", "1000025DFA00C0DE", "0x1000025dfa00c0de", "0X1000025dFa00c0DE",
                           "10:00:02:5d:fa:00:c0:de", "10-00-02-5D-FA-00-C0-DE"}) {
    const auto wwn = ParseWwn(text);
    ASSERT_TRUE(wwn) << text;
    EXPECT_EQ(HexText(*wwn), "0x1000025dfa00c0de") << text;
    EXPECT_EQ(ColonText(*wwn), "10:00:02:5d:fa:00:c0:de") << text;
  }
}

TEST(WwnTest, KeepsExtremes) {
  EXPECT_EQ(ParseWwn("0000000000000000"), Wwn{});
  EXPECT_EQ(HexText(ParseWwn("ffffffffffffffff").value()), "0xffffffffffffffff");
}

TEST(WwnTest, RefusesEverythingElse) {
  for (const char* text : {"",
                           "0x",
                           "1000025dfa00c0d",
                           "1000025dfa00c0de0",
                           "0x1000025dfa00c0d",
                           "0x1000025dfa00c0de0",
                           "0x0x5dfa00c0de00",
                           "1000025dfa00c0dg",
                           " 1000025dfa00c0de",
                           "1000025dfa00c0de ",
                           "+1000025dfa00c0d",
                           "10:00:02:5d:fa:00:c0",
                           "10:00:02:5d:fa:00:c0:d",
                           "10:00:02:5d:fa:00:c0:de:",
                           "10:00:02:5d:fa:00:c0-de",
                           "10.00.02.5d.fa.00.c0.de",
                           "1:000:02:5d:fa:00:c0:de",
                           "1::00:02:5d:fa:00:c0:de",
                           "0x10:00:02:5d:fa:00:c0:",
                           "0x10:00:02:5d:fa:00:c0:de",
                           "10:00:02:5d:fa:00:c0:+e"}) {
    EXPECT_FALSE(ParseWwn(text)) << text;
  }
  EXPECT_FALSE(ParseWwn(std::string("1000025dfa00c0d") + '\0'));
}

}  // namespace
}  // namespace hbadisc

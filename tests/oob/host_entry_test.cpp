// The parsers of host lines, and the order of addresses.
#include "oob/HostEntry.h"

#include "oob/OobIpAddressList.h"
#include "tests/support/Rows.h"

namespace {

constexpr unsigned short kDefault = 7;

const std::string kLines = OOB_TESTS "/host_lines.txt";

TEST(HostEntry, Lines) {
  for (const auto& [text, expected] : Rows(kLines, "controller")) {
    std::string line = text;
    unsigned short port = kDefault;
    const std::string host = ParseHostEntry(line.data(), &port) != 0 ? line.c_str() : "";
    EXPECT_EQ(host + ' ' + std::to_string(port), expected) << text;
  }
  for (const auto& [text, expected] : Rows(kLines, "list")) {
    std::string line = text;
    char* host = nullptr;
    const char* name = nullptr;
    EXPECT_EQ(ParseHostEntry(line.data(), &host, &name) != 0 ? std::string(host) + '|' + name : "", expected)
        << text;
  }
  for (const auto& [text, none] : Rows(kLines, "bad addresses"))
    EXPECT_TRUE(IsBadAddress(text.c_str())) << text;
  for (const auto& [text, none] : Rows(kLines, "other addresses"))
    EXPECT_FALSE(IsBadAddress(text.c_str())) << text;
  char line[] = "10.0.0.5";
  EXPECT_EQ(ParseHostEntry(line, nullptr, nullptr), 0);
  EXPECT_EQ(ParseHostEntry(nullptr, nullptr), 0);
}

// As "address|port|1|2|3|password".
std::string Cim(std::string line) {
  CIMCredentials record;
  std::memset(&record, 0xAA, sizeof(record));
  if (ParseCimHostEntry(line.data(), &record) == 0) return "";
  std::string password(record.password, sizeof(record.password));  // scrambled, zeros behind
  for (char& c : password) c = static_cast<char>(c == '\0' ? '\0' : c ^ 0x5C);
  return std::string(record.hostAddress) + '|' + std::to_string(record.port) + '|' + record.credential1 + '|' +
         record.credential2 + '|' + record.credential3 + '|' + password.c_str();
}

TEST(HostEntry, CimLines) {
  for (const auto& [line, expected] : Rows(kLines, "cim")) EXPECT_EQ(Cim(line), expected) << line;
  const std::string longText(70, 'x');
  EXPECT_EQ(Cim("10.0.0.9,5989,a,b,c," + longText), "10.0.0.9|5989|a|b|c|" + longText.substr(0, 63));
  EXPECT_EQ(Cim(longText + ",1"), longText.substr(0, 63) + "|1||||");
  char scrambledToZero[] = "10.0.0.9,1,a,b,c,x\\y";
  CIMCredentials record{};
  ASSERT_EQ(ParseCimHostEntry(scrambledToZero, &record), 1);
  EXPECT_EQ(std::memcmp(record.password, "\x24\x00\x25\x00", 4), 0) << "by length";
}

TEST(IpAddressList, OrdersByFamilyAndBytesAndKeepsTheFirstOfAnAddress) {
  const auto record = [](std::uint8_t first, std::uint8_t fourth, std::uint8_t flags, std::uint16_t port = 1) {
    return _RM_IP_INFO{{first, 0, 0, fourth}, port, flags, 0};
  };
  _RM_IP_INFO ordered[] = {record(9, 255, 0), record(10, 2, 0), record(10, 10, 0),
                           record(1, 0, RM_IP_FLAG_IPV6), record(1, 0, RM_IP_FLAG_IPV6)};
  ordered[4].address[15] = 1;
  COobIpAddressList list;
  const OobIpAddressListGuard guard(list);
  for (const int i : {1, 4, 3, 2, 0}) EXPECT_EQ(list.AddEntry(&ordered[i]), 1);
  const _RM_IP_INFO otherPort = record(10, 2, 0, 2);
  EXPECT_EQ(list.AddEntry(&otherPort), 0);
  list.SelectFirstEntry();
  for (const _RM_IP_INFO& address : ordered) {
    EXPECT_EQ(std::memcmp(list.NextEntry()->GetIpAddress(), &address, sizeof(address)), 0);
  }
  EXPECT_EQ(list.NextEntry(), nullptr);
  EXPECT_EQ(list.RemoveEntry(&otherPort), 1);
  EXPECT_EQ(list.RemoveEntry(&otherPort), 0);
  EXPECT_EQ(list.GetCount(), 4U);
}

}  // namespace

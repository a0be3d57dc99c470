// The parsers of host lines, and the order of addresses.
#include "oob/HostEntry.h"

#include "oob/OobIpAddressList.h"
#include "tests/support/Testing.h"

namespace {

constexpr unsigned short kDefault = 7;

// What the controller reads, "" for no host.
std::string Controllers(std::string line, unsigned short* port) {
  *port = kDefault;
  return ParseHostEntry(line.data(), port) != 0 ? line.c_str() : "";
}

// What the host list reads, as "host|name".
std::string Listed(std::string line) {
  char* host = nullptr;
  const char* name = nullptr;
  return ParseHostEntry(line.data(), &host, &name) != 0 ? std::string(host) + '|' + name : "";
}

TEST(HostEntry, ControllerReadsHostAndPort) {
  struct Row {
    const char* line;
    const char* host;
    unsigned short port = kDefault;
  };
  const std::vector<Row> rows = {
      {"  10.0.0.5:23333   # lab\n", "10.0.0.5", 23333},
      {"10.0.0.5:1024", "10.0.0.5"},
      {"10.0.0.5:1025", "10.0.0.5", 1025},
      {"10.0.0.5:65534", "10.0.0.5", 65534},
      {"10.0.0.5:65535", "10.0.0.5"},
      {"10.0.0.5:0x7d0z", "10.0.0.5", 2000},  // with anything behind the number
      {"10.0.0.5:03720", "10.0.0.5", 2000},
      {"10.0.0.5:-5", "10.0.0.5"},
      {"10.0.0.5:99999999999999999999", "10.0.0.5"},
      {"10.0.0.5:", "10.0.0.5"},
      {":10.0.0.5", "10.0.0.5"},                   // empty pieces do not count
      {"10.0.0.5 # a:2000", "10.0.0.5", 2000},     // the comment is not taken off first
      {"10.0.0.5 # a:b:c d", "10.0.0.5 # a:b:c"},  // two colons make an IPv6 address
      {"[fe80::1]:23333\n", "fe80::1", 23333},
      {"[fe80::1] \t: 2000", "fe80::1", 2000},
      {"[fe80::1]x:2000", "fe80::1"},
      {"[server7]\n", "server7"},  // whatever stands in brackets
      {"fe80::1 # x\n", "fe80::1"},
      {"::1\n", ""},  // too short
      {"[]:2000", ""},
      {"[fe80::1", ""},
      {"server7", ""},
      {"7erver", "7erver"},
      {"12345", ""},
      {"12345\n", "12345"},  // the newline counts
      {"# 10.0.0.5\n", ""},
      {"\t # 10.0.0.5\n", ""},
      {"         \n", ""},
      {":::::::", ":::::::"},
      {"", ""},
  };
  for (const Row& row : rows) {
    unsigned short port = 0;
    EXPECT_EQ(Controllers(row.line, &port), row.host) << row.line;
    EXPECT_EQ(port, row.port) << row.line;
  }
}

TEST(HostEntry, BadAddresses) {
  for (const char* bad : {"10.0.0.256", "10.0.0.5.", ".10.0.0.5", "10.0.0", "10.0.0.5.6", "10..0.5", "10", ".",
                          "", "10.0.0.0005", "99999999999999999999.0.0.1"}) {
    EXPECT_TRUE(IsBadAddress(bad)) << bad;
  }
  // The rest is the provider's to judge.
  for (const char* other :
       {"10.0.0.5", "0.0.0.0", "255.255.255.255", "010.000.000.005", "fe80::1", "3com", "10.0.0.x"}) {
    EXPECT_FALSE(IsBadAddress(other)) << other;
  }
}

TEST(HostEntry, HostListReadsHostAndName) {
  const std::string unknown = "*UNKNOWN HOST NAME*";
  const std::vector<std::pair<const char*, std::string>> rows = {
      {"  10.0.0.5:23333   # lab\n", "10.0.0.5:23333|lab"},
      {"10.0.0.5  # first second", "10.0.0.5|first"},
      {"[fe80::1]:99 x#\tname\tmore", "[fe80::1]:99|name"},
      {"10.0.0.5\n", "10.0.0.5|" + unknown},
      {"10.0.0.5 #  \n", "10.0.0.5|" + unknown},
      {"10.0.0.5#lab\n", "10.0.0.5|" + unknown},  // the mark ended the host
      {"::1.2.3\n", "::1.2.3|" + unknown},
      {"123456\n", ""},  // once more without the newline
      {"server7.lab", ""},
      {"10.0.0.5x", ""},
      {"# 10.0.0.5\n", ""},
      {"          \n", ""},
      {"", ""},
  };
  for (const auto& [line, expected] : rows) EXPECT_EQ(Listed(line), expected) << line;
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
  const std::string longText(70, 'x');
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"10.0.0.9, 5989, a, b, c, p,w\n", "10.0.0.9|5989|a|b|c|p,w"},
      {"10.0.0.9", "10.0.0.9|5988||||"},
      {"10.0.0.9,0x10,a", "10.0.0.9|16|a|||"},
      {"10.0.0.9,5989,a,,c,d", "10.0.0.9|5989|a|c|d|"},  // no password: what follows moves up
      {"10.0.0.9,5989,a,b,c,p w\t#x", "10.0.0.9|5989|a|b|c|pw"},
      {"10.0.0.9,5989,a,b,c,p,q,r,s", "10.0.0.9|5989|a|b|c|p,q,r,s"},
      {"10.0.0.9,5989,a,b,c," + longText, "10.0.0.9|5989|a|b|c|" + longText.substr(0, 63)},
      {longText + ",1", longText.substr(0, 63) + "|1||||"},
      {"10.0.0.9,,a,b", ""},
      {"10.0.0.9,1,a,b,,p", ""},
      {"10.0.0.9,1,a,,,p", ""},
      {"10.0.0", ""},
      {"# 10.0.0.9,1", ""},
      {"     # comment", ""},
      {",,,,,,,,", ""},
  };
  for (const auto& [line, expected] : rows) EXPECT_EQ(Cim(line), expected) << line;

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

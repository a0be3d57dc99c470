// Remote hosts' addresses, the table of hosts and the table of CIM hosts.

#include "tests/provider/Boundary.h"
#include "tests/support/Testing.h"

namespace providertest {
namespace {

std::string Resolved(const char* host) {
  _RM_IP_INFO record{};
  if (RM_RemoteOOBHostAddrV2(host, 23333, &record) != RM_STATUS_OK) return "refused";
  EXPECT_EQ(record.port, 23333);
  EXPECT_EQ(record.flags, std::strchr(host, ':') != nullptr ? RM_IP_FLAG_IPV6 : 0);
  char text[64];
  EXPECT_EQ(RM_IPtoStrA(&record, text), RM_STATUS_OK);
  return text;
}

TEST(Addresses, Texts) {
  const std::pair<const char*, const char*> rows[] = {
      {"10.0.0.5", "10.0.0.5"},
      {"255.255.255.255", "255.255.255.255"},
      {"fe80::1", "fe80::1"},
      {"2001:0DB8:0:0:0:0:0:1", "2001:db8::1"},
      {"::ffff:10.0.0.5", "::ffff:10.0.0.5"},
      {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
      {"localhost", "127.0.0.1"},
  };
  for (const auto& [host, text] : rows) EXPECT_EQ(Resolved(host), text) << host;
  _RM_IP_INFO record{};
  ASSERT_EQ(RM_RemoteOOBHostAddrV2("10.1.2.3", 0x1234, &record), RM_STATUS_OK);
  const unsigned char expected[20] = {10, 1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x34, 0x12, 0, 0};
  EXPECT_EQ(std::memcmp(&record, expected, sizeof(record)), 0);
  EXPECT_EQ(RM_RemoteOOBHostAddrV2(nullptr, 1, &record), RM_STATUS_FAILED);
  EXPECT_EQ(RM_IPtoStrA(&record, nullptr), RM_STATUS_FAILED);
}

using Proxy = std::array<unsigned char, 8>;

_RM_IP_INFO Address(const char* host) {
  _RM_IP_INFO record{};
  EXPECT_EQ(RM_RemoteOOBHostAddrV2(host, 23333, &record), RM_STATUS_OK);
  return record;
}

Proxy Added(const _RM_IP_INFO& host) {
  Proxy proxy{};
  EXPECT_EQ(RM_AddOOBAddressToLookupTable(&host, proxy.data()), RM_STATUS_OK);
  return proxy;
}

TEST(Addresses, ProxyAddressOfIpv4IsTheAddressItself) {
  _RM_IP_INFO host = Address("10.1.2.3");
  Proxy proxy = Added(host);
  EXPECT_EQ(proxy, (Proxy{0xFF, 0, 0x25, 0x5B, 10, 1, 2, 3}));
  EXPECT_EQ(IsCimHost(proxy.data()), 0);
  host.flags = RM_IP_FLAG_CIM;
  proxy = Added(host);
  EXPECT_EQ(proxy[0], 0xFE);
  EXPECT_NE(IsCimHost(proxy.data()), 0);
  EXPECT_EQ(IsCimHost(nullptr), 0);
  EXPECT_EQ(RM_AddOOBAddressToLookupTable(&host, nullptr), RM_STATUS_OK);
  // By address alone, whatever the port.
  host.port = 0;
  EXPECT_EQ(RM_RemoveOOBAddrFromLookupTable(&host), RM_STATUS_OK);
  EXPECT_EQ(RM_RemoveOOBAddrFromLookupTable(&host), RM_STATUS_NOT_FOUND);
}

TEST(Addresses, ProxyAddressOfIpv6IsAHandleThatStays) {
  _RM_IP_INFO first = Address("fe80::1");
  const Proxy before = Added(first);
  const Proxy other = Added(Address("fe80::2"));
  EXPECT_NE(before, other);
  // Neither "no proxy" nor an IPv4 address.
  EXPECT_TRUE(before[0] != 0 && before[0] != 0xFF && before[0] != 0xFE);
  ASSERT_EQ(RM_RemoveOOBAddrFromLookupTable(&first), RM_STATUS_OK);
  first.port = 5;
  first.flags |= RM_IP_FLAG_CIM;
  EXPECT_EQ(Added(first), before);
  EXPECT_NE(IsCimHost(before.data()), 0);
  EXPECT_EQ(IsCimHost(other.data()), 0);
}

// Without asking anybody: no host that is not registered, and no CIM host. Of zeros is the local host.
TEST(Addresses, UnknownHostsAreUnusable) {
  const Fabric fabric(Boards{FcBoard()});
  _RM_IP_INFO host = Address("127.0.0.1");
  const auto driverType = [](const Proxy& proxy) {
    unsigned int type = 0;
    return RM_GetDriverType(proxy.data(), Name(kPort).wwn, &type);
  };
  const auto expectUnusable = [&](const Proxy& proxy) {
    RM_NodeAddrList list{0, 99};
    EXPECT_EQ(RM_GetAllNodeAddr(&host, &list), RM_STATUS_HOST_UNUSABLE);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(driverType(proxy), RM_STATUS_HOST_UNUSABLE);
  };
  const Proxy proxy = Added(host);
  ASSERT_EQ(RM_RemoveOOBAddrFromLookupTable(&host), RM_STATUS_OK);
  expectUnusable(proxy);
  host.flags = RM_IP_FLAG_CIM;
  expectUnusable(Added(host));
  EXPECT_EQ(driverType({0x06, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0x7F}), RM_STATUS_HOST_UNUSABLE);
  EXPECT_EQ(driverType({}), RM_STATUS_OK);
  RM_NodeInfoList nodes{0, 0};
  EXPECT_EQ(RM_GetAllNodeInfo(proxy.data(), Name(kPort).wwn, &nodes), RM_STATUS_HOST_UNUSABLE);
  EXPECT_EQ(RM_GetAllNodeAddr(nullptr, nullptr), RM_STATUS_FAILED);
}

CIMCredentials Cim(const std::string& address, std::uint32_t port) {
  CIMCredentials entry{};
  std::memcpy(entry.hostAddress, address.data(), std::min(address.size(), sizeof(entry.hostAddress)));
  entry.port = port;
  return entry;
}

TEST(Addresses, CimTable) {
  const CIMCredentials first = Cim("10.0.0.1", 1);
  const CIMCredentials full = Cim(std::string(64, '9'), 2);  // fills its field
  CIMCredentials stored{};
  EXPECT_EQ(RM_GetCimHostEntry(&first, &stored), RM_STATUS_NOT_FOUND);
  EXPECT_EQ(RM_HandleCimHostEntry(&first, 2), RM_STATUS_NOT_FOUND);
  EXPECT_EQ(RM_HandleCimHostEntry(&first, 0), RM_STATUS_OK);
  EXPECT_EQ(RM_HandleCimHostEntry(&full, 0), RM_STATUS_OK);
  EXPECT_EQ(RM_HandleCimHostEntry(&first, 0), RM_STATUS_FAILED);
  EXPECT_EQ(RM_HandleCimHostEntry(&first, 1), RM_STATUS_NOT_SUPPORTED);
  const CIMCredentials changed = Cim("10.0.0.1", 7);
  EXPECT_EQ(RM_HandleCimHostEntry(&changed, 2), RM_STATUS_OK);
  EXPECT_EQ(RM_GetCimHostEntry(&first, &stored), RM_STATUS_OK);
  EXPECT_EQ(std::memcmp(&stored, &changed, sizeof(stored)), 0);

  unsigned int count = 0;
  EXPECT_EQ(RM_GetCimCount(&count), RM_STATUS_OK);
  EXPECT_EQ(count, 2u);
  CIMCredentials entries[3] = {};
  CIMCredentials* pointers[3] = {&entries[0], &entries[1], nullptr};
  EXPECT_EQ(RM_GetCimEntries(3, pointers), RM_STATUS_OK);
  EXPECT_EQ(entries[0].port, 7u);
  EXPECT_EQ(entries[1].port, 2u);
  pointers[1] = nullptr;
  EXPECT_EQ(RM_GetCimEntries(2, pointers), RM_STATUS_FAILED);

  _RM_IP_INFO record{};
  EXPECT_EQ(RM_RemoteCimHostAddrV2(&first, 5989, &record), RM_STATUS_OK);
  EXPECT_EQ(record.flags, RM_IP_FLAG_CIM);
  EXPECT_EQ(RM_RemoteCimHostAddrV2(&full, 5989, &record), RM_STATUS_FAILED);
  EXPECT_EQ(RM_ClearCimLookupTable(), RM_STATUS_OK);
  EXPECT_EQ(RM_GetCimHostEntry(&first, nullptr), RM_STATUS_NOT_FOUND);
}

}  // namespace
}  // namespace providertest

// Names of remote hosts. A resolver that counts stands in this program, in place of the system's.

#include <dlfcn.h>
#include <netdb.h>

#include "tests/provider/Boundary.h"
#include "tests/support/Testing.h"

namespace providertest {
namespace {

std::atomic<int> gs_Asked{0};

int Resolve(const std::string& host) {
  _RM_IP_INFO record{};
  return RM_RemoteOOBHostAddrV2(host.c_str(), 23333, &record);
}

int ResolveCim(const std::string& host) {
  _RM_IP_INFO record{};
  CIMCredentials cim{};
  std::copy_n(host.data(), std::min(host.size(), sizeof(cim.hostAddress)), cim.hostAddress);
  return RM_RemoteCimHostAddrV2(&cim, 23333, &record);
}

TEST(Names, WhatIsNoneIsRefusedWithoutAsking) {
  for (const char* host : {"", "10.0.0", "10.0.0.256", "10.0.0.5.", "10..0.5", "1.2.3.4.5", "5", "0x0a.1",
                           "012.0.0.1", "....", "[fe80::1]", "fe80::1%lo", "fe80::1::2", "fe80::12345",
                           "10.0.0.5:23333", "no such name", "server7/x", "server7\n", "a\x01"}) {
    EXPECT_EQ(Resolve(host), RM_STATUS_FAILED) << host;
    EXPECT_EQ(ResolveCim(host), RM_STATUS_FAILED) << host;
  }
  EXPECT_EQ(Resolve(std::string(254, 'a')), RM_STATUS_FAILED);
  EXPECT_EQ(gs_Asked, 0);
  EXPECT_EQ(Resolve("localhost"), RM_STATUS_OK);
  EXPECT_EQ(ResolveCim("localhost"), RM_STATUS_OK);
  EXPECT_EQ(gs_Asked, 2);
}

}  // namespace
}  // namespace providertest

// In place of the system's for the provider's library, too.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service,
                                                                  const addrinfo* hints, addrinfo** result) {
  using Function = int(const char*, const char*, const addrinfo*, addrinfo**);
  static auto* const real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "getaddrinfo"));
  ++providertest::gs_Asked;
  return real(name, service, hints, result);
}

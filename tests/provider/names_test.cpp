// Names of remote hosts, and a resolver that does not answer: it stands in this program, in place of the
// system's.

#include <dlfcn.h>
#include <netdb.h>

#include <condition_variable>

#include "tests/provider/Boundary.h"
#include "tests/support/Testing.h"

namespace providertest {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// What the program has asked the resolver for; names that begin with "stuck" get no answer before Release.
class Resolver {
 public:
  void Ask(const std::string& name) {
    std::unique_lock<std::mutex> lock(m_Mutex);
    ++m_Asked;
    if (!name.starts_with("stuck")) return;
    ++m_Stuck;
    m_IsReleased.wait(lock, [this] { return m_Released; });
    --m_Stuck;
  }
  void Release() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Released = true;
    m_IsReleased.notify_all();
  }
  int Asked() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Asked;
  }
  int Stuck() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Stuck;
  }

 private:
  std::mutex m_Mutex;
  std::condition_variable m_IsReleased;
  bool m_Released = false;
  int m_Asked = 0;
  int m_Stuck = 0;
};

// Threads that wait in it may outlast main.
Resolver& TheResolver() {
  static Resolver& resolver = *new Resolver;
  return resolver;
}

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
  EXPECT_EQ(TheResolver().Asked(), 0);
  EXPECT_EQ(Resolve("localhost"), RM_STATUS_OK);
  EXPECT_EQ(ResolveCim("localhost"), RM_STATUS_OK);
  EXPECT_EQ(TheResolver().Asked(), 2);
}

// Nobody waits longer than a call may take, no more than four threads are left waiting, and the process may
// end.
TEST(Names, AResolverThatDoesNotAnswer) {
  RM_SetOOBTimeout(1);
  const auto start = steady_clock::now();
  std::vector<std::thread> callers;
  for (int i = 0; i < 6; ++i) callers.emplace_back([] { EXPECT_EQ(Resolve("stuck"), RM_STATUS_FAILED); });
  EXPECT_TRUE(Eventually([] { return TheResolver().Stuck() == 4; }));
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(Resolve("localhost"), RM_STATUS_FAILED);
  EXPECT_EQ(Resolve("127.0.0.1"), RM_STATUS_OK);
  EXPECT_GE(steady_clock::now() - start, milliseconds(1900));
  EXPECT_LT(steady_clock::now() - start, milliseconds(8000));
  EXPECT_EQ(TheResolver().Stuck(), 4);
  TheResolver().Release();
  EXPECT_TRUE(Eventually([] { return Resolve("localhost") == RM_STATUS_OK; }));
}

}  // namespace
}  // namespace providertest

// In place of the system's for the provider's library, too.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service,
                                                                  const addrinfo* hints, addrinfo** result) {
  using Function = int(const char*, const char*, const addrinfo*, addrinfo**);
  static auto* const real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "getaddrinfo"));
  providertest::TheResolver().Ask(name);
  return real(name, service, hints, result);
}

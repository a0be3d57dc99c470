#include "provider/process/HostNames.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <string_view>
#include <thread>

#include "provider/base/Mutex.h"
#include "provider/base/SignalsBlocked.h"
#include "provider/remote/RemoteHost.h"

namespace provider {

namespace {

constexpr std::size_t kMostLookups = 4;
constexpr std::chrono::milliseconds kLookupLimit{5'000};

// The resolver would be asked in vain, and for long, for an address that is none; it would take "10.1"
// for 10.0.0.1.
bool IsName(const std::string& host) {
  constexpr std::size_t kLongestName = 253;
  const auto isLetter = [](char c) {
    constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_";
    return (c & 0x80) != 0 || kLetters.find(c) != std::string_view::npos;
  };
  if (host.size() > kLongestName || !std::all_of(host.begin(), host.end(), isLetter)) return false;
  in_addr ignored{};
  return host.find_first_not_of("0123456789.") != std::string::npos && inet_aton(host.c_str(), &ignored) == 0;
}

std::optional<NetAddress> AskResolver(const std::string& name) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* first = nullptr;
  if (getaddrinfo(name.c_str(), nullptr, &hints, &first) != 0) return std::nullopt;
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(first, freeaddrinfo);
  std::optional<NetAddress> found;
  for (const addrinfo* at = first; at != nullptr; at = at->ai_next) {
    sockaddr_storage storage{};
    std::memcpy(&storage, at->ai_addr, std::min<std::size_t>(at->ai_addrlen, sizeof(storage)));
    const std::optional<NetAddress> address = NetAddress::Of(storage);
    if (!address.has_value()) continue;
    if (!address->isIpv6) return address;
    if (!found.has_value()) found = address;
  }
  return found;
}

// How many calls of the resolver are under way, also those that nobody waits for any more.
class Lookups {
 public:
  // False when it is too many until the deadline.
  bool Begin(Condition::Deadline deadline) {
    const MutexLock held(m_Mutex);
    while (m_Count >= kMostLookups) {
      if (!m_HasEnded.WaitUntil(m_Mutex, deadline) && m_Count >= kMostLookups) return false;
    }
    ++m_Count;
    return true;
  }
  void End() {
    const MutexLock held(m_Mutex);
    --m_Count;
    m_HasEnded.NotifyAll();
  }

 private:
  Mutex m_Mutex;
  Condition m_HasEnded;
  std::size_t m_Count GUARDED_BY(m_Mutex) = 0;
};

// Never destroyed: a call may outlast main.
Lookups& TheLookups() {
  static Lookups& lookups = *new Lookups;
  return lookups;
}

// One call of the resolver, shared between its thread and whoever waits for it.
class Lookup {
 public:
  void Run(const std::string& name) noexcept {
    std::optional<NetAddress> address;
    try {
      address = AskResolver(name);
    } catch (...) {
      // Out of memory: not found.
    }
    const MutexLock held(m_Mutex);
    m_IsKnown = true;
    m_Address = address;
    m_HasEnded.NotifyAll();
  }
  std::optional<NetAddress> Await(Condition::Deadline deadline) {
    const MutexLock held(m_Mutex);
    while (!m_IsKnown) {
      if (!m_HasEnded.WaitUntil(m_Mutex, deadline)) break;
    }
    return m_Address;
  }

 private:
  Mutex m_Mutex;
  Condition m_HasEnded;
  bool m_IsKnown GUARDED_BY(m_Mutex) = false;
  std::optional<NetAddress> m_Address GUARDED_BY(m_Mutex);
};

std::optional<NetAddress> AskInTime(const std::string& name, Condition::Deadline deadline) {
  const auto lookup = std::make_shared<Lookup>();
  if (!TheLookups().Begin(deadline)) return std::nullopt;
  try {
    const SignalsBlocked blocked;
    std::thread([lookup, name] {
      lookup->Run(name);
      TheLookups().End();
    }).detach();
  } catch (...) {
    TheLookups().End();
    return std::nullopt;
  }
  return lookup->Await(deadline);
}

}  // namespace

std::optional<NetAddress> ResolveHost(const std::string& host) {
  if (const std::optional<NetAddress> address = NetAddress::Parse(host)) return address;
  if (!IsName(host)) return std::nullopt;
  const auto limit = std::min(kLookupLimit, RemoteCallLimit());
  return AskInTime(host, std::chrono::steady_clock::now() + limit);
}

}  // namespace provider

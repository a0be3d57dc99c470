// What a cycle over many remote hosts costs beside the calls that it has to make.
//
// 1,000 hosts on loopback with three ports each, of which 50 are dead, served by one real hbadisc-agent
// process, each call delayed by 20 ms. The dead ones refuse connections, or swallow them: a listener there
// accepts none and its queue is full. The program's own RM_ functions come before those of librmapi.so: each
// passes the call on to the open provider and counts it. Printed are the first cycle, which meets the dead
// hosts unprepared, and the following ones, of which the ratio
//   wall / (live calls x 20 ms / 14 workers)
// must not exceed 1.10, and what their time went into: until the first live call and after the last one
// (threads that look for their signals in slices), and the calls' own time above 20 ms. Then hosts are added to
// a file: the 10,000th may cost three times the 10th. Exits with 1 when a limit is missed. Usage: oob_bench
// [path of hbadisc-agent]

#include <arpa/inet.h>
#include <dlfcn.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/sysinfo.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "include/hbadiscovery.h"
#include "provider/OpenProvider.h"
#include "rmapi/rmapi.h"

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;
using nlohmann::json;

constexpr unsigned int kHosts = 1000;
constexpr unsigned int kDead = 50;
constexpr unsigned int kPorts = 3;  // of each host
constexpr unsigned int kWorkers = 14;
constexpr double kDelay = 0.020;  // seconds a call

// What live hosts have answered since Begin.
//
// Thread safety: any thread; Begin while no call is under way.
class LiveCalls {
 public:
  void Begin() {
    m_Count = 0;
    m_Nanoseconds = 0;
    m_First = 0;
    m_Last = 0;
    m_Begin = Clock::now();
  }
  void Add(Clock::time_point begin, Clock::time_point end) {
    ++m_Count;
    m_Nanoseconds += std::chrono::nanoseconds(end - begin).count();
    std::int64_t none = 0;
    m_First.compare_exchange_strong(none, std::chrono::nanoseconds(begin - m_Begin).count());
    m_Last = std::chrono::nanoseconds(end - m_Begin).count();
  }
  unsigned int Count() const { return m_Count; }
  double Taken() const { return static_cast<double>(m_Nanoseconds) * 1e-9; }
  double First() const { return static_cast<double>(m_First) * 1e-9; }
  double Last() const { return static_cast<double>(m_Last) * 1e-9; }
  double Elapsed() const { return Seconds(Clock::now() - m_Begin).count(); }

 private:
  Clock::time_point m_Begin;
  // Atomic: workers add to them. The times count from m_Begin.
  std::atomic<unsigned int> m_Count{0};
  std::atomic<std::int64_t> m_Nanoseconds{0};
  std::atomic<std::int64_t> m_First{0};
  std::atomic<std::int64_t> m_Last{0};
};

LiveCalls gs_Live;

// Passes a call on and counts it when a live host has answered.
template <class Function, class... Arguments>
int PassOn(const char* name, Arguments... arguments) {
  const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
  const auto begin = Clock::now();
  const int status = real(arguments...);
  if (status != RM_STATUS_HOST_UNUSABLE && status != RM_STATUS_BUSY) gs_Live.Add(begin, Clock::now());
  return status;
}

std::string Address(unsigned int host) {
  return "127.77." + std::to_string(host / 250) + '.' + std::to_string(host % 250 + 1);
}

std::string Wwpn(unsigned int host, unsigned int port = 0) {
  char text[17];
  std::snprintf(text, sizeof text, "100000%02x%08x", port, host + 1);
  return text;
}

class Socket {
 public:
  explicit Socket(int flags = 0) : m_File(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0)) {}
  Socket(Socket&& other) noexcept : m_File(std::exchange(other.m_File, -1)) {}
  ~Socket() {
    if (m_File >= 0) close(m_File);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  Socket& operator=(Socket&&) = delete;

  bool Bind(const sockaddr_in& address) const {
    const int on = 1;
    setsockopt(m_File, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    return bind(m_File, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
           listen(m_File, 0) == 0;
  }
  // Whether somebody takes the connection within the time.
  bool Connect(const sockaddr_in& address, int milliseconds) const {
    connect(m_File, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    pollfd wait{m_File, POLLOUT, 0};
    return poll(&wait, 1, milliseconds) == 1 && (wait.revents & (POLLERR | POLLHUP)) == 0;
  }

 private:
  int m_File;
};

sockaddr_in AgentAddress(unsigned int host) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(23333);
  inet_pton(AF_INET, Address(host).c_str(), &address.sin_addr);
  return address;
}

// Hosts that take no more connections and refuse none: their queues are full.
class Swallowers {
 public:
  explicit Swallowers(unsigned int hosts) {
    for (unsigned int host = 0; host < hosts; ++host) {
      const sockaddr_in address = AgentAddress(host);
      if (!m_Sockets.emplace_back().Bind(address)) throw std::runtime_error("cannot listen at a dead host");
      constexpr int kPatience = 50;  // milliseconds
      while (m_Sockets.emplace_back(SOCK_NONBLOCK).Connect(address, kPatience)) {
        if (m_Sockets.size() > 16U * hosts) throw std::runtime_error("a dead host's queue never fills");
      }
    }
  }

 private:
  std::vector<Socket> m_Sockets;
};

// The directory with the fabric file and the hosts file.
class Place {
 public:
  Place() {
    std::string path = std::filesystem::temp_directory_path() / "oob_bench.XXXXXX";
    if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("no directory for the files");
    m_Path = path;
    std::filesystem::permissions(m_Path, std::filesystem::perms(0755));
  }
  ~Place() { std::filesystem::remove_all(m_Path); }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  std::string File(const char* name) const { return m_Path / name; }
  std::string Path() const { return m_Path; }

 private:
  std::filesystem::path m_Path;
};

void WriteFabric(const std::string& path) {
  json file = {{"local", {{"name", "bench"}, {"boards", json::array()}}}};
  for (unsigned int host = kDead; host < kHosts; ++host) {
    json boards = json::array();
    for (unsigned int port = 0; port < kPorts; ++port) {
      boards.push_back({{"kind", "fc"}, {"wwpn", Wwpn(host, port)}});
    }
    file["remote"].push_back({{"address", Address(host)},
                              {"name", "host-" + std::to_string(host)},
                              {"delay_ms", 20},
                              {"boards", boards}});
  }
  std::ofstream(path) << file.dump();
}

class Agent {
 public:
  // Returns when it answers at its last address.
  Agent(const std::string& program, const std::string& fabric) : m_Process(fork()) {
    if (m_Process == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      execl(program.c_str(), program.c_str(), "--fabric", fabric.c_str(), nullptr);
      _exit(127);
    }
    const sockaddr_in last = AgentAddress(kHosts - 1);
    for (int tries = 0; !Socket(SOCK_NONBLOCK).Connect(last, 100); ++tries) {
      if (tries == 600) throw std::runtime_error("the agent does not answer");
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
  ~Agent() {
    kill(m_Process, SIGKILL);
    waitpid(m_Process, nullptr, 0);
  }
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

 private:
  pid_t m_Process;
};

class CycleWatch {
 public:
  static void OnCallBack(unsigned int reason, void* context) {
    if ((reason & HBADISC_REASON_FORCED) == 0) return;
    auto* watch = static_cast<CycleWatch*>(context);
    const std::lock_guard guard(watch->m_Lock);
    ++watch->m_Cycles;
    watch->m_Changed.notify_all();
  }
  void Await(unsigned int cycles) {
    std::unique_lock guard(m_Lock);
    m_Changed.wait(guard, [&] { return m_Cycles >= cycles; });
  }

 private:
  std::mutex m_Lock;
  std::condition_variable m_Changed;
  unsigned int m_Cycles = 0;
};

unsigned int CountPorts() {
  hba_discovery_info_V3 info;
  unsigned int count = 0;
  for (int more = HBADisc_GetFirstHbaV3(&info); more > 0; more = HBADisc_GetNextHbaV3(&info)) ++count;
  return count;
}

bool Verdict(const char* what, double ratio, double limit) {
  const bool good = ratio <= limit;
  std::printf("%-9s %.3f (limit %.2f) %s\n", what, ratio, limit, good ? "OK" : "FAIL");
  return good;
}

// The ratio of a cycle that has just ended.
double PrintCycle(double wall) {
  const double unavoidable = gs_Live.Count() * kDelay / kWorkers;
  std::printf("  cycle: wall %.3f s, %u live calls, unavoidable %.3f s\n", wall, gs_Live.Count(), unavoidable);
  const double between = gs_Live.Last() - gs_Live.First();
  std::printf(
      "         %.3f s until the first, %.3f s after the last; calls %.3f s longer, workers idle %.3f s\n",
      gs_Live.First(), wall - gs_Live.Last(), gs_Live.Taken() / kWorkers - unavoidable,
      between - gs_Live.Taken() / kWorkers);
  return wall / unavoidable;
}

bool BenchCycles(const char* what) {
  CycleWatch watch;
  HBADisc_RegisterCallBack(CycleWatch::OnCallBack, HBADISC_EVENT_FORCED, &watch);
  gs_Live.Begin();
  HBADisc_StartupEx(0, 0, 0);
  watch.Await(1);
  std::printf("  first cycle %.3f s, %u live calls, %u ports\n", gs_Live.Elapsed(), gs_Live.Count(),
              CountPorts());
  constexpr unsigned int kCycles = 3;
  double worst = 0;
  for (unsigned int cycle = 1; cycle <= kCycles; ++cycle) {
    gs_Live.Begin();
    HBADisc_StartDiscoveryCycle();
    watch.Await(cycle + 1);
    worst = std::max(worst, PrintCycle(gs_Live.Elapsed()));
  }
  const unsigned int ports = CountPorts();
  HBADisc_Terminate();
  std::printf("  %u ports of %u live hosts\n", ports, kHosts - kDead);
  return Verdict(what, worst, 1.10) && ports == (kHosts - kDead) * kPorts;
}

bool BenchDeadHosts(const Place& place, const std::string& agentProgram) {
  WriteFabric(place.File("fabric.json"));
  std::ofstream hosts(place.File("hbahosts.lst"));
  for (unsigned int host = 0; host < kHosts; ++host) hosts << Address(host) << '\n';
  hosts.close();
  const Agent agent(agentProgram, place.File("fabric.json"));
  const bool good = BenchCycles("refused");
  const Swallowers swallowers(kDead);
  return BenchCycles("swallowed") && good;
}

// The host that is added answers at once; what differs is the file.
double SecondsToAdd(const Place& place, unsigned int before) {
  std::ofstream hosts(place.File("hbahosts.lst"), std::ios::trunc);
  for (unsigned int host = 0; host < before; ++host) {
    hosts << "10." << host / 65536 << '.' << host / 256 % 256 << '.' << host % 256 << " # host\n";
  }
  hosts.close();
  double best = 1e9;
  for (int time = 0; time < 5; ++time) {
    const auto begin = Clock::now();
    if (HBADisc_AddOOBHostA(Address(kHosts - 1).c_str()) != 0) return 1e9;
    best = std::min(best, Seconds(Clock::now() - begin).count());
    HBADisc_RemoveOOBHostA(Address(kHosts - 1).c_str());
  }
  return best;
}

bool BenchAdding(const Place& place, const std::string& agentProgram) {
  json file = {{"local", {{"name", "bench"}, {"boards", json::array()}}}};
  file["remote"].push_back(
      {{"address", Address(kHosts - 1)}, {"name", "added"}, {"boards", {{{"kind", "fc"}, {"wwpn", Wwpn(0)}}}}});
  std::ofstream(place.File("fabric.json")) << file.dump();
  std::filesystem::remove(place.File("hbahosts.lst"));
  const Agent agent(agentProgram, place.File("fabric.json"));
  CycleWatch watch;
  HBADisc_RegisterCallBack(CycleWatch::OnCallBack, HBADISC_EVENT_FORCED, &watch);
  HBADisc_StartupEx(0, 0, 0);
  watch.Await(1);
  const double few = SecondsToAdd(place, 9);
  const double many = SecondsToAdd(place, 9999);
  HBADisc_Terminate();
  std::printf("  the 10th %.3f ms, the 10,000th %.3f ms\n", few * 1e3, many * 1e3);
  return Verdict("adding", many / few, 3.0);
}

}  // namespace

// ---- Calls of the provider, counted

extern "C" {

#define PROVIDER __attribute__((visibility("default")))
#define PASS_ON(name, ...) PassOn<decltype(&name)>(#name, __VA_ARGS__)
using Bytes = const unsigned char*;

PROVIDER int RM_GetAllNodeAddr(const _RM_IP_INFO* host, RM_NodeAddrList* list) {
  return PASS_ON(RM_GetAllNodeAddr, host, list);
}
PROVIDER int RM_GetDiscoveryAttributes(Bytes proxy, Bytes wwn, void* buffer, unsigned int* size) {
  return PASS_ON(RM_GetDiscoveryAttributes, proxy, wwn, buffer, size);
}
PROVIDER int RM_GetPortAttributes(Bytes proxy, Bytes wwn, void* buffer, unsigned int* size) {
  return PASS_ON(RM_GetPortAttributes, proxy, wwn, buffer, size);
}
PROVIDER int RM_GetHBAAttributes(Bytes proxy, Bytes wwn, void* buffer, unsigned int* size) {
  return PASS_ON(RM_GetHBAAttributes, proxy, wwn, buffer, size);
}
PROVIDER int RM_GetServerAttributes(Bytes proxy, Bytes wwn, void* buffer, unsigned int* size) {
  return PASS_ON(RM_GetServerAttributes, proxy, wwn, buffer, size);
}
PROVIDER int RM_GetDriverType(Bytes proxy, Bytes wwn, unsigned int* type) {
  return PASS_ON(RM_GetDriverType, proxy, wwn, type);
}
PROVIDER int RM_GetBindingSupport(Bytes proxy, Bytes wwn, int query, unsigned int* bindType) {
  return PASS_ON(RM_GetBindingSupport, proxy, wwn, query, bindType);
}
PROVIDER int RM_GetAllNodeInfo(Bytes proxy, Bytes wwn, RM_NodeInfoList* list) {
  return PASS_ON(RM_GetAllNodeInfo, proxy, wwn, list);
}
PROVIDER int RM_VPList(Bytes proxy, Bytes wwn, RM_VPortList* list) {
  return PASS_ON(RM_VPList, proxy, wwn, list);
}

}  // extern "C"

int main(int argc, char** argv) {
  try {
    const std::string agent = argc > 1 ? argv[1] : HBADISC_AGENT;
    std::printf(
        "remote cycle benchmark: %d cores, compiler %s\n"
        "%u hosts of %u ports, %u of them dead, 20 ms a call, %u workers\n",
        get_nprocs(), __VERSION__, kHosts, kPorts, kDead, kWorkers);
    const Place place;
    const std::string local = place.File("local.json");
    std::ofstream(local) << R"({"local": {"name": "bench", "boards": []}})";
    if (RMOpen_SetSource("fabric", local.c_str()) != 0 || RMOpen_SetInstallDir(place.Path().c_str()) != 0) {
      std::fprintf(stderr, "the provider does not take the files\n");
      return 2;
    }
    bool good = BenchDeadHosts(place, agent);
    good = BenchAdding(place, agent) && good;
    return good ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "oob_bench: %s\n", error.what());
    return 2;
  }
}

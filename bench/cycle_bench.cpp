// How long an in-band cycle takes beside what it cannot avoid, and how much memory stays after many cycles.
//
// The program is its own provider: its RM_ functions come before those of librmapi.so, answer at once or after
// a fixed delay, and note how long each kind of call really took. Cases:
//   cycle   one full cycle over 200 ports with a delay on every boundary call; wall / limit
//   memory  1,000 ports x 64 targets after 100 cycles, full and lite in turn; resident growth / bytes of
//   records
// Exits with 1 when a limit is missed.

#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <thread>

#include "include/hbadiscovery.h"
#include "rmapi/rmapi.h"

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr unsigned int kWorkers = 15;

enum Kind { kEnumeration, kTargetLock, kVPortLock, kOther, kKinds };

// What the provider pretends; set before discovery starts.
struct Circumstances {
  unsigned int ports = 0;
  unsigned int targets = 0;
  std::chrono::microseconds delay{0};
};
Circumstances gs_Host;

std::atomic<std::int64_t> gs_Spent[kKinds];  // nanoseconds
std::atomic<unsigned int> gs_Calls[kKinds];
std::atomic<std::thread::id> gs_DiscoveryThread;

void Spend(Kind kind) {
  const auto begin = Clock::now();
  if (gs_Host.delay.count() != 0) std::this_thread::sleep_for(gs_Host.delay);
  gs_Spent[kind] += std::chrono::nanoseconds(Clock::now() - begin).count();
  ++gs_Calls[kind];
}

double SpentOn(Kind kind) {
  return Seconds(std::chrono::nanoseconds(gs_Spent[kind].load())).count();
}

void NameWwn(std::uint8_t* wwn, unsigned int port, unsigned int target) {
  wwn[0] = 0x20;
  wwn[2] = static_cast<std::uint8_t>(port >> 8);
  wwn[3] = static_cast<std::uint8_t>(port);
  wwn[6] = static_cast<std::uint8_t>(target >> 8);
  wwn[7] = static_cast<std::uint8_t>(target);
}

// Waits for the callbacks of discovery.
class CycleWatch {
 public:
  static void OnCallBack(unsigned int reason, void* context) {
    if ((reason & HBADISC_REASON_INTERMEDIATE) != 0) return;
    auto* watch = static_cast<CycleWatch*>(context);
    const std::lock_guard guard(watch->m_Lock);
    ++watch->m_Cycles;
    watch->m_Ended = Clock::now();
    watch->m_Changed.notify_all();
  }

  Clock::time_point Await(unsigned int cycles) {
    std::unique_lock guard(m_Lock);
    m_Changed.wait(guard, [&] { return m_Cycles >= cycles; });
    return m_Ended;
  }

 private:
  std::mutex m_Lock;
  std::condition_variable m_Changed;
  unsigned int m_Cycles = 0;
  Clock::time_point m_Ended;
};

bool Verdict(const char* what, double ratio, double limit) {
  const bool good = ratio <= limit;
  std::printf("%-8s %.3f (limit %.2f) %s\n", what, ratio, limit, good ? "OK" : "FAIL");
  return good;
}

bool BenchCycle() {
  gs_Host = {200, 16, std::chrono::milliseconds(5)};
  std::printf("\ncycle: %u ports x %u targets, %lld us a call, %u workers at most\n", gs_Host.ports,
              gs_Host.targets, static_cast<long long>(gs_Host.delay.count()), kWorkers);
  CycleWatch watch;
  HBADisc_RegisterCallBack(CycleWatch::OnCallBack, HBADISC_EVENT_FORCED, &watch);
  const auto begin = Clock::now();
  HBADisc_StartupEx(0, HBADISC_NO_OOB_DISCOVERY, 1);
  const double wall = Seconds(watch.Await(1) - begin).count();
  HBADisc_Terminate();

  constexpr double kPause = 1.0;
  constexpr double kSlices = 0.5 + 0.25;  // a worker wakes, and is seen idle
  const double gathering = std::max({SpentOn(kTargetLock), SpentOn(kVPortLock), SpentOn(kOther) / kWorkers});
  const double limit = kPause + SpentOn(kEnumeration) + gathering + kSlices;
  std::printf(
      "  enumeration %u calls %.3f s; under the target lock %u calls %.3f s; under the virtual-port lock %u "
      "calls %.3f s; others %u\n",
      gs_Calls[kEnumeration].load(), SpentOn(kEnumeration), gs_Calls[kTargetLock].load(), SpentOn(kTargetLock),
      gs_Calls[kVPortLock].load(), SpentOn(kVPortLock), gs_Calls[kOther].load());
  std::printf("  wall %.3f s, unavoidable %.3f s\n", wall, limit);
  return Verdict("cycle", wall / limit, 1.05);
}

std::size_t ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statm >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

bool BenchMemory() {
  gs_Host = {1000, 64, std::chrono::microseconds(0)};
  constexpr unsigned int kCycles = 100;
  std::printf("\nmemory: %u ports x %u targets, %u cycles, full and lite in turn\n", gs_Host.ports,
              gs_Host.targets, kCycles);
  CycleWatch watch;
  const std::size_t before = ResidentBytes();
  HBADisc_RegisterCallBack(CycleWatch::OnCallBack, HBADISC_EVENT_EVERY_CYCLE, &watch);
  HBADisc_StartupEx(3600, HBADISC_NO_OOB_DISCOVERY, 1);
  watch.Await(1);
  for (unsigned int cycle = 2; cycle <= kCycles; ++cycle) {
    if (cycle % 2 == 0) {
      HBADisc_ChangeDiscoveryInterval(3600);  // wakes the discovery thread: a lite cycle
    } else {
      HBADisc_StartDiscoveryCycle();
    }
    watch.Await(cycle);
  }
  const std::size_t after = ResidentBytes();
  HBADisc_Terminate();
  const double records =
      static_cast<double>(gs_Host.ports) *
      (sizeof(HBA_info_v4) + gs_Host.targets * static_cast<double>(sizeof(RM_NodeInfoEntry)));
  const double grown = static_cast<double>(after) - static_cast<double>(before);
  std::printf("  records %.1f MiB, resident growth %.1f MiB\n", records / 0x1p20, grown / 0x1p20);
  return Verdict("memory", grown / records, 1.3);
}

void PrintCircumstances() {
  std::printf("in-band cycle benchmark: %d cores, compiler %s\n", get_nprocs(), __VERSION__);
#ifndef NDEBUG
  std::printf("WARNING: assertions are on; build with the release preset for figures that count\n");
#endif
#ifndef __OPTIMIZE__
  std::printf("WARNING: not optimized\n");
#endif
}

}  // namespace

// ---- The provider

extern "C" {

#define PROVIDER __attribute__((visibility("default")))

PROVIDER int RM_GetAllLocalHBAInstances(unsigned int* count, unsigned int* instances) {
  gs_DiscoveryThread = std::this_thread::get_id();
  Spend(kEnumeration);
  const unsigned int room = *count;
  *count = gs_Host.ports;
  if (room < gs_Host.ports) return RM_STATUS_BUFFER_TOO_SMALL;
  for (unsigned int i = 0; i < gs_Host.ports; ++i) instances[i] = i;
  return RM_STATUS_OK;
}

PROVIDER int RM_GetLocalHBAInfoV4(local_hba_info* board, HBA_info_v4* info) {
  Spend(kEnumeration);
  *info = {};
  NameWwn(info->portWwn, board->instance + 1, 0);
  NameWwn(info->nodeWwn, board->instance + 1, 0xFFFF);
  std::strcpy(info->hostName, "bench");
  board->linkStatus = 1;
  return RM_STATUS_OK;
}

PROVIDER int RM_GetDriverType(const unsigned char*, const unsigned char*, unsigned int* type) {
  Spend(kTargetLock);
  *type = 1;
  return RM_STATUS_OK;
}

PROVIDER int RM_GetBindingSupport(const unsigned char*, const unsigned char*, int, unsigned int* bindType) {
  Spend(kTargetLock);
  *bindType = 2;
  return RM_STATUS_OK;
}

PROVIDER int RM_GetAllNodeInfo(const unsigned char*, const unsigned char* wwn, RM_NodeInfoList* list) {
  Spend(gs_DiscoveryThread.load() == std::this_thread::get_id() ? kEnumeration : kTargetLock);
  const unsigned int room = list->count;
  list->count = gs_Host.targets;
  if (room < gs_Host.targets) return RM_STATUS_BUFFER_TOO_SMALL;
  auto* nodes = reinterpret_cast<RM_NodeInfoEntry*>(list + 1);
  const unsigned int port = wwn[2] * 256U + wwn[3];
  for (unsigned int i = 0; i < gs_Host.targets; ++i) {
    NameWwn(nodes[i].portWwn, port, i + 1);
    nodes[i].target = i;
    nodes[i].nodeState = RM_NODE_EXISTS | RM_NODE_READY;
  }
  return RM_STATUS_OK;
}

PROVIDER int RM_IsVarnixPort(const unsigned char*) {
  return 0;
}

PROVIDER int RM_VPList(const unsigned char*, const unsigned char*, RM_VPortList* list) {
  Spend(kVPortLock);
  list->count = 0;
  return RM_STATUS_OK;
}

}  // extern "C"

int main(int argc, char** argv) {
  const bool cycle = argc < 2 || std::strcmp(argv[1], "cycle") == 0;
  const bool memory = argc < 2 || std::strcmp(argv[1], "memory") == 0;
  if (!cycle && !memory) {
    std::fprintf(stderr, "usage: cycle_bench [cycle|memory]\n");
    return 2;
  }
  PrintCircumstances();
  bool good = true;
  // Memory first: what the other case leaves behind must not hide growth.
  if (memory) good = BenchMemory() && good;
  if (cycle) good = BenchCycle() && good;
  return good ? 0 : 1;
}

// How long an in-band cycle takes beside what it cannot avoid, how much memory stays after many cycles, what a
// port that never answers costs the others, and what a directed refresh costs beside the port's own calls.
//
// The program is its own provider: its RM_ functions come before those of librmapi.so, answer at once or after
// a fixed delay, and note how long each kind of call really took. Cases:
//   cycle     one full cycle over 200 ports with a delay on every boundary call; wall / limit
//   memory-64, memory-16, memory-4
//             30 cycles, full and lite in turn, of ports with so many targets each; bytes in use / bytes of
//             records, after the last cycle and at most in a callback; most resident / most in use
//   sick      16 ports, the target read of one hangs: when all are listed, how long a stop takes
//   refresh   one port among 10,000 read again; processor time / 1 ms
// Each runs in a process of its own, unless one is named. Exits with 1 when a limit is missed.

#include <malloc.h>
#include <sys/sysinfo.h>
#include <sys/wait.h>
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
  unsigned int sickPort = 0;  // its workers' target reads wait for the end of the case; 0: none
};
Circumstances gs_Host;

std::atomic<std::int64_t> gs_Spent[kKinds];  // nanoseconds
std::atomic<unsigned int> gs_Calls[kKinds];
std::atomic<std::thread::id> gs_DiscoveryThread;

std::atomic<bool> gs_Hang{false};

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
  explicit CycleWatch(bool intermediate = false) : m_Intermediate(intermediate) {}

  static void OnCallBack(unsigned int reason, void* context) {
    if (!static_cast<CycleWatch*>(context)->m_Intermediate && (reason & HBADISC_REASON_INTERMEDIATE) != 0)
      return;
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
  const bool m_Intermediate;  // whether these count, too
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
  constexpr double kSlice = 0.25;  // until the workers are seen idle
  const double gathering = std::max({SpentOn(kTargetLock), SpentOn(kVPortLock), SpentOn(kOther) / kWorkers});
  const double limit = kPause + SpentOn(kEnumeration) + gathering + kSlice;
  std::printf(
      "  enumeration %u calls %.3f s; under the target lock %u calls %.3f s; under the virtual-port lock %u "
      "calls %.3f s; others %u\n",
      gs_Calls[kEnumeration].load(), SpentOn(kEnumeration), gs_Calls[kTargetLock].load(), SpentOn(kTargetLock),
      gs_Calls[kVPortLock].load(), SpentOn(kVPortLock), gs_Calls[kOther].load());
  std::printf("  wall %.3f s, unavoidable %.3f s\n", wall, limit);
  return Verdict("cycle", wall / limit, 1.05);
}

struct Memory {
  double inUse = 0;     // bytes that were asked for and not given back, with what the heap adds to each
  double resident = 0;  // bytes of pages, also those that the heap keeps for later
};

Memory Measure() {
  std::ifstream statm("/proc/self/statm");
  double total = 0;
  double resident = 0;
  statm >> total >> resident;
  const auto heap = mallinfo2();
  return {static_cast<double>(heap.uordblks + heap.hblkhd),
          resident * static_cast<double>(sysconf(_SC_PAGESIZE))};
}

// Measures in each callback, when the lists of a cycle are alive beside the current one.
class MemoryWatch {
 public:
  static void OnCallBack(unsigned int reason, void* context) {
    auto* watch = static_cast<MemoryWatch*>(context);
    const Memory now = Measure();
    watch->m_Highest = {std::max(watch->m_Highest.inUse, now.inUse),
                        std::max(watch->m_Highest.resident, now.resident)};
    CycleWatch::OnCallBack(reason, &watch->m_Cycles);
  }

  void Await(unsigned int cycles) { m_Cycles.Await(cycles); }
  const Memory& Highest() const { return m_Highest; }  // as of the cycle that was awaited

 private:
  CycleWatch m_Cycles;
  Memory m_Highest;
};

// A cycle's lists go after its callback.
Memory MeasureAtRest() {
  Memory last = Measure();
  for (;;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const Memory now = Measure();
    if (now.inUse == last.inUse) return now;
    last = now;
  }
}

bool BenchMemory(unsigned int ports, unsigned int targets) {
  gs_Host = {.ports = ports, .targets = targets};
  constexpr unsigned int kCycles = 30;
  std::printf("\nmemory: %u ports x %u targets, %u cycles, full and lite in turn\n", ports, targets, kCycles);
  MemoryWatch watch;
  const Memory before = Measure();
  HBADisc_RegisterCallBack(MemoryWatch::OnCallBack, HBADISC_EVENT_EVERY_CYCLE, &watch);
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
  const Memory after = MeasureAtRest();
  HBADisc_Terminate();
  const Memory highest = watch.Highest();
  const double records =
      ports * (sizeof(HBA_info_v4) + targets * static_cast<double>(sizeof(RM_NodeInfoEntry)));
  std::printf(
      "  records %.1f MiB; in use %.1f MiB at rest, %.1f MiB in a callback; resident %.1f and %.1f MiB\n",
      records / 0x1p20, (after.inUse - before.inUse) / 0x1p20, (highest.inUse - before.inUse) / 0x1p20,
      (after.resident - before.resident) / 0x1p20, (highest.resident - before.resident) / 0x1p20);
  constexpr double kListLimit = 1.3;
  bool good = Verdict("at rest", (after.inUse - before.inUse) / records, kListLimit);
  // The current list and a full cycle's are alive together; that has ports of its own, and shares the targets
  // which have not changed.
  good = Verdict("callback", (highest.inUse - before.inUse) / records, 1.7) && good;
  // The heap keeps pages, but not a second set of targets for each worker thread.
  return Verdict("resident", (highest.resident - before.resident) / (highest.inUse - before.inUse), 1.3) &&
         good;
}

unsigned int CountPorts() {
  hba_discovery_info_V3 info;
  unsigned int count = 0;
  for (int more = HBADisc_GetFirstHbaV3(&info); more > 0; more = HBADisc_GetNextHbaV3(&info)) ++count;
  return count;
}

bool BenchSick() {
  gs_Host = {.ports = 16, .targets = 16, .delay = std::chrono::milliseconds(5), .sickPort = 3};
  std::printf("\nsick: %u ports x %u targets, %lld us a call, port %u hangs\n", gs_Host.ports, gs_Host.targets,
              static_cast<long long>(gs_Host.delay.count()), gs_Host.sickPort);
  gs_Hang = true;
  CycleWatch watch(true);
  HBADisc_RegisterCallBack(CycleWatch::OnCallBack, HBADISC_EVENT_FORCED, &watch);
  const auto begin = Clock::now();
  HBADisc_StartupEx(0, HBADISC_NO_OOB_DISCOVERY, 1);
  const double told = Seconds(watch.Await(1) - begin).count();
  const auto beforeWalk = Clock::now();
  const unsigned int listed = CountPorts();
  const double walk = Seconds(Clock::now() - beforeWalk).count();
  const auto beforeStop = Clock::now();
  HBADisc_Terminate();
  const double stop = Seconds(Clock::now() - beforeStop).count();
  gs_Hang = false;
  gs_Hang.notify_all();
  std::printf("  first intermediate callback after %.3f s: %u ports listed; the walk over them took %.6f s\n",
              told, listed, walk);
  // More than ten whole seconds for the cycle to end, found in steps of a quarter, and the threads' own slices.
  constexpr double kStopLimit = 11.0 + 0.25 + 1.0;
  std::printf("  stopped after %.3f s\n", stop);
  const bool all = Verdict("listed", static_cast<double>(gs_Host.ports) / std::max(listed, 1U), 1.0);
  return Verdict("stop", stop / kStopLimit, 1.0) && all;
}

double ProcessorSeconds() {
  timespec spent{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &spent);
  return static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_nsec) * 1e-9;
}

bool BenchRefresh() {
  gs_Host = {.ports = 10'000, .targets = 4};
  constexpr unsigned int kTimes = 20;
  std::printf("\nrefresh: 1 of %u ports x %u targets, 5000 us a call, %u times\n", gs_Host.ports,
              gs_Host.targets, kTimes);
  CycleWatch watch;
  HBADisc_RegisterCallBack(CycleWatch::OnCallBack, HBADISC_EVENT_FORCED | HBADISC_EVENT_DIRECTED, &watch);
  HBADisc_StartupEx(0, HBADISC_NO_OOB_DISCOVERY, 1);
  watch.Await(1);
  gs_Host.delay = std::chrono::milliseconds(5);
  HBA_NAME name{};
  NameWwn(name.wwn, gs_Host.ports / 2, 0);
  double wall = 0;
  double processor = 0;
  double calls = 0;
  for (unsigned int time = 0; time < kTimes; ++time) {
    for (auto& spent : gs_Spent) spent = 0;
    const auto begin = Clock::now();
    const double processorBefore = ProcessorSeconds();
    // Refused until the one before has gone idle.
    while (HBADisc_DirectedDiscoveryUpdate(name, 0) == 0)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    wall += Seconds(watch.Await(time + 2) - begin).count();
    processor += ProcessorSeconds() - processorBefore;
    calls += SpentOn(kTargetLock) + SpentOn(kVPortLock) + SpentOn(kOther);
  }
  HBADisc_Terminate();
  std::printf("  each: wall %.3f ms, of it in calls %.3f ms, processor time %.3f ms\n", wall / kTimes * 1e3,
              calls / kTimes * 1e3, processor / kTimes * 1e3);
  return Verdict("refresh", processor / kTimes / 1e-3, 1.0);
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
  const unsigned int port = wwn[2] * 256U + wwn[3];
  if (port == gs_Host.sickPort && gs_DiscoveryThread.load() != std::this_thread::get_id()) gs_Hang.wait(true);
  const unsigned int room = list->count;
  list->count = gs_Host.targets;
  if (room < gs_Host.targets) return RM_STATUS_BUFFER_TOO_SMALL;
  auto* nodes = reinterpret_cast<RM_NodeInfoEntry*>(list + 1);
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

namespace {

struct Case {
  const char* name;
  bool (*run)();
};

constexpr Case kCases[] = {{"memory-64", [] { return BenchMemory(1'000, 64); }},
                           {"memory-16", [] { return BenchMemory(10'000, 16); }},
                           {"memory-4", [] { return BenchMemory(10'000, 4); }},
                           {"cycle", BenchCycle},
                           {"refresh", BenchRefresh},
                           {"sick", BenchSick}};

// What one case leaves behind must not hide what another one takes.
bool RunInProcessOfItsOwn(const char* program, const Case& one) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    execl("/proc/self/exe", program, one.name, nullptr);
    _exit(2);
  }
  int status = -1;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace

int main(int argc, char** argv) {
  bool good = true;
  if (argc < 2) {
    PrintCircumstances();
    for (const Case& one : kCases) good = RunInProcessOfItsOwn(argv[0], one) && good;
    return good ? 0 : 1;
  }
  for (const Case& one : kCases) {
    if (std::strcmp(argv[1], one.name) == 0) return one.run() ? 0 : 1;
  }
  std::fprintf(stderr, "usage: cycle_bench [CASE]; cases:");
  for (const Case& one : kCases) std::fprintf(stderr, " %s", one.name);
  std::fprintf(stderr, "\n");
  return 2;
}

// What copying and merging cost on a list of 10,000 ports with 64 targets each.
//
// Two pairs of cases, each with a limit on the ratio of their medians. The second of a pair does the least that
// the first one's task can mean, on the same records without any list: each port is a record and one block of
// target records.
//   Snapshot / PlainCopy          copying every entry of a list into a new list, against copying the blocks
//   UnchangedMerge / PlainCompare merging an equal list that shares nothing, against comparing the blocks'
//   bytes
// A missed limit makes the exit status 1. Lists and blocks need about 1.5 GB.

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <time.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "log/DiscoveryLog.h"
#include "model/HbaList.h"

void disco_printf(unsigned int /*mask*/, const unsigned char* /*wwn*/, const char* /*format*/, ...) {}

namespace {

constexpr unsigned int kSeed = 20240326;
constexpr unsigned int kPorts = 10000;
constexpr unsigned int kTargetsPerPort = 64;
constexpr int kRepetitions = 9;
constexpr double kSnapshotLimit = 0.05;
constexpr double kMergeLimit = 1.5;

struct PlainPort {
  HBA_info_v4 info;
  std::vector<RM_NodeInfoEntry> targets;
};
using PlainPorts = std::vector<PlainPort>;

std::unique_ptr<CHbaList> currentList;
std::unique_ptr<CHbaList> equalList;
PlainPorts currentBlocks;
PlainPorts equalBlocks;

template <typename Record>
Record RandomRecord(std::mt19937_64& random) {
  Record record;
  std::array<std::uint64_t, (sizeof(Record) + 7) / 8> words;
  for (auto& word : words) word = random();
  std::memcpy(&record, words.data(), sizeof(record));
  return record;
}

// The same ports and targets at each call.
PlainPorts BuildBlocks() {
  std::mt19937_64 random(kSeed);
  PlainPorts ports(kPorts);
  for (PlainPort& port : ports) {
    port.info = RandomRecord<HBA_info_v4>(random);
    for (unsigned int i = 0; i < kTargetsPerPort; ++i) {
      auto target = RandomRecord<RM_NodeInfoEntry>(random);
      std::snprintf(target.osDeviceName, sizeof(target.osDeviceName), "/dev/sd%u", i);
      port.targets.push_back(target);
    }
  }
  return ports;
}

void VisitPort(CHbaList& gathered, const PlainPort& block) {
  const HbaListGuard guard(gathered);
  CHbaEntry* listed = gathered.FindEntry(block.info.portWwn);
  CHbaEntry port(*listed);
  for (const RM_NodeInfoEntry& target : block.targets) port.AddTarget(&target);
  listed->TakeTargets(port);
}

// In memory of its own, by the way of a full cycle: the ports are listed, their targets read, the list merged.
std::unique_ptr<CHbaList> BuildList(const PlainPorts& blocks) {
  CHbaList gathered;
  {
    const HbaListGuard guard(gathered);
    for (const PlainPort& block : blocks) {
      const CHbaEntry port(&block.info, nullptr, 1, nullptr, 0, nullptr);
      gathered.AddEntry(&port);
    }
  }
  for (const PlainPort& block : blocks) VisitPort(gathered, block);
  auto list = std::make_unique<CHbaList>();
  list->MergeLists(&gathered, 1, 1);
  return list;
}

// Processor time: the same as wall time for this one thread, unless others want the processor too.
double Now() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

template <typename Work>
double Seconds(Work work) {
  const double start = Now();
  work();
  return Now() - start;
}

void CopyPorts(CHbaList& from, CHbaList& to) {
  const HbaListPairGuard guard(from, to);
  for (CHbaEntry* port = from.GetFirstEntry(); port != nullptr; port = from.GetNextEntry()) to.AddEntry(port);
}

// The copy's end is not timed.
void SnapshotCase(benchmark::State& state) {
  for (auto _ : state) {
    CHbaList copy;
    state.SetIterationTime(Seconds([&] { CopyPorts(*currentList, copy); }));
    if (copy.GetCount() != kPorts) state.SkipWithError("ports are missing");
  }
}

void PlainCopyCase(benchmark::State& state) {
  for (auto _ : state) {
    PlainPorts copy;
    state.SetIterationTime(Seconds([&] { copy = currentBlocks; }));
    benchmark::DoNotOptimize(copy.data());
  }
}

void MergeCase(benchmark::State& state) {
  for (auto _ : state) {
    int changed = 0;
    state.SetIterationTime(Seconds([&] { changed = currentList->MergeLists(equalList.get(), 1, 1); }));
    if (changed != 0) state.SkipWithError("equal lists differ");
  }
}

bool SameBytes(const PlainPorts& one, const PlainPorts& two) {
  bool same = true;
  for (std::size_t i = 0; i < one.size(); ++i) {
    same &= std::memcmp(&one[i].info, &two[i].info, sizeof(HBA_info_v4)) == 0;
    same &= std::memcmp(one[i].targets.data(), two[i].targets.data(),
                        one[i].targets.size() * sizeof(RM_NodeInfoEntry)) == 0;
  }
  return same;
}

void PlainCompareCase(benchmark::State& state) {
  for (auto _ : state) {
    bool same = false;
    state.SetIterationTime(Seconds([&] { same = SameBytes(currentBlocks, equalBlocks); }));
    if (!same) state.SkipWithError("equal blocks differ");
  }
}

void Register(const char* name, void (*function)(benchmark::State&)) {
  benchmark::RegisterBenchmark(name, function)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond)
      ->Iterations(1)
      ->Repetitions(kRepetitions)
      ->ReportAggregatesOnly();
}

// Shows the table and keeps the medians.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      failed |= run.error_occurred;
      if (run.aggregate_name == "median") medians[run.run_name.function_name] = run.GetAdjustedRealTime();
    }
  }

  std::map<std::string, double> medians;
  bool failed = false;
};

bool WithinLimit(MedianReporter& reporter, const char* measured, const char* base, double limit) {
  const double ratio = reporter.medians[measured] / reporter.medians[base];
  const bool within = ratio <= limit;  // false also when a case did not run
  std::printf("%s / %s = %.4f, limit %.4f: %s\n", measured, base, ratio, limit, within ? "OK" : "FAIL");
  return within;
}

}  // namespace

int main(int argc, char** argv) {
  // Memory stays with the process, so that neither side of a pair waits for the kernel to find some.
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, -1);
  // Repetitions of the cases of a pair take turns: both meet the same machine, and a snapshot finds no warm
  // cache.
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  std::vector<char*> arguments(argv, argv + argc);
  arguments.push_back(interleave.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
#ifndef NDEBUG
  std::printf("WARNING: built with assertions, the figures mean little\n");
#endif
  std::printf("%u ports x %u targets, seed %u, medians of %d\n", kPorts, kTargetsPerPort, kSeed, kRepetitions);
  MedianReporter reporter;
  currentBlocks = BuildBlocks();
  equalBlocks = BuildBlocks();
  currentList = BuildList(currentBlocks);
  equalList = BuildList(equalBlocks);
  Register("UnchangedMerge", MergeCase);
  Register("PlainCompare", PlainCompareCase);
  benchmark::RunSpecifiedBenchmarks(&reporter);

  equalList.reset();  // makes room for the copies
  equalBlocks.clear();
  benchmark::ClearRegisteredBenchmarks();
  Register("Snapshot", SnapshotCase);
  Register("PlainCopy", PlainCopyCase);
  benchmark::RunSpecifiedBenchmarks(&reporter);

  bool ok = !reporter.failed;
  ok &= WithinLimit(reporter, "Snapshot", "PlainCopy", kSnapshotLimit);
  ok &= WithinLimit(reporter, "UnchangedMerge", "PlainCompare", kMergeLimit);
  return ok ? 0 : 1;
}

// What copying and merging cost on a list of 10,000 ports with 64 targets each.
//
// Two pairs of cases, each with a limit on the ratio of their medians:
//   Snapshot / DeepCopy          copying every entry of a list into a new list, against copying every target
//   too UnchangedMerge / MemcmpPass  merging an equal list that shares nothing, against comparing the records'
//   bytes
// A missed limit makes the exit status 1. The two lists need about 800 MB.

#include <benchmark/benchmark.h>

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

#include "discovery/DiscoveryLog.h"
#include "discovery/HbaDiscoveryList.h"

void disco_printf(unsigned int /*mask*/, const unsigned char* /*wwn*/, const char* /*format*/, ...) {}

namespace {

constexpr unsigned int kSeed = 20240326;
constexpr unsigned int kPorts = 10000;
constexpr unsigned int kTargetsPerPort = 64;
constexpr int kRepetitions = 9;
constexpr double kSnapshotLimit = 1.0 / 50;
constexpr double kMergeLimit = 3.0;

std::unique_ptr<CHbaList> currentList;
std::unique_ptr<CHbaList> equalList;

template <typename Record>
Record RandomRecord(std::mt19937_64& random) {
  Record record;
  std::array<std::uint64_t, (sizeof(Record) + 7) / 8> words;
  for (auto& word : words) word = random();
  std::memcpy(&record, words.data(), sizeof(record));
  return record;
}

// The same ports and targets at each call, in memory of their own.
std::unique_ptr<CHbaList> BuildList() {
  std::mt19937_64 random(kSeed);
  auto list = std::make_unique<CHbaList>();
  const CHbaListGuard guard(*list);
  for (unsigned int i = 0; i < kPorts; ++i) {
    const auto info = RandomRecord<HBA_info_v4>(random);
    CHbaEntry port(&info, nullptr, 1, nullptr, 0, nullptr);
    for (unsigned int j = 0; j < kTargetsPerPort; ++j) {
      auto target = RandomRecord<RM_NodeInfoEntry>(random);
      std::snprintf(target.osDeviceName, sizeof(target.osDeviceName), "/dev/sd%u", j);
      port.AddTarget(&target);
    }
    list->AddEntry(&port);
  }
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
  const CHbaListPairGuard guard(from, to);
  for (CHbaEntry* port = from.GetFirstEntry(); port != nullptr; port = from.GetNextEntry()) to.AddEntry(port);
}

void CopyPortsAndTargets(CHbaList& from, CHbaList& to) {
  const CHbaListPairGuard guard(from, to);
  for (CHbaEntry* port = from.GetFirstEntry(); port != nullptr; port = from.GetNextEntry()) {
    CHbaEntry copy(port->GetHbaInfo(), nullptr, port->IsLocalPort(), nullptr, 0, nullptr);
    const CTargetList targets = port->GetTargetList();
    for (unsigned int i = 0; i < targets.GetCount(); ++i) copy.AddTarget(targets.GetEntry(i).GetTargetEntry());
    to.AddEntry(&copy);
  }
}

bool SameRecords(CHbaList& one, CHbaList& two) {
  const CHbaListPairGuard guard(one, two);
  bool same = true;
  CHbaEntry* other = two.GetFirstEntry();
  for (CHbaEntry* port = one.GetFirstEntry(); port != nullptr; port = one.GetNextEntry()) {
    same &= std::memcmp(port->GetHbaInfo(), other->GetHbaInfo(), sizeof(HBA_info_v4)) == 0;
    const CTargetList mine = port->GetTargetList();
    const CTargetList theirs = other->GetTargetList();
    for (unsigned int i = 0; i < mine.GetCount(); ++i) {
      same &= std::memcmp(mine.GetEntry(i).GetTargetEntry(), theirs.GetEntry(i).GetTargetEntry(),
                          sizeof(RM_NodeInfoEntry)) == 0;
    }
    other = two.GetNextEntry();
  }
  return same;
}

// The copy's end is not timed.
template <void (*Copy)(CHbaList&, CHbaList&)>
void CopyCase(benchmark::State& state) {
  for (auto _ : state) {
    CHbaList copy;
    state.SetIterationTime(Seconds([&] { Copy(*currentList, copy); }));
    if (copy.GetCount() != kPorts) state.SkipWithError("ports are missing");
  }
}

void MergeCase(benchmark::State& state) {
  for (auto _ : state) {
    int changed = 0;
    state.SetIterationTime(Seconds([&] { changed = currentList->MergeLists(equalList.get(), 1, 1); }));
    if (changed != 0) state.SkipWithError("equal lists differ");
  }
}

void MemcmpCase(benchmark::State& state) {
  for (auto _ : state) {
    bool same = false;
    state.SetIterationTime(Seconds([&] { same = SameRecords(*currentList, *equalList); }));
    if (!same) state.SkipWithError("equal lists differ");
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
  currentList = BuildList();
  equalList = BuildList();
  Register("UnchangedMerge", MergeCase);
  Register("MemcmpPass", MemcmpCase);
  benchmark::RunSpecifiedBenchmarks(&reporter);

  equalList.reset();  // makes room for the deep copies
  benchmark::ClearRegisteredBenchmarks();
  Register("Snapshot", CopyCase<CopyPorts>);
  Register("DeepCopy", CopyCase<CopyPortsAndTargets>);
  benchmark::RunSpecifiedBenchmarks(&reporter);

  bool ok = !reporter.failed;
  ok &= WithinLimit(reporter, "Snapshot", "DeepCopy", kSnapshotLimit);
  ok &= WithinLimit(reporter, "UnchangedMerge", "MemcmpPass", kMergeLimit);
  return ok ? 0 : 1;
}

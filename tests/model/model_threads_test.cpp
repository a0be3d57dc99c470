// Readers of snapshots beside a writer of the list: a snapshot never changes, and no target is seen half
// written.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "model/HbaList.h"
#include "tests/support/Ports.h"

namespace {

constexpr unsigned int kPorts = 4;
constexpr unsigned int kRounds = 200;

// All targets of a round carry its number, and there are as many as it says.
CHbaEntry RoundPort(unsigned int number, unsigned int round) {
  CHbaEntry port(Name(number).wwn);
  for (unsigned int i = 0; i <= round % 8; ++i) {
    RM_NodeInfoEntry target = Node(i);
    target.lun = round;
    port.AddTarget(&target);
  }
  return port;
}

bool IsWhole(const CHbaEntry& port) {
  RM_NodeInfoEntry records[8];
  unsigned int count = 8;
  return port.GetTargets(records, &count) == 0 && count == records[0].lun % 8 + 1 &&
         std::all_of(records, records + count,
                     [&](const auto& target) { return target.lun == records[0].lun; });
}

void Snapshot(CHbaList& from, CHbaList& to) EXCLUDES(from, to) {
  const HbaListPairGuard guard(from, to);
  for (CHbaEntry* port = from.GetFirstEntry(); port != nullptr; port = from.GetNextEntry()) to.AddEntry(port);
}

bool AllWhole(CHbaList& list) EXCLUDES(list) {
  const HbaListGuard guard(list);
  for (CHbaEntry* port = list.GetFirstEntry(); port != nullptr; port = list.GetNextEntry()) {
    if (!IsWhole(*port)) return false;
  }
  return true;
}

void AddRound(CHbaList& list, unsigned int round) EXCLUDES(list) {
  for (unsigned int number = 0; number < kPorts; ++number) Add(list, RoundPort(number, round));
}

// One port's new targets, put into the listed entry as a worker does it.
void RefreshPort(CHbaList& list, unsigned int number, unsigned int round) EXCLUDES(list) {
  const CHbaEntry fresh = RoundPort(number, round);
  const HbaListGuard guard(list);
  list.FindEntry(Name(number).wwn)->TakeTargets(fresh);
}

TEST(ModelThreads, SnapshotsStayWholeWhileTheListChanges) {
  CHbaList current(ListRank::kCurrent);
  AddRound(current, 0);
  std::atomic<bool> done{false};
  std::atomic<unsigned int> broken{0};
  std::vector<std::jthread> readers;
  for (int i = 0; i < 2; ++i) {
    readers.emplace_back([&] {
      do {
        CHbaList snapshot;
        Snapshot(current, snapshot);
        if (!AllWhole(snapshot)) ++broken;
        // Changing the own copy reaches nobody else.
        const HbaListGuard guard(snapshot);
        const RM_NodeInfoEntry extra = Node(99);
        snapshot.GetFirstEntry()->AddTarget(&extra);
      } while (!done);
    });
  }
  for (unsigned int round = 1; round < kRounds; ++round) {
    RefreshPort(current, round % kPorts, round);
    CHbaList gathered(ListRank::kGathered);
    AddRound(gathered, round);
    EXPECT_EQ(current.MergeLists(&gathered, 1, 1), 1);
    if (!AllWhole(current)) ++broken;
  }
  done = true;
  readers.clear();
  EXPECT_EQ(broken, 0U);
  EXPECT_EQ(current.GetCount(), kPorts);
}

TEST(ModelThreads, WorkersFillOnePortTogether) {
  CHbaEntry port(Name(1).wwn);
  std::vector<std::jthread> workers;
  for (unsigned int worker = 0; worker < 4; ++worker) {
    workers.emplace_back([&port, worker] {
      for (unsigned int i = 0; i < 50; ++i) {
        const unsigned int number = i * 4 + worker;
        const RM_NodeInfoEntry target = Node(number);
        port.AddTarget(&target);
        port.AddVF(Name(number));
        CVPortEntry vport(Name(number).wwn);
        vport.AddTarget(&target);
        port.AddVPort(&vport);
        const CHbaEntry copy(port);  // shares what the others go on adding to
        EXPECT_GE(copy.GetVPortCount(), i);
      }
    });
  }
  workers.clear();
  EXPECT_EQ(port.GetTargetCount(), 200U);
  EXPECT_EQ(port.GetVFCount(), 200U);
  EXPECT_EQ(port.GetVPortCount(), 200U);
}

}  // namespace

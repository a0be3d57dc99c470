// Readers of snapshots beside a writer of the list: a snapshot never changes, and no target is seen half
// written.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "discovery/HbaDiscoveryList.h"
#include "tests/model/RecordedLog.h"
#include "tests/model/Samples.h"

namespace {

constexpr unsigned int kPorts = 4;
constexpr unsigned int kRounds = 200;

// All targets of a round carry its number, and there are as many as it says.
void FillRound(CHbaEntry& port, unsigned int round) {
  port.ClearTargets();
  for (unsigned int i = 0; i <= round % 8; ++i) {
    RM_NodeInfoEntry target = FcTarget(i);
    target.lun = round;
    port.AddTarget(&target);
  }
}

bool IsWhole(const CHbaEntry& port) {
  RM_NodeInfoEntry records[8];
  unsigned int count = 8;
  if (port.GetTargets(records, &count) != 0 || count == 0 || count != records[0].lun % 8 + 1) return false;
  for (unsigned int i = 0; i < count; ++i) {
    if (records[i].lun != records[0].lun) return false;
  }
  return true;
}

void Snapshot(CHbaList& from, CHbaList& to) EXCLUDES(from, to) {
  const CHbaListPairGuard guard(from, to);
  for (CHbaEntry* port = from.GetFirstEntry(); port != nullptr; port = from.GetNextEntry()) to.AddEntry(port);
}

bool AllWhole(CHbaList& list) EXCLUDES(list) {
  const CHbaListGuard guard(list);
  for (CHbaEntry* port = list.GetFirstEntry(); port != nullptr; port = list.GetNextEntry()) {
    if (!IsWhole(*port)) return false;
  }
  return true;
}

void AddRound(CHbaList& list, unsigned int round) EXCLUDES(list) {
  for (unsigned int number = 0; number < kPorts; ++number) {
    CHbaEntry port(Name(number).wwn);
    FillRound(port, round);
    const CHbaListGuard guard(list);
    list.AddEntry(&port);
  }
}

// One port's new targets, put into the listed entry as a worker does it.
void RefreshPort(CHbaList& list, unsigned int number, unsigned int round) EXCLUDES(list) {
  CHbaEntry fresh(Name(number).wwn);
  FillRound(fresh, round);
  const CHbaListGuard guard(list);
  list.FindEntry(Name(number).wwn)->TakeTargets(fresh);
}

TEST(ModelThreads, SnapshotsStayWholeWhileTheListChanges) {
  CHbaList current(ListRank::kCurrent);
  AddRound(current, 0);
  std::atomic<bool> done{false};
  std::atomic<unsigned int> broken{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < 2; ++i) {
    readers.emplace_back([&] {
      do {
        CHbaList snapshot;
        Snapshot(current, snapshot);
        if (!AllWhole(snapshot)) ++broken;
        // Changing the own copy reaches nobody else.
        const CHbaListGuard guard(snapshot);
        CHbaEntry* port = snapshot.GetFirstEntry();
        const RM_NodeInfoEntry extra = FcTarget(99);
        port->AddTarget(&extra);
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
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(broken, 0U);
  EXPECT_EQ(current.GetCount(), kPorts);
  TakeLogLines();
}

TEST(ModelThreads, WorkersFillOnePortTogether) {
  CHbaEntry port(Name(1).wwn);
  std::vector<std::thread> workers;
  for (unsigned int worker = 0; worker < 4; ++worker) {
    workers.emplace_back([&port, worker] {
      for (unsigned int i = 0; i < 50; ++i) {
        const unsigned int number = i * 4 + worker;
        const RM_NodeInfoEntry target = FcTarget(number);
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
  for (std::thread& worker : workers) worker.join();
  EXPECT_EQ(port.GetTargetCount(), 200U);
  EXPECT_EQ(port.GetVFCount(), 200U);
  EXPECT_EQ(port.GetVPortCount(), 200U);
}

}  // namespace

// The list of ports: order, lookups, the cursor that survives removals, equality, lock order.

#include <gtest/gtest.h>

#include <vector>

#include "discovery/HbaDiscoveryList.h"
#include "tests/model/Samples.h"

namespace {

using Numbers = std::vector<unsigned int>;

unsigned int NumberOf(const CHbaEntry* port) {
  if (port == nullptr) return 0;
  const unsigned char* wwn = port->GetHbaInfo()->portWwn;
  return wwn[6] * 256U + wwn[7];
}

int Add(CHbaList& list, unsigned int number) REQUIRES(list) {
  const CHbaEntry port(Name(number).wwn);
  return list.AddEntry(&port);
}

int Remove(CHbaList& list, unsigned int number) REQUIRES(list) {
  const CHbaEntry port(Name(number).wwn);
  return list.RemoveEntry(&port);
}

void Fill(CHbaList& list, const Numbers& numbers) EXCLUDES(list) {
  const CHbaListGuard guard(list);
  for (const unsigned int number : numbers) Add(list, number);
}

// From where the cursor stands.
Numbers Rest(CHbaList& list) REQUIRES(list) {
  Numbers numbers;
  for (CHbaEntry* port = list.GetNextEntry(); port != nullptr; port = list.GetNextEntry()) {
    numbers.push_back(NumberOf(port));
  }
  return numbers;
}

TEST(HbaList, OrdersByUnsignedNameAndKeepsTheFirst) {
  CHbaList list;
  const CHbaListGuard guard(list);
  EXPECT_EQ(list.GetNextEntry(), nullptr);
  EXPECT_EQ(list.AddEntry(nullptr), 0);
  EXPECT_EQ(list.IsModified(), 0);
  CHbaEntry port(Name(0x80).wwn);
  port.SetLinkStatus(1);
  EXPECT_EQ(list.AddEntry(&port), 1);
  EXPECT_EQ(Add(list, 0x100), 1);
  EXPECT_EQ(Add(list, 0x7F), 1);
  list.SetModified(0);
  EXPECT_EQ(Add(list, 0x80), 0);
  EXPECT_EQ(list.IsModified(), 1);  // also by a port that is present
  EXPECT_EQ(list.GetCount(), 3U);
  EXPECT_EQ(list.FindEntry(Name(0x80).wwn)->GetLinkStatus(), 1U);
  EXPECT_EQ(list.FindEntry(Name(0x81).wwn), nullptr);
  list.SelectFirstEntry();
  EXPECT_EQ(Rest(list), (Numbers{0x7F, 0x80, 0x100}));
}

TEST(HbaList, RemovalLeavesTheModifiedFlag) {
  CHbaList list;
  Fill(list, {1, 2});
  list.SetModified(0);
  const CHbaListGuard guard(list);
  EXPECT_EQ(Remove(list, 3), 0);
  EXPECT_EQ(Remove(list, 1), 1);
  list.GetFirstEntry();
  EXPECT_EQ(list.RemoveCurrentEntry(), 1);
  EXPECT_EQ(list.RemoveCurrentEntry(), 0);
  EXPECT_EQ(list.GetCount(), 0U);
  EXPECT_EQ(list.IsModified(), 0);
}

TEST(HbaList, WalkSurvivesRemovalOfTheEntryItReturned) {
  CHbaList list;
  Fill(list, {1, 2, 3, 4});
  const CHbaListGuard guard(list);
  Numbers seen;
  for (CHbaEntry* port = list.GetFirstEntry(); port != nullptr; port = list.GetNextEntry()) {
    seen.push_back(NumberOf(port));
    if (NumberOf(port) != 3) list.RemoveCurrentEntry();
  }
  EXPECT_EQ(seen, (Numbers{1, 2, 3, 4}));
  EXPECT_EQ(list.GetCount(), 1U);
}

TEST(HbaList, NoPositionIsLeftOnAnErasedEntry) {
  CHbaList list;
  Fill(list, {1, 2, 3, 4, 5, 6});
  const CHbaListGuard guard(list);
  list.SelectFirstEntry();
  EXPECT_EQ(list.RemoveCurrentEntry(), 1);  // 1: current and next stood on it
  EXPECT_EQ(NumberOf(list.GetNextEntry()), 2U);
  EXPECT_EQ(list.RemoveCurrentEntry(), 1);  // 2
  EXPECT_EQ(list.RemoveCurrentEntry(), 1);  // 3, where the current position went
  EXPECT_EQ(NumberOf(list.GetNextEntry()), 4U);
  Remove(list, 5);  // the next one
  EXPECT_EQ(NumberOf(list.GetNextEntry()), 6U);
  Remove(list, 6);  // the current one
  EXPECT_EQ(list.RemoveCurrentEntry(), 0);
  EXPECT_EQ(list.GetNextEntry(), nullptr);
  EXPECT_EQ(NumberOf(list.GetFirstEntry()), 4U);
}

TEST(HbaList, PositionsFollowTheirEntries) {
  CHbaList list;
  Fill(list, {10, 20, 30});
  const CHbaListGuard guard(list);
  list.GetFirstEntry();
  EXPECT_EQ(NumberOf(list.GetNextEntry()), 20U);
  CHbaEntry* listed = list.FindEntry(Name(20).wwn);
  Add(list, 5);
  Add(list, 6);
  Add(list, 25);  // between the current and the next position: not visited
  Remove(list, 10);
  EXPECT_EQ(list.FindEntry(Name(20).wwn), listed);
  EXPECT_EQ(list.RemoveCurrentEntry(), 1);
  EXPECT_EQ(list.FindEntry(Name(20).wwn), nullptr);
  EXPECT_EQ(Rest(list), (Numbers{30}));
  Add(list, 40);  // the walk is over
  EXPECT_EQ(list.GetNextEntry(), nullptr);
  list.SelectFirstEntry();
  EXPECT_EQ(Rest(list), (Numbers{5, 6, 25, 30, 40}));
}

TEST(HbaList, InterlockedWalkHandsOutEachPortOnce) {
  CHbaList list;
  Fill(list, {1, 2});
  list.LockList();
  list.SelectFirstEntry();
  list.UnlockList();
  EXPECT_EQ(NumberOf(list.InterlockedGetNextEntry()), 1U);
  EXPECT_EQ(NumberOf(list.InterlockedGetNextEntry()), 2U);
  EXPECT_EQ(list.InterlockedGetNextEntry(), nullptr);
}

TEST(HbaList, EqualityPairsByName) {
  CHbaList one;
  CHbaList two;
  Fill(one, {1, 2});
  Fill(two, {2, 1});
  {
    const CHbaListGuard guard(two);
    two.FindEntry(Name(1).wwn)->SetDiscoveryMark(9);
  }
  EXPECT_TRUE(one == &two);
  EXPECT_TRUE(one == &one);
  EXPECT_FALSE(one == nullptr);
  {
    const CHbaListGuard guard(two);
    two.FindEntry(Name(2).wwn)->SetLinkStatus(1);
  }
  EXPECT_FALSE(one == &two);
  CHbaList others;
  Fill(others, {1, 3});
  EXPECT_FALSE(one == &others);
  Fill(others, {2});
  EXPECT_FALSE(one == &others);
}

#ifndef NDEBUG
TEST(HbaListDeathTest, CurrentListIsLockedBeforeTheOthers) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  CHbaList current(ListRank::kCurrent);
  CHbaList gathered(ListRank::kGathered);
  EXPECT_TRUE(current == &gathered);
  EXPECT_EQ(current.MergeLists(&gathered, 1, 1), 0);
  Fill(current, {1});
  Fill(gathered, {1});
  EXPECT_DEATH(static_cast<void>(gathered == &current), "the current list is locked after");
}
#endif

}  // namespace

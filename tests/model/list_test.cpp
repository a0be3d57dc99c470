// The list of ports: order, lookups, the cursor that survives removals, equality, lock order.

#include <ctime>
#include <numeric>

#include "model/HbaList.h"
#include "tests/support/Ports.h"
#include "tests/support/Testing.h"

namespace {

using Numbers = std::vector<std::uint64_t>;

// The tests hold the list's lock throughout, as a walk does.
class HbaListWalk : public testing::Test {
 protected:
  void Fill(const Numbers& numbers) REQUIRES(m_List) {
    for (const std::uint64_t number : numbers) AddNumber(number);
    m_List.SetModified(0);
  }
  int AddNumber(std::uint64_t number) REQUIRES(m_List) {
    const CHbaEntry port(Name(number).wwn);
    return m_List.AddEntry(&port);
  }
  int RemoveNumber(std::uint64_t number) REQUIRES(m_List) {
    const CHbaEntry port(Name(number).wwn);
    return m_List.RemoveEntry(&port);
  }
  // The port's name, 0 at the end.
  std::uint64_t Next() REQUIRES(m_List) {
    const CHbaEntry* port = m_List.GetNextEntry();
    return port == nullptr ? 0 : NumberOf(*port);
  }
  // From where the cursor stands.
  Numbers Rest() REQUIRES(m_List) {
    Numbers numbers;
    while (const std::uint64_t number = Next()) numbers.push_back(number);
    return numbers;
  }

  CHbaList m_List;
};

TEST_F(HbaListWalk, OrdersByUnsignedNameAndKeepsTheFirst) {
  const HbaListGuard guard(m_List);
  EXPECT_EQ(m_List.GetNextEntry(), nullptr);
  EXPECT_EQ(m_List.AddEntry(nullptr), 0);
  EXPECT_EQ(m_List.IsModified(), 0);
  CHbaEntry port(Name(0x80).wwn);
  port.SetLinkStatus(1);
  EXPECT_EQ(m_List.AddEntry(&port), 1);
  EXPECT_EQ(AddNumber(0x100), 1);
  EXPECT_EQ(AddNumber(0x7F), 1);
  m_List.SetModified(0);
  EXPECT_EQ(AddNumber(0x80), 0);
  EXPECT_EQ(m_List.IsModified(), 1);  // also by a port that is present
  EXPECT_EQ(m_List.GetCount(), 3U);
  EXPECT_EQ(m_List.FindEntry(Name(0x80).wwn)->GetLinkStatus(), 1U);
  EXPECT_EQ(m_List.FindEntry(Name(0x81).wwn), nullptr);
  m_List.SelectFirstEntry();
  EXPECT_EQ(Rest(), (Numbers{0x7F, 0x80, 0x100}));
}

TEST_F(HbaListWalk, LeavesNoPositionOnAnErasedEntry) {
  const HbaListGuard guard(m_List);
  Fill({1, 2, 3, 4, 5, 6});
  m_List.SelectFirstEntry();
  EXPECT_EQ(m_List.RemoveCurrentEntry(), 1);  // 1: current and next stood on it
  EXPECT_EQ(Next(), 2U);
  EXPECT_EQ(m_List.RemoveCurrentEntry(), 1);  // 2
  EXPECT_EQ(m_List.RemoveCurrentEntry(), 1);  // 3, where the current position went
  EXPECT_EQ(Next(), 4U);
  RemoveNumber(5);  // the next one
  EXPECT_EQ(Next(), 6U);
  RemoveNumber(6);  // the current one
  EXPECT_EQ(m_List.RemoveCurrentEntry(), 0);
  EXPECT_EQ(m_List.GetNextEntry(), nullptr);
  EXPECT_EQ(NumberOf(*m_List.GetFirstEntry()), 4U);
  EXPECT_EQ(RemoveNumber(5), 0);
  EXPECT_EQ(RemoveNumber(4), 1);
  EXPECT_EQ(m_List.GetCount(), 0U);
  EXPECT_EQ(m_List.IsModified(), 0) << "a removal leaves the flag";
}

TEST_F(HbaListWalk, FollowsTheEntries) {
  const HbaListGuard guard(m_List);
  Fill({10, 20, 30});
  m_List.GetFirstEntry();
  EXPECT_EQ(Next(), 20U);
  const CHbaEntry* listed = m_List.FindEntry(Name(20).wwn);
  AddNumber(5);
  AddNumber(6);
  AddNumber(25);  // between the current and the next position: not visited
  RemoveNumber(10);
  EXPECT_EQ(m_List.FindEntry(Name(20).wwn), listed);
  EXPECT_EQ(m_List.RemoveCurrentEntry(), 1);
  EXPECT_EQ(m_List.FindEntry(Name(20).wwn), nullptr);
  EXPECT_EQ(Rest(), (Numbers{30}));
  AddNumber(40);  // the walk is over
  EXPECT_EQ(m_List.GetNextEntry(), nullptr);
  m_List.SelectFirstEntry();
  EXPECT_EQ(Rest(), (Numbers{5, 6, 25, 30, 40}));
}

#ifndef NDEBUG
TEST(HbaListDeathTest, CurrentListIsLockedBeforeTheOthers) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  CHbaList current(ListRank::kCurrent);
  CHbaList gathered(ListRank::kGathered);
  EXPECT_TRUE(current == &gathered);
  EXPECT_EQ(current.MergeLists(&gathered, 1, 1), 0);
  Add(current, CHbaEntry(Name(1).wwn));
  Add(gathered, CHbaEntry(Name(1).wwn));
  EXPECT_DEATH(static_cast<void>(gathered == &current), "the current list is locked after");
}
#endif

}  // namespace

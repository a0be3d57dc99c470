// The list of ports: order, lookups, the cursor that survives removals, equality, lock order.

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <numeric>
#include <vector>

#include "model/HbaList.h"
#include "tests/support/Ports.h"

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

TEST(HbaList, EqualityPairsByName) {
  const auto fill = [](CHbaList& list, const Numbers& numbers, unsigned int linkStatus, unsigned int mark) {
    for (const std::uint64_t number : numbers) {
      CHbaEntry port(Name(number).wwn);
      if (number == 2) port.SetLinkStatus(linkStatus);
      port.SetDiscoveryMark(mark);
      Add(list, port);
    }
  };
  CHbaList one;
  fill(one, {1, 2}, 2, 0);
  EXPECT_TRUE(one == &one);
  EXPECT_FALSE(one == nullptr);
  const struct {
    Numbers numbers;
    unsigned int linkStatus, mark;
    bool equal;
  } rows[] = {{{2, 1}, 2, 9, true}, {{1, 2}, 1, 0, false}, {{1, 3}, 2, 0, false}, {{1, 2, 3}, 2, 0, false}};
  for (const auto& row : rows) {
    CHbaList other;
    fill(other, row.numbers, row.linkStatus, row.mark);
    EXPECT_EQ(one == &other, row.equal) << &row - rows;
  }
}

template <typename Work>
double ProcessorSeconds(Work work) {
  const std::clock_t begin = std::clock();
  work();
  return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

// A host decides in which order its ports and targets come; a list that moves what it holds takes a hundred
// times as long for the worst one.
TEST(ModelCost, NoOrderCostsMuchMoreThanAnother) {
  constexpr double kLimit = 15;
  Numbers forwards(50'000);
  std::iota(forwards.begin(), forwards.end(), 1);
  const Numbers backwards(forwards.rbegin(), forwards.rend());

  CHbaList lists[2];
  const auto ports = [&](CHbaList& list, const Numbers& numbers, int (CHbaList::*change)(const CHbaEntry*)) {
    return ProcessorSeconds([&] {
      const HbaListGuard guard(list);
      for (const std::uint64_t number : numbers) {
        const CHbaEntry port(Name(number).wwn);
        (list.*change)(&port);
      }
    });
  };
  const auto targets = [](const Numbers& numbers) {
    return ProcessorSeconds([&] {
      CTargetList list;
      for (const std::uint64_t number : numbers) {
        const RM_NodeInfoEntry record = Node(number);
        const CTargetEntry target(&record);
        list.AddEntry(&target);
      }
      EXPECT_EQ(list.GetEntry(numbers.size() - 1).CompareKey(Name(numbers.size()).wwn), 0);
    });
  };
  const struct {
    const char* what;
    double forwards, backwards;
  } rows[] = {
      {"adding ports", ports(lists[0], forwards, &CHbaList::AddEntry),
       ports(lists[1], backwards, &CHbaList::AddEntry)},
      {"removing ports", ports(lists[0], forwards, &CHbaList::RemoveEntry),
       ports(lists[1], backwards, &CHbaList::RemoveEntry)},
      {"adding targets", targets(forwards), targets(backwards)},
  };
  for (const auto& row : rows) {
    const auto [least, most] = std::minmax(row.forwards, row.backwards);
    EXPECT_LT(most / least, kLimit) << row.what << ": " << least << " s, " << most << " s";
  }
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

// What a failed allocation leaves behind: what was there before, and nothing half done.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <new>
#include <numeric>
#include <vector>

#include "model/HbaList.h"
#include "model/Systems.h"
#include "model/Wwpns.h"
#include "tests/support/FailingNew.h"
#include "tests/support/Ports.h"
#include "tests/support/RecordedLog.h"

namespace {

// While it lives, the thread's next allocation but `after` throws std::bad_alloc.
class OutOfMemory {
 public:
  explicit OutOfMemory(int after) { FailingMemory::s_Left = after; }
  ~OutOfMemory() { FailingMemory::s_Left = FailingMemory::kNever; }
  OutOfMemory(const OutOfMemory&) = delete;
  OutOfMemory& operator=(const OutOfMemory&) = delete;
};

// Does `work` on what `make` gives until no allocation is left that could fail, and looks at what each failure
// has left behind.
template <typename Make, typename Work, typename Check>
void FailEachAllocation(Make make, Work work, Check check) {
  int failed = 0;
  for (bool done = false; !done && !testing::Test::HasFailure(); ++failed) {
    const auto subject = make();
    try {
      const OutOfMemory armed(failed);
      work(*subject);
      done = true;
    } catch (const std::bad_alloc&) {
      SCOPED_TRACE(failed);
      check(*subject);
    }
  }
  EXPECT_GT(failed, 1) << "nothing was allocated";
}

using Numbers = std::vector<std::uint64_t>;

CHbaEntry PortWithTargets(std::uint64_t number, const Numbers& targets) {
  CHbaEntry port = MakePort(Info(number));
  for (const std::uint64_t target : targets) {
    const RM_NodeInfoEntry record = Node(target);
    port.AddTarget(&record);
  }
  return port;
}

CTargetList Targets(const Numbers& numbers) {
  CTargetList list;
  for (const std::uint64_t number : numbers) {
    const RM_NodeInfoEntry record = Node(number);
    const CTargetEntry target(&record);
    list.AddEntry(&target);
  }
  return list;
}

TEST(FailedAllocation, LeavesTargetsAndTheirCursor) {
  struct Subject {
    explicit Subject(const Numbers& numbers, bool shared) : list(Targets(numbers)) {
      if (shared) copy = list;
      list.FindEntry(Name(2).wwn);
    }
    CTargetList list;
    CTargetList copy;
  };
  const RM_NodeInfoEntry record = Node(3);
  const CTargetEntry target(&record);
  const auto check = [](Subject& subject) {
    const CTargetEntry* next = subject.list.GetNextEntry();
    EXPECT_EQ(next, subject.list.FindEntry(Name(2).wwn));
    const CTargetList before = Targets({1, 2, 4});
    EXPECT_TRUE(subject.list == &before);
  };
  for (const bool shared : {false, true}) {
    for (const Numbers& numbers : {Numbers{1, 2, 4}, Numbers{4, 2, 1}}) {
      const auto make = [&] { return std::make_unique<Subject>(numbers, shared); };
      FailEachAllocation(
          make, [&](Subject& subject) { subject.list.AddEntry(&target); }, check);
    }
  }
  const auto make = [] { return std::make_unique<Subject>(Numbers{4, 2, 1}, false); };
  FailEachAllocation(
      make, [](Subject& subject) { subject.copy = subject.list; }, check);
  FailEachAllocation(
      make, [](Subject& subject) { subject.list.GetFirstEntry(); }, check);
}

TEST(FailedAllocation, LeavesPortsAndTheirWalk) {
  constexpr std::uint64_t kLast = 50;
  const auto make = [] {
    auto list = std::make_unique<CHbaList>();
    for (const std::uint64_t number : Numbers{1, kLast}) Add(*list, CHbaEntry(Name(number).wwn));
    const HbaListGuard guard(*list);
    list->GetFirstEntry();
    return list;
  };
  const auto work = [](CHbaList& list) {
    for (std::uint64_t number = 2; number < kLast; ++number) Add(list, PortWithTargets(number, {7, 6, 5}));
  };
  FailEachAllocation(make, work, [&](CHbaList& list) {
    {
      const HbaListGuard guard(list);
      EXPECT_EQ(NumberOf(*list.GetNextEntry()), kLast);
    }
    Numbers expected(list.GetCount());
    std::iota(expected.begin(), expected.end(), 1);
    expected.back() = kLast;
    EXPECT_EQ(Names(list), expected);
  });
}

TEST(FailedAllocation, MergeCanBeDoneAgainAndTellsOfItsChanges) {
  const RecordedLog log;
  struct Lists {
    Lists() {
      for (const std::uint64_t number : Numbers{1, 2, 4}) Add(current, PortWithTargets(number, {1, 2}));
      Add(found, PortWithTargets(1, {3, 2, 1}));
      for (const std::uint64_t number : Numbers{3, 4, 5}) Add(found, PortWithTargets(number, {1, 2}));
    }
    CHbaList current{ListRank::kCurrent};
    CHbaList found{ListRank::kGathered};
  };
  Lists whole;
  whole.current.MergeLists(&whole.found, 1, 1);
  ASSERT_EQ(Names(whole.current), (Numbers{1, 3, 4, 5}));
  FailEachAllocation([] { return std::make_unique<Lists>(); },
                     [](Lists& lists) { lists.current.MergeLists(&lists.found, 1, 1); },
                     [&](Lists& lists) {
                       EXPECT_EQ(lists.current.GetCount(), Names(lists.current).size());
                       EXPECT_EQ(lists.current.MergeLists(&lists.found, 1, 1), 1);
                       EXPECT_TRUE(lists.current == &whole.current);
                       EXPECT_EQ(lists.current.MergeLists(&lists.found, 1, 1), 0);
                     });
}

TEST(FailedAllocation, LeavesSystemsAndNames) {
  const auto system = [](const char* name, const Numbers& ports) {
    CSystemEntry entry(reinterpret_cast<const unsigned char*>(name));
    for (const std::uint64_t number : ports) {
      const CHbaEntry port = MakePort(Info(number));
      entry.AddHbaEntry(&port);
    }
    return entry;
  };
  const CSystemEntry before = system("before", {1});
  const CSystemEntry after = system("a name that does not fit into the string object", {2, 3});
  FailEachAllocation([&] { return std::make_unique<CSystemEntry>(before); },
                     [&](CSystemEntry& entry) { entry = after; },
                     [&](CSystemEntry& entry) { EXPECT_TRUE(entry == &before); });

  FailEachAllocation([] { return std::make_unique<CSystemList>(); },
                     [&](CSystemList& list) {
                       const ListGuard<CSystemList> guard(list);
                       list.AddEntry(&after);
                     },
                     [](CSystemList& list) { EXPECT_EQ(list.GetCount(), 0U); });

  FailEachAllocation([] { return std::make_unique<CDiscoWWPNList>(); },
                     [](CDiscoWWPNList& list) {
                       const DiscoWWPNListGuard guard(list);
                       list.AddEntry(Name(1).wwn, 0);
                     },
                     [](CDiscoWWPNList& list) {
                       const DiscoWWPNListGuard guard(list);
                       EXPECT_EQ(list.GetCount(), 0U);
                       EXPECT_EQ(list.IsListChanged(), 0);
                     });
}

}  // namespace

// Targets and names: order, equality, cursors, independence of copies.

#include "model/ISCSINames.h"
#include "model/Targets.h"
#include "tests/support/Ports.h"
#include "tests/support/Testing.h"

namespace {

using Numbers = std::vector<std::uint64_t>;

template <typename Record>
int Add(CTargetList& list, const Record& record) {
  const CTargetEntry entry(&record);
  return list.AddEntry(&entry);
}

CTargetList FCList(const Numbers& numbers) {
  CTargetList list;
  for (const std::uint64_t number : numbers) Add(list, Node(number));
  return list;
}

std::uint64_t NumberOf(const CTargetEntry* entry) {
  return entry == nullptr ? 0 : WwpnKey(entry->GetTargetEntry()->portWwn);
}

Numbers All(CTargetList& list) {
  Numbers numbers;
  for (const CTargetEntry* entry = list.GetFirstEntry(); entry != nullptr; entry = list.GetNextEntry()) {
    numbers.push_back(NumberOf(entry));
  }
  return numbers;
}

template <typename Record>
bool Same(const Record& one, const Record& two) {
  const CTargetEntry first(&one);
  const CTargetEntry second(&two);
  return first == &second;
}

TEST(TargetEntry, FCEqualityIgnoresAddressAndLunIdOnly) {
  RM_NodeInfoEntry base = Node(1);
  std::memset(base.osDeviceName, 'd', sizeof(base.osDeviceName));
  using Change = void (*)(RM_NodeInfoEntry&);
  const auto sameAfter = [&base](Change change) {
    RM_NodeInfoEntry changed = base;
    change(changed);
    return Same(base, changed);
  };
  EXPECT_TRUE(sameAfter([](RM_NodeInfoEntry& t) {
    t.fcAddressId = 7;
    t.lunId[0] = 7;
    t.padding1[0] = 7;
  }));
  const Change compared[] = {[](RM_NodeInfoEntry& t) { t.bindType = 7; },
                             [](RM_NodeInfoEntry& t) { t.nodeState = 7; },
                             [](RM_NodeInfoEntry& t) { t.portWwn[7] = 7; },
                             [](RM_NodeInfoEntry& t) { t.nodeWwn[0] = 7; },
                             [](RM_NodeInfoEntry& t) { t.fcpLun = 1ULL << 63; },
                             [](RM_NodeInfoEntry& t) { t.osDeviceName[0] = 7; },
                             [](RM_NodeInfoEntry& t) { t.bus = 7; },
                             [](RM_NodeInfoEntry& t) { t.target = 7; },
                             [](RM_NodeInfoEntry& t) { t.lun = 7; },
                             [](RM_NodeInfoEntry& t) { t.osDeviceName[255] = 7; }};
  for (const Change& change : compared) EXPECT_FALSE(sameAfter(change)) << &change - compared;

  base.osDeviceName[99] = '\0';
  EXPECT_TRUE(sameAfter([](RM_NodeInfoEntry& t) { t.osDeviceName[100] = 'x'; })) << "behind the NUL";
}

TEST(TargetEntry, ISCSIEqualityLooksAtSecondNameAndTwoBits) {
  const _RM_ISCSI_TARGET base = ISCSITarget("one", 0x40);
  _RM_ISCSI_TARGET other = ISCSITarget("two", 0x40 | 0x3F);
  other.flags[1] = 1;
  EXPECT_TRUE(Same(base, other));
  EXPECT_FALSE(Same(base, ISCSITarget("one", 0x80)));
  EXPECT_FALSE(Same(base, ISCSITarget("one", 0xC0)));
  other.secondName[255] = 'x';
  EXPECT_TRUE(Same(base, other));  // behind the NUL
  other.secondName[0] = 'x';
  EXPECT_FALSE(Same(base, other));

  const CTargetEntry iscsi(&base);
  const RM_NodeInfoEntry zero{};
  const CTargetEntry fc(&zero);
  EXPECT_FALSE(iscsi == &fc);
  EXPECT_FALSE(fc == &iscsi);
}

TEST(TargetList, OrdersISCSIFirstThenByUnsignedNameAndKeepsTheFirstOfAName) {
  CTargetList list = FCList({0x80, 0x100, 0x7F});
  RM_NodeInfoEntry otherLun = Node(0x80);
  otherLun.lun = 5;
  EXPECT_EQ(Add(list, otherLun), 0);
  EXPECT_EQ(list.FindEntry(Name(0x80).wwn)->GetTargetEntry()->lun, 0U);
  std::string longName(400, 'n');
  EXPECT_EQ(Add(list, ISCSITarget(longName)), 1);
  longName.back() = 'm';
  EXPECT_EQ(Add(list, ISCSITarget(longName)), 1) << "they differ late";
  EXPECT_EQ(Add(list, ISCSITarget("a")), 1);
  EXPECT_EQ(Add(list, ISCSITarget("a", 0x40)), 0);
  ASSERT_EQ(list.GetCount(), 6U);
  EXPECT_STREQ(list.GetFirstEntry()->GetISCSITarget()->targetName, "a");
  EXPECT_EQ(list.GetNextEntry()->GetISCSITarget()->secondName[399 - 256], 'm');
  EXPECT_TRUE(list.GetNextEntry()->IsISCSITarget());
  for (const unsigned int number : {0x7FU, 0x80U, 0x100U}) EXPECT_EQ(NumberOf(list.GetNextEntry()), number);
  EXPECT_EQ(list.GetNextEntry(), nullptr);
}

TEST(TargetList, CursorStaysAtTheLookupResult) {
  for (const Numbers& order : {Numbers{1, 2, 3}, Numbers{3, 1, 2}, Numbers{3, 2, 1}}) {
    CTargetList list = FCList(order);
    EXPECT_EQ(list.GetNextEntry(), nullptr);  // after a real add: the end

    Add(list, Node(2));  // present: the cursor is there
    const CTargetList copy = list;
    EXPECT_EQ(NumberOf(list.GetNextEntry()), 2U);
    EXPECT_EQ(NumberOf(list.GetNextEntry()), 3U);
    EXPECT_EQ(list.GetNextEntry(), nullptr);

    EXPECT_EQ(NumberOf(list.FindEntry(Name(1).wwn)), 1U);
    EXPECT_EQ(NumberOf(list.GetNextEntry()), 1U);
    EXPECT_EQ(list.FindEntry(Name(9).wwn), nullptr);
    EXPECT_EQ(list.GetNextEntry(), nullptr);

    Add(list, _RM_ISCSI_TARGET{});
    EXPECT_EQ(list.FindEntry(Name(0).wwn), nullptr) << "no iSCSI target has this name";
    EXPECT_NE(list.FindEntry(Name(1).wwn), nullptr);
  }
}

TEST(TargetList, CopiesAreIndependent) {
  CTargetList original = FCList({1, 3, 5, 4});
  CTargetList copy = original;
  const CTargetEntry* shared = copy.GetFirstEntry();
  EXPECT_EQ(original.GetFirstEntry(), shared);  // one storage

  Add(original, Node(2));
  EXPECT_EQ(All(original), (Numbers{1, 2, 3, 4, 5}));
  EXPECT_EQ(All(copy), (Numbers{1, 3, 4, 5}));
  EXPECT_EQ(copy.GetFirstEntry(), shared);

  Add(copy, Node(6));
  original.Clear();
  EXPECT_EQ(original.GetCount(), 0U);
  EXPECT_EQ(original.GetFirstEntry(), nullptr);
  EXPECT_EQ(All(copy), (Numbers{1, 3, 4, 5, 6}));
}

TEST(ISCSINames, KeepAtMost256BytesAndTheirOwnTexts) {
  CDiscISCSINames names;
  EXPECT_EQ(names.GetInitiatorName(), nullptr);
  names.SetNames(std::string(255, 'a').c_str(), std::string(256, 'b').c_str(), std::string(300, 'c').c_str());
  const CDiscISCSINames copy = names;
  names.SetNames(names.GetAlias(), names.GetInitiatorName(), nullptr);
  EXPECT_EQ(names.GetInitiatorName(), std::string(256, 'c'));
  EXPECT_EQ(names.GetDefaultName(), std::string(255, 'a'));
  EXPECT_EQ(names.GetAlias(), nullptr);
  EXPECT_EQ(copy.GetInitiatorName(), std::string(255, 'a'));
  EXPECT_EQ(copy.GetDefaultName(), std::string(256, 'b'));
  EXPECT_EQ(copy.GetAlias(), std::string(256, 'c'));
}

}  // namespace

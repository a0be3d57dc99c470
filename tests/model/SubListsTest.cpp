// Targets, virtual ports, virtual functions and names: order, equality, cursors, independence of copies.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "discovery/HbaDiscoveryListNames.h"
#include "discovery/HbaDiscoveryListTargets.h"
#include "discovery/HbaDiscoveryListVFs.h"
#include "discovery/HbaDiscoveryListVPorts.h"
#include "tests/model/Samples.h"

namespace {

template <typename Record>
int Add(CTargetList& list, const Record& record) {
  const CTargetEntry entry(&record);
  return list.AddEntry(&entry);
}

CTargetList FcList(const std::vector<unsigned int>& numbers) {
  CTargetList list;
  for (const unsigned int number : numbers) Add(list, FcTarget(number));
  return list;
}

std::vector<unsigned int> Numbers(CTargetList& list) {
  std::vector<unsigned int> numbers;
  for (const CTargetEntry* entry = list.GetFirstEntry(); entry != nullptr; entry = list.GetNextEntry()) {
    const unsigned char* wwn = entry->GetTargetEntry()->portWwn;
    numbers.push_back(wwn[6] * 256U + wwn[7]);
  }
  return numbers;
}

template <typename Record>
bool Same(const Record& one, const Record& two) {
  const CTargetEntry first(&one);
  const CTargetEntry second(&two);
  return first == &second;
}

TEST(TargetEntry, ISCSIRecordLeavesTheRestZero) {
  const _RM_ISCSI_TARGET record = ISCSITarget(std::string(511, 'n'), RM_ISCSI_CONNECTED);
  const CTargetEntry entry(&record);
  EXPECT_TRUE(entry.IsISCSITarget());
  unsigned char expected[568] = {};
  std::memcpy(expected, &record, sizeof(record));
  EXPECT_EQ(std::memcmp(entry.GetTargetEntry(), expected, sizeof(expected)), 0);
}

TEST(TargetEntry, FcEqualityIgnoresAddressAndLunIdOnly) {
  const RM_NodeInfoEntry base = FcTarget(1);
  RM_NodeInfoEntry other = base;
  other.fcAddressId = 7;
  other.lunId[0] = 7;
  other.padding1[0] = 7;
  EXPECT_TRUE(Same(base, other));

  const auto differsBy = [&base](auto change) {
    RM_NodeInfoEntry changed = base;
    change(changed);
    return !Same(base, changed);
  };
  EXPECT_TRUE(differsBy([](RM_NodeInfoEntry& t) { t.bindType = 7; }));
  EXPECT_TRUE(differsBy([](RM_NodeInfoEntry& t) { t.nodeState = 7; }));
  EXPECT_TRUE(differsBy([](RM_NodeInfoEntry& t) { t.portWwn[7] = 7; }));
  EXPECT_TRUE(differsBy([](RM_NodeInfoEntry& t) { t.nodeWwn[0] = 7; }));
  EXPECT_TRUE(differsBy([](RM_NodeInfoEntry& t) { t.fcpLun = 1ULL << 63; }));
  EXPECT_TRUE(differsBy([](RM_NodeInfoEntry& t) { t.osDeviceName[0] = 7; }));
  EXPECT_TRUE(differsBy([](RM_NodeInfoEntry& t) { t.bus = 7; }));
  EXPECT_TRUE(differsBy([](RM_NodeInfoEntry& t) { t.target = 7; }));
  EXPECT_TRUE(differsBy([](RM_NodeInfoEntry& t) { t.lun = 7; }));
}

TEST(TargetEntry, DeviceNameIsComparedWithinItsField) {
  RM_NodeInfoEntry full = FcTarget(1);
  std::memset(full.osDeviceName, 'd', sizeof(full.osDeviceName));
  RM_NodeInfoEntry last = full;
  last.osDeviceName[255] = 'e';
  EXPECT_TRUE(Same(full, full));
  EXPECT_FALSE(Same(full, last));

  RM_NodeInfoEntry behindEnd = FcTarget(1);
  behindEnd.osDeviceName[100] = 'x';  // behind the NUL
  EXPECT_TRUE(Same(FcTarget(1), behindEnd));
}

TEST(TargetEntry, ISCSIEqualityLooksAtSecondNameAndTwoBits) {
  _RM_ISCSI_TARGET base = ISCSITarget("one", 0x40);
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

TEST(TargetList, OrdersISCSIFirstThenByUnsignedName) {
  CTargetList list = FcList({0x80, 0x100, 0x7F});
  EXPECT_EQ(Add(list, ISCSITarget("b")), 1);
  EXPECT_EQ(Add(list, ISCSITarget("a")), 1);
  EXPECT_EQ(Add(list, ISCSITarget("a", 0x40)), 0);
  ASSERT_EQ(list.GetCount(), 5U);
  EXPECT_STREQ(list.GetFirstEntry()->GetISCSITarget()->targetName, "a");
  EXPECT_STREQ(list.GetNextEntry()->GetISCSITarget()->targetName, "b");
  for (const unsigned int number : {0x7FU, 0x80U, 0x100U}) {
    EXPECT_EQ(std::memcmp(list.GetNextEntry()->GetTargetEntry()->portWwn, Name(number).wwn, 8), 0);
  }
  EXPECT_EQ(list.GetNextEntry(), nullptr);
}

TEST(TargetList, LongNamesThatDifferLateAreTwoTargets) {
  CTargetList list;
  std::string name(400, 'n');
  EXPECT_EQ(Add(list, ISCSITarget(name)), 1);
  name.back() = 'm';
  EXPECT_EQ(Add(list, ISCSITarget(name)), 1);
}

TEST(TargetList, FirstLunOfAPortWins) {
  CTargetList list;
  RM_NodeInfoEntry target = FcTarget(1);
  EXPECT_EQ(Add(list, target), 1);
  target.lun = 5;
  EXPECT_EQ(Add(list, target), 0);
  ASSERT_EQ(list.GetCount(), 1U);
  EXPECT_EQ(list.GetFirstEntry()->GetTargetEntry()->lun, 0U);
}

TEST(TargetList, CursorStaysAtTheLookupResult) {
  CTargetList list = FcList({1, 2, 3});
  EXPECT_EQ(list.GetNextEntry(), nullptr);  // after a real add: the end

  Add(list, FcTarget(2));  // present: the cursor is there
  EXPECT_EQ(list.GetNextEntry()->GetTargetEntry()->portWwn[7], 2);
  EXPECT_EQ(list.GetNextEntry()->GetTargetEntry()->portWwn[7], 3);

  EXPECT_EQ(list.FindEntry(Name(1).wwn)->GetTargetEntry()->portWwn[7], 1);
  EXPECT_EQ(list.GetNextEntry()->GetTargetEntry()->portWwn[7], 1);
  EXPECT_EQ(list.FindEntry(Name(9).wwn), nullptr);
  EXPECT_EQ(list.GetNextEntry(), nullptr);
}

TEST(TargetList, FindSkipsISCSITargets) {
  CTargetList list;
  const _RM_ISCSI_TARGET iscsi{};
  Add(list, iscsi);
  const unsigned char zero[8] = {};
  EXPECT_EQ(list.FindEntry(zero), nullptr);
  Add(list, FcTarget(1));
  EXPECT_NE(list.FindEntry(Name(1).wwn), nullptr);
}

TEST(TargetList, EqualityPairsByKey) {
  const CTargetList one = FcList({1, 2, 3});
  const CTargetList two = FcList({3, 1, 2});
  const CTargetList fewer = FcList({1, 2});
  const CTargetList others = FcList({1, 2, 4});
  const CTargetList empty;
  EXPECT_TRUE(one == &two);
  EXPECT_FALSE(one == &fewer);
  EXPECT_FALSE(one == &others);
  EXPECT_FALSE(one == &empty);
  EXPECT_TRUE(empty == &empty);
  EXPECT_FALSE(one == nullptr);

  CTargetList firstName;
  CTargetList secondName;
  Add(firstName, ISCSITarget("a"));
  Add(secondName, ISCSITarget("b"));
  EXPECT_FALSE(firstName == &secondName);  // equal entries of different names are no pair
}

TEST(TargetList, EqualityMovesNoCursor) {
  CTargetList one = FcList({1, 2});
  CTargetList two = FcList({1, 2});
  two.GetFirstEntry();
  EXPECT_TRUE(one == &two);
  EXPECT_EQ(two.GetNextEntry()->GetTargetEntry()->portWwn[7], 2);
}

TEST(TargetList, CopiesAreIndependent) {
  CTargetList original = FcList({1, 3});
  CTargetList copy = original;
  const CTargetEntry* shared = copy.GetFirstEntry();
  EXPECT_EQ(original.GetFirstEntry(), shared);  // one storage

  Add(original, FcTarget(2));
  EXPECT_EQ(Numbers(original), (std::vector<unsigned int>{1, 2, 3}));
  EXPECT_EQ(Numbers(copy), (std::vector<unsigned int>{1, 3}));
  EXPECT_EQ(copy.GetFirstEntry(), shared);

  Add(copy, FcTarget(4));
  original.Clear();
  EXPECT_EQ(original.GetCount(), 0U);
  EXPECT_EQ(original.GetFirstEntry(), nullptr);
  EXPECT_EQ(Numbers(copy), (std::vector<unsigned int>{1, 3, 4}));
}

TEST(TargetList, AnEntryOfTheListItselfCanBeAddedAgain) {
  CTargetList list = FcList({1, 2});
  const CTargetEntry* own = list.GetFirstEntry();
  EXPECT_EQ(list.AddEntry(own), 0);
  CTargetList copy = list;
  list.Clear();
  EXPECT_EQ(list.AddEntry(own), 1);
  EXPECT_EQ(Numbers(list), (std::vector<unsigned int>{1}));
}

TEST(VPortEntry, TargetsFollowTheCountContract) {
  CVPortEntry vport(Name(1).wwn);
  for (const unsigned int number : {5U, 3U, 4U, 3U}) {
    const RM_NodeInfoEntry target = FcTarget(number);
    vport.AddTarget(&target);
  }
  ASSERT_EQ(vport.GetTargetCount(), 3U);
  RM_NodeInfoEntry records[4] = {};
  unsigned int count = 0;
  EXPECT_EQ(vport.GetTargets(nullptr, &count), 3U);
  EXPECT_EQ(count, 0U);
  count = 2;
  EXPECT_EQ(vport.GetTargets(records, &count), 1U);
  EXPECT_EQ(count, 2U);
  EXPECT_EQ(records[0].portWwn[7], 3);
  EXPECT_EQ(records[1].portWwn[7], 4);
  EXPECT_EQ(records[2].portWwn[7], 0);
  count = 4;
  EXPECT_EQ(vport.GetTargets(records, &count), 0U);
  EXPECT_EQ(count, 3U);
  EXPECT_EQ(vport.GetTargets(records, nullptr), 0U);
}

TEST(VPortEntry, EqualityAndCopyCoverRecordAndTargets) {
  const HBA_info_v2 info = VPortInfo(1);
  const RM_NodeInfoEntry target = FcTarget(1);
  CVPortEntry one(&info);
  one.AddTarget(&target);
  CVPortEntry two;
  two = one;
  EXPECT_TRUE(one == &two);
  two.ClearTargets();
  EXPECT_FALSE(one == &two);
  EXPECT_EQ(one.GetTargetCount(), 1U);
  two.AddTarget(&target);
  two.GetHbaInfo()->vpdPortNumber[7] = 'x';
  EXPECT_FALSE(one == &two);

  const CVPortEntry& self = one;
  one = self;
  EXPECT_EQ(one.GetTargetCount(), 1U);
}

TEST(VPortList, KeepsTheFirstOfAName) {
  CVPortList list;
  const HBA_info_v2 info = VPortInfo(2);
  const CVPortEntry first(&info);
  const CVPortEntry sameName(Name(2).wwn);
  const CVPortEntry before(Name(1).wwn);
  EXPECT_EQ(list.AddEntry(&first), 1);
  EXPECT_EQ(list.AddEntry(&sameName), 0);
  EXPECT_EQ(list.AddEntry(&before), 1);
  EXPECT_EQ(list.GetFirstEntry()->GetHbaInfo()->portWwn[7], 1);
  EXPECT_TRUE(*list.FindEntry(Name(2).wwn) == &first);
}

TEST(VFList, OrdersAddressesAsUnsignedBytes) {
  CVFList list;
  for (const unsigned int number : {0x80U, 0x100U, 0x7FU, 0x80U}) {
    const CVFEntry entry(Name(number));
    list.AddEntry(&entry);
  }
  ASSERT_EQ(list.GetCount(), 3U);
  EXPECT_EQ(list.GetFirstEntry()->GetAddress(), Name(0x7F));
  EXPECT_EQ(list.GetNextEntry()->GetAddress(), Name(0x80));
  EXPECT_EQ(list.GetNextEntry()->GetAddress(), Name(0x100));
  EXPECT_NE(list.FindEntry(Name(0x100)), nullptr);
  EXPECT_EQ(list.FindEntry(Name(0x101)), nullptr);
}

TEST(ISCSINames, KeepsAtMost256Bytes) {
  CDiscISCSINames names;
  EXPECT_EQ(names.GetInitiatorName(), nullptr);
  names.SetNames(std::string(255, 'a').c_str(), std::string(256, 'b').c_str(), std::string(300, 'c').c_str());
  EXPECT_EQ(names.GetInitiatorName(), std::string(255, 'a'));
  EXPECT_EQ(names.GetDefaultName(), std::string(256, 'b'));
  EXPECT_EQ(names.GetAlias(), std::string(256, 'c'));
}

TEST(ISCSINames, NullErasesAndOwnTextsAreKept) {
  CDiscISCSINames names;
  names.SetNames("initiator", "default", "alias");
  CDiscISCSINames copy = names;
  names.SetNames(names.GetAlias(), names.GetDefaultName(), nullptr);
  EXPECT_STREQ(names.GetInitiatorName(), "alias");
  EXPECT_STREQ(names.GetDefaultName(), "default");
  EXPECT_EQ(names.GetAlias(), nullptr);
  EXPECT_STREQ(copy.GetInitiatorName(), "initiator");
  EXPECT_STREQ(copy.GetAlias(), "alias");
}

}  // namespace

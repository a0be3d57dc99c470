// Systems with their ports, and the names that discovery has seen.

#include <gtest/gtest.h>

#include <memory>

#include "discovery/HbaDiscoveryList.h"
#include "discovery/HbaDiscoveryListSystems.h"
#include "discovery/HbaDiscoveryListWwpns.h"
#include "tests/model/Samples.h"

namespace {

const unsigned char* Text(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}

TEST(SystemEntry, HoldsAtMost256Ports) {
  CSystemEntry system(Text("host"));
  for (unsigned int i = 0; i < 257; ++i) {
    const CHbaEntry port(Name(1000 - i).wwn);
    system.AddHbaEntry(&port);
  }
  EXPECT_EQ(system.GetHbaCount(), 256U);
  EXPECT_EQ(system.GetHbaEntry(0)->GetHbaInfo()->portWwn[7], 1000 & 0xFF);
  EXPECT_EQ(system.GetHbaEntry(255)->GetHbaInfo()->portWwn[7], 745 & 0xFF);
  EXPECT_EQ(system.GetHbaEntry(256), nullptr);
}

TEST(SystemEntry, EqualityStopsAtByte172OfARecord) {
  HBA_info_v4 info = PortInfo(1);
  const auto system = [&info](int isLocal) {
    CSystemEntry entry(Text("host"));
    entry.SetLocalSystem(isLocal);
    const CHbaEntry port(&info, nullptr, 1, nullptr, 0, nullptr);
    entry.AddHbaEntry(&port);
    return entry;
  };
  const CSystemEntry base = system(0);
  const CSystemEntry local = system(1);
  EXPECT_FALSE(base == &local);
  info.serialNumber[0] = 'x';
  const CSystemEntry otherSerial = system(0);
  EXPECT_TRUE(base == &otherSerial);
  info.model[79] = 'x';
  const CSystemEntry otherModel = system(0);
  EXPECT_FALSE(base == &otherModel);
}

TEST(SystemEntry, NoNameCountsAsEmpty) {
  const CSystemEntry nameless;
  const CSystemEntry empty(Text(""));
  EXPECT_EQ(nameless.GetSystemName(), nullptr);
  EXPECT_TRUE(nameless == &empty);
  EXPECT_FALSE(nameless < empty);
  const CSystemEntry copy(nameless);
  EXPECT_STREQ(copy.GetSystemName(), "");
}

TEST(SystemList, OrdersFindsAndCompares) {
  CSystemList list;
  CSystemList other;
  for (CSystemList* each : {&list, &other}) {
    const CSystemListGuard guard(*each);
    for (const char* name : {"b", "\xE4", "a", "b"}) {
      const CSystemEntry system(Text(name));
      each->AddEntry(&system);
    }
  }
  EXPECT_TRUE(list == &other);
  EXPECT_TRUE(list == &list);
  EXPECT_FALSE(list == nullptr);
  {
    const CSystemListGuard guard(list);
    EXPECT_EQ(list.GetCount(), 3U);
    EXPECT_STREQ(list.GetFirstEntry()->GetSystemName(), "a");
    const CSystemEntry next(Text("b"));
    EXPECT_EQ(list.RemoveEntry(&next), 1);
    EXPECT_EQ(list.RemoveEntry(&next), 0);
    EXPECT_STREQ(list.GetNextEntry()->GetSystemName(), "\xE4");
    EXPECT_EQ(list.GetNextEntry(), nullptr);
    EXPECT_EQ(list.FindEntry(Text("b")), nullptr);
    const CSystemEntry another(Text("c"));
    list.AddEntry(&another);
  }
  EXPECT_FALSE(list == &other);
}

TEST(SystemList, IsAlwaysBuiltEmpty) {
  CHbaList ports;
  const CHbaEntry port(Name(1).wwn);
  ports.LockList();
  ports.AddEntry(&port);
  ports.UnlockList();
  CSystemList list;
  const CSystemListGuard guard(list);
  const CSystemEntry system(Text("host"));
  list.AddEntry(&system);
  list.CreateSystemListFromHbaList(&ports);
  EXPECT_EQ(list.GetCount(), 0U);
  EXPECT_EQ(list.GetFirstEntry(), nullptr);
  list.AddHbaEntryToSystemList(&port);
  EXPECT_EQ(list.GetCount(), 0U);
}

TEST(WwpnList, OnlyRealChangesSetTheFlag) {
  CDiscoWWPNList list;
  const CDiscoWWPNListGuard guard(list);
  EXPECT_EQ(list.IsListChanged(), 0);
  EXPECT_EQ(list.AddEntry(Name(2).wwn, 0), 1);
  EXPECT_EQ(list.IsListChanged(), 1);
  list.SetListChanged(0);
  EXPECT_EQ(list.AddEntry(Name(2).wwn, 0), 0);
  const CDiscoWWPNEntry unknown(Name(3).wwn);
  EXPECT_EQ(list.RemoveEntry(&unknown), 0);
  list.ResetCycleDiscoveredPorts();
  EXPECT_EQ(list.IsListChanged(), 0);
  const CDiscoWWPNEntry known(Name(2).wwn);
  EXPECT_EQ(list.RemoveEntry(&known), 1);
  EXPECT_EQ(list.IsListChanged(), 1);
}

TEST(WwpnList, ResetTouchesTheCycleFlagsOnly) {
  CDiscoWWPNList list;
  const CDiscoWWPNListGuard guard(list);
  for (const unsigned int number : {3U, 1U, 2U}) list.AddEntry(Name(number).wwn, 0);
  list.ResetCycleDiscoveredPorts();
  unsigned int number = 0;
  for (CDiscoWWPNEntry* entry = list.GetFirstEntry(); entry != nullptr; entry = list.GetNextEntry()) {
    EXPECT_EQ(entry->GetWWPN()[7], ++number);
    EXPECT_EQ(entry->IsDiscovered(), 1);
    EXPECT_EQ(entry->IsDiscoveredDuringCyle(), 0);
  }
  EXPECT_EQ(number, 3U);

  EXPECT_EQ(list.AddEntry(Name(2).wwn, 0), 0);  // leaves the cursor there
  EXPECT_EQ(list.GetNextEntry()->GetWWPN()[7], 2);
  EXPECT_EQ(list.FindEntry(Name(1).wwn)->IsDiscoveredDuringCyle(), 0);
  EXPECT_EQ(list.GetNextEntry()->GetWWPN()[7], 3);  // a lookup leaves the cursor alone
}

}  // namespace

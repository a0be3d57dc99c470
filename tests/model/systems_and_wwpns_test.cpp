// Systems with their ports, and the names that discovery has seen.

#include <gtest/gtest.h>

#include "model/Systems.h"
#include "model/Wwpns.h"
#include "tests/support/Ports.h"

namespace {

CSystemEntry System(const char* name) {
  return CSystemEntry(reinterpret_cast<const unsigned char*>(name));
}

TEST(SystemEntry, HoldsAtMost256PortsAndComparesThemUpToByte172) {
  HBA_info_v4 info = Info(1000);
  const auto full = [&info](int isLocal) {
    CSystemEntry entry = System("host");
    entry.SetLocalSystem(isLocal);
    for (unsigned int i = 0; i < 257; ++i) {
      CHbaEntry port = MakePort(info);
      port.GetHbaInfo()->portWwn[0] = static_cast<unsigned char>(i);
      entry.AddHbaEntry(&port);
    }
    return entry;
  };
  CSystemEntry base = full(0);
  EXPECT_EQ(base.GetHbaCount(), 256U);
  EXPECT_EQ(base.GetHbaEntry(255)->GetHbaInfo()->portWwn[0], 255) << "in the order of their coming";
  EXPECT_EQ(base.GetHbaEntry(256), nullptr);
  const CSystemEntry local = full(1);
  EXPECT_FALSE(base == &local);
  info.serialNumber[0] = 'x';
  const CSystemEntry otherSerial = full(0);
  EXPECT_TRUE(base == &otherSerial);
  info.model[79] = 'x';
  const CSystemEntry otherModel = full(0);
  EXPECT_FALSE(base == &otherModel);
}

TEST(SystemList, OrdersFindsAndCompares) {
  CSystemList list;
  CSystemList other;
  for (CSystemList* each : {&list, &other}) {
    const SystemListGuard guard(*each);
    for (const char* name : {"b", "\xE4", "a", "b", ""}) {
      const CSystemEntry system = System(name);
      each->AddEntry(&system);
    }
  }
  EXPECT_TRUE(list == &other);
  const SystemListGuard guard(list);
  EXPECT_EQ(list.GetCount(), 4U);
  EXPECT_STREQ(list.GetFirstEntry()->GetSystemName(), "");
  const CSystemEntry nameless;
  EXPECT_EQ(list.RemoveEntry(&nameless), 1) << "no name counts as empty";
  EXPECT_STREQ(list.GetNextEntry()->GetSystemName(), "a");
  const CSystemEntry next = System("b");
  EXPECT_EQ(list.RemoveEntry(&next), 1);
  EXPECT_EQ(list.RemoveEntry(&next), 0);
  EXPECT_STREQ(list.GetNextEntry()->GetSystemName(), "\xE4");
  EXPECT_EQ(list.GetNextEntry(), nullptr);
  EXPECT_EQ(list.FindEntry(reinterpret_cast<const unsigned char*>("b")), nullptr);
}

TEST(WwpnList, OnlyRealChangesSetTheFlagAndResetTouchesTheCycleFlags) {
  CDiscoWWPNList list;
  const DiscoWWPNListGuard guard(list);
  EXPECT_EQ(list.IsListChanged(), 0);
  for (const unsigned int number : {3U, 1U, 2U}) EXPECT_EQ(list.AddEntry(Name(number).wwn, 0), 1);
  EXPECT_EQ(list.IsListChanged(), 1);
  list.SetListChanged(0);
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
  const CDiscoWWPNEntry unknown(Name(4).wwn);
  EXPECT_EQ(list.RemoveEntry(&unknown), 0);
  EXPECT_EQ(list.IsListChanged(), 0);
  const CDiscoWWPNEntry known(Name(2).wwn);
  EXPECT_EQ(list.RemoveEntry(&known), 1);
  EXPECT_EQ(list.IsListChanged(), 1);
}

}  // namespace

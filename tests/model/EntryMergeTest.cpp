// What counts as a change of a port: equality, and the merge into a listed entry.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "discovery/HbaDiscoveryListEntry.h"
#include "tests/model/Samples.h"

namespace {

CHbaEntry Port(unsigned int linkStatus = 1) {
  const HBA_info_v4 info = PortInfo(1, "host");
  CHbaEntry port(&info, nullptr, 1, nullptr, 0, nullptr);
  port.SetLinkStatus(linkStatus);
  const RM_NodeInfoEntry target = FcTarget(1);
  port.AddTarget(&target);
  return port;
}

template <typename Change>
CHbaEntry PortWith(Change change) {
  CHbaEntry port = Port();
  change(port);
  return port;
}

void SetProxy(CHbaEntry& port, unsigned char type, unsigned char host) {
  const unsigned char proxy[8] = {type, 0, 0, 0, 10, 0, 0, host};
  port.SetProxyAddress(proxy);
}

// A merge of what `change` makes of the port: reported once, then the same.
template <typename Change>
void ExpectMerged(Change change) {
  CHbaEntry listed = Port();
  const CHbaEntry newer = PortWith(change);
  EXPECT_EQ(listed.MergeHbaEntry(&newer), 1);
  EXPECT_EQ(listed.MergeHbaEntry(&newer), 0);
}

TEST(HbaEntryEquality, SeesWhatTheApplicationSees) {
  const CHbaEntry base = Port();
  const auto equals = [&base](auto change) {
    const CHbaEntry other = PortWith(change);
    return base == &other;
  };
  EXPECT_TRUE(equals([](CHbaEntry&) {}));
  EXPECT_FALSE(equals([](CHbaEntry& p) { p.GetHbaInfo()->padding[1] = 1; }));
  EXPECT_FALSE(equals([](CHbaEntry& p) { SetProxy(p, 0, 1); }));
  EXPECT_FALSE(equals([](CHbaEntry& p) { p.SetProxyOnlyAccess(1); }));
  EXPECT_FALSE(equals([](CHbaEntry& p) { p.ClearTargets(); }));
  EXPECT_FALSE(equals([](CHbaEntry& p) {
    const CVPortEntry vport(Name(5).wwn);
    p.AddVPort(&vport);
  }));
  EXPECT_FALSE(equals([](CHbaEntry& p) { p.SetLinkStatus(2); }));
  EXPECT_FALSE(equals([](CHbaEntry& p) { p.AddVF(Name(5)); }));
  EXPECT_FALSE(equals([](CHbaEntry& p) {
    const _RM_IP_INFO zero{};
    p.SetProxyIpInfo(&zero);
  }));
  EXPECT_TRUE(equals([](CHbaEntry& p) {
    p.SetHbaInfoValid();
    p.SetDiscoveryMark(1);
    p.SetMergeMark(1);
    p.SetSpecialFeatures(8);
    p.SetTargetBindType(1);
    p.SetOldTargetCount(1);
    p.ResetTargetMapRetries();
    p.GetISCSINames()->SetNames("a", "b", "c");
    const unsigned char typeOnly[8] = {0xFF};
    p.SetProxyAddress(typeOnly);
  }));
  EXPECT_FALSE(base == nullptr);
}

TEST(HbaEntryMerge, TakesEachKindOfChangeOnce) {
  CHbaEntry same = Port();
  const CHbaEntry newer = Port();
  EXPECT_EQ(same.MergeHbaEntry(&newer), 0);
  ExpectMerged([](CHbaEntry& p) { p.SetLinkStatus(2); });
  ExpectMerged([](CHbaEntry& p) { p.GetHbaInfo()->busNumber = 3; });
  ExpectMerged([](CHbaEntry& p) { SetProxy(p, 0xFF, 1); });
  ExpectMerged([](CHbaEntry& p) { p.SetTargetBindType(1); });
  ExpectMerged([](CHbaEntry& p) { p.ClearTargets(); });
  ExpectMerged([](CHbaEntry& p) { p.AddVF(Name(1)); });
  ExpectMerged([](CHbaEntry& p) {
    CVPortEntry vport(Name(5).wwn);
    const RM_NodeInfoEntry target = FcTarget(1);
    vport.AddTarget(&target);
    p.AddVPort(&vport);
  });
  ExpectMerged([](CHbaEntry& p) {
    const _RM_IP_INFO ip{{10, 0, 0, 1}, 0, 0, 0};
    p.SetProxyIpInfo(&ip);
  });
}

TEST(HbaEntryMerge, NewOverTemperatureStopsTheMerge) {
  CHbaEntry listed = Port();
  CHbaEntry newer = Port(kLinkOverTemperature);
  newer.ClearTargets();
  newer.GetHbaInfo()->busNumber = 3;
  EXPECT_EQ(listed.MergeHbaEntry(&newer), 1);
  EXPECT_EQ(listed.GetLinkStatus(), kLinkOverTemperature);
  EXPECT_EQ(listed.GetTargetCount(), 1U);
  EXPECT_EQ(listed.GetHbaInfo()->busNumber, 0);

  // Still too hot in the next cycle: no longer a reason to stop, nor a change of its own.
  EXPECT_EQ(listed.MergeHbaEntry(&newer), 1);
  EXPECT_EQ(listed.GetTargetCount(), 0U);
  EXPECT_EQ(listed.MergeHbaEntry(&newer), 0);
}

TEST(HbaEntryMerge, KnownProxyIsNeverErased) {
  CHbaEntry listed = PortWith([](CHbaEntry& p) { SetProxy(p, 0xFF, 1); });
  const CHbaEntry without = Port();
  EXPECT_EQ(listed.MergeHbaEntry(&without), 0);
  EXPECT_EQ(listed.GetProxyAddress()[7], 1);
  const CHbaEntry otherType = PortWith([](CHbaEntry& p) { SetProxy(p, 0xFE, 1); });
  EXPECT_EQ(listed.MergeHbaEntry(&otherType), 0);
  EXPECT_EQ(listed.GetProxyAddress()[0], 0xFF);
  const CHbaEntry otherHost = PortWith([](CHbaEntry& p) { SetProxy(p, 0xFE, 2); });
  EXPECT_EQ(listed.MergeHbaEntry(&otherHost), 1);
  EXPECT_EQ(listed.GetProxyAddress()[0], 0xFE);
}

TEST(HbaEntryMerge, LostIpInfoKeepsItsBytes) {
  const _RM_IP_INFO ip{{10, 0, 0, 1}, 0, 0, 0};
  CHbaEntry listed = PortWith([&ip](CHbaEntry& p) { p.SetProxyIpInfo(&ip); });
  const CHbaEntry newer = Port();
  EXPECT_EQ(listed.MergeHbaEntry(&newer), 1);
  EXPECT_EQ(listed.GetProxyIpInfo(), nullptr);
  EXPECT_EQ(listed.MergeHbaEntry(&newer), 0);
  EXPECT_FALSE(listed == &newer);  // the bytes are compared also when they are not valid
}

TEST(HbaEntryMerge, ProxyOnlyIsClearedButNeverSet) {
  CHbaEntry listed = PortWith([](CHbaEntry& p) { p.SetProxyOnlyAccess(1); });
  const CHbaEntry direct = Port();
  EXPECT_EQ(listed.MergeHbaEntry(&direct), 1);
  EXPECT_EQ(listed.ProxyOnly(), 0);
  const CHbaEntry proxyOnly = PortWith([](CHbaEntry& p) { p.SetProxyOnlyAccess(1); });
  EXPECT_EQ(listed.MergeHbaEntry(&proxyOnly), 0);
  EXPECT_EQ(listed.ProxyOnly(), 0);
}

TEST(HbaEntryMerge, NamesNeedAnISCSIPortAndBothNewNames) {
  const auto named = [](const char* initiator, const char* fallback, const char* alias) {
    return PortWith([=](CHbaEntry& p) { p.GetISCSINames()->SetNames(initiator, fallback, alias); });
  };
  CHbaEntry listed = named("i", "own", nullptr);
  const CHbaEntry full = named("i2", "d2", "a2");
  EXPECT_EQ(listed.MergeHbaEntry(&full), 0);  // not an iSCSI port

  listed.ClearTargets();
  CHbaEntry iscsiNewer = full;
  iscsiNewer.ClearTargets();
  listed.SetSpecialFeatures(RM_FEATURE_ISCSI);
  EXPECT_EQ(listed.MergeHbaEntry(&iscsiNewer), 1);  // the newer's own features do not matter
  EXPECT_STREQ(listed.GetISCSINames()->GetInitiatorName(), "i2");
  EXPECT_STREQ(listed.GetISCSINames()->GetDefaultName(), "own");
  EXPECT_STREQ(listed.GetISCSINames()->GetAlias(), "a2");
  EXPECT_EQ(listed.MergeHbaEntry(&iscsiNewer), 0);  // the default name alone is no change

  iscsiNewer.GetISCSINames()->SetNames("i3", "d3", nullptr);
  EXPECT_EQ(listed.MergeHbaEntry(&iscsiNewer), 0);
  iscsiNewer.GetISCSINames()->SetNames(nullptr, "d3", "a3");
  EXPECT_EQ(listed.MergeHbaEntry(&iscsiNewer), 0);
  iscsiNewer.GetISCSINames()->SetNames("i2", nullptr, "a3");
  EXPECT_EQ(listed.MergeHbaEntry(&iscsiNewer), 1);
  EXPECT_STREQ(listed.GetISCSINames()->GetAlias(), "a3");
}

TEST(HbaEntryMerge, TargetsBecomeOfTheListedPortsKind) {
  CHbaEntry listed(Name(1).wwn);
  listed.SetSpecialFeatures(RM_FEATURE_ISCSI);
  CHbaEntry newer(Name(1).wwn);
  const RM_NodeInfoEntry target = FcTarget(1);
  newer.AddTarget(&target);
  EXPECT_EQ(listed.MergeHbaEntry(&newer), 1);
  EXPECT_TRUE(listed.GetTargetList().GetEntry(0).IsISCSITarget());
  EXPECT_EQ(listed.MergeHbaEntry(&newer), 1);  // the kinds go on differing
  EXPECT_EQ(listed.GetTargetCount(), 1U);
}

TEST(HbaEntryMerge, LeavesWhatBelongsToTheListedPort) {
  CHbaEntry listed = Port();
  CHbaEntry newer(Port().GetHbaInfo(), nullptr, 0, nullptr, 0, nullptr);
  newer.SetLinkStatus(1);
  newer.TakeTargets(listed);
  newer.SetHbaInfoValid();
  newer.SetSpecialFeatures(RM_FEATURE_NIC);
  newer.SetDiscoveryMark(4);
  newer.SetMergeMark(4);
  newer.SetOldTargetCount(4);
  newer.ResetTargetMapRetries();
  EXPECT_EQ(listed.MergeHbaEntry(&newer), 0);
  EXPECT_EQ(listed.IsLocalPort(), 1);
  EXPECT_EQ(listed.IsHbaInfoValid(), 0);
  EXPECT_EQ(listed.GetSpecialFeatures(), 0U);
  EXPECT_EQ(listed.GetDiscoveryMark(), 0U);
  EXPECT_EQ(listed.GetMergeMark(), 0U);
  EXPECT_EQ(listed.GetOldTargetCount(), 0U);
  EXPECT_EQ(listed.GetTargetMapRetries(), 3U);
}

}  // namespace

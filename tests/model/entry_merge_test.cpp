// What counts as a change of a port: equality, and the merge into a listed entry.

#include "model/HbaEntry.h"
#include "tests/support/Ports.h"
#include "tests/support/Testing.h"

namespace {

using Change = void (*)(CHbaEntry&);

CHbaEntry PortWith(Change change) {
  CHbaEntry port = MakePort(Info(1));
  port.SetLinkStatus(1);
  const RM_NodeInfoEntry target = Node(1);
  port.AddTarget(&target);
  CVPortEntry vport(Name(5).wwn);
  vport.AddTarget(&target);
  port.AddVPort(&vport);
  change(port);
  return port;
}

CHbaEntry Port() {
  return PortWith([](CHbaEntry&) {});
}

void SetProxy(CHbaEntry& port, unsigned char type, unsigned char host) {
  const unsigned char proxy[8] = {type, 0, 0, 0, 10, 0, 0, host};
  port.SetProxyAddress(proxy);
}

void SetIpInfo(CHbaEntry& port) {
  const _RM_IP_INFO ip{{10, 0, 0, 1}, 0, 0, 0};
  port.SetProxyIpInfo(&ip);
}

int Merge(CHbaEntry& listed, const CHbaEntry& newer) {
  return listed.MergeHbaEntry(&newer);
}

// What an application sees of a port; each of them makes two ports differ, and is merged once.
constexpr Change kSeen[] = {
    [](CHbaEntry& p) { p.SetLinkStatus(2); },
    [](CHbaEntry& p) { p.GetHbaInfo()->padding[1] = 1; },
    [](CHbaEntry& p) { SetProxy(p, 0xFF, 1); },
    [](CHbaEntry& p) { p.ClearTargets(); },
    [](CHbaEntry& p) { p.AddVF(Name(5)); },
    [](CHbaEntry& p) { p.ClearVPorts(); },
    [](CHbaEntry& p) {
      const CVPortEntry withoutTargets(Name(5).wwn);
      p.ClearVPorts();
      p.AddVPort(&withoutTargets);
    },
    [](CHbaEntry& p) {
      CVPortEntry other = p.GetVPortList().GetEntry(0);
      other.GetHbaInfo()->vpdPortNumber[7] = 'x';
      p.ClearVPorts();
      p.AddVPort(&other);
    },
    SetIpInfo,
};

// What belongs to the listed port, and is neither compared nor merged.
void ChangeOwnThings(CHbaEntry& port) {
  port.SetHbaInfoValid();
  port.SetSpecialFeatures(RM_FEATURE_NIC);
  port.SetDiscoveryMark(4);
  port.SetMergeMark(4);
  port.SetOldTargetCount(4);
  port.ResetTargetMapRetries();
}

TEST(HbaEntryEquality, SeesWhatTheApplicationSees) {
  const CHbaEntry base = Port();
  const auto equals = [&base](Change change) {
    const CHbaEntry other = PortWith(change);
    return base == &other;
  };
  for (const Change& change : kSeen) EXPECT_FALSE(equals(change)) << &change - kSeen;
  EXPECT_FALSE(equals([](CHbaEntry& p) { p.SetProxyOnlyAccess(1); }));
  EXPECT_FALSE(equals([](CHbaEntry& p) {
    const _RM_IP_INFO zero{};
    p.SetProxyIpInfo(&zero);
  })) << "that there is one";
  EXPECT_FALSE(base == nullptr);

  EXPECT_TRUE(equals([](CHbaEntry&) {}));
  EXPECT_TRUE(equals(ChangeOwnThings));
  EXPECT_TRUE(equals([](CHbaEntry& p) {
    p.SetTargetBindType(1);
    p.GetISCSINames()->SetNames("a", "b", "c");
    const unsigned char typeOnly[8] = {0xFF};
    p.SetProxyAddress(typeOnly);
  }));
}

TEST(HbaEntryMerge, TakesEachKindOfChangeOnce) {
  const auto expectMerged = [](Change change) {
    CHbaEntry listed = Port();
    const CHbaEntry newer = PortWith(change);
    EXPECT_EQ(Merge(listed, newer), 1);
    EXPECT_TRUE(listed == &newer);
    EXPECT_EQ(listed.GetTargetBindType(), newer.GetTargetBindType());
    EXPECT_EQ(Merge(listed, newer), 0);
  };
  for (const Change& change : kSeen) {
    SCOPED_TRACE(&change - kSeen);
    expectMerged(change);
  }
  expectMerged([](CHbaEntry& p) { p.SetTargetBindType(1); });
}

TEST(HbaEntryMerge, LeavesWhatBelongsToTheListedPort) {
  const auto ownThings = [](CHbaEntry port) {
    return std::tuple(port.IsLocalPort(), port.IsHbaInfoValid(), port.GetSpecialFeatures(),
                      port.GetDiscoveryMark(), port.GetMergeMark(), port.GetOldTargetCount(),
                      port.GetTargetMapRetries());
  };
  CHbaEntry listed = Port();
  const auto before = ownThings(listed);
  CHbaEntry newer = MakePort(Info(1), 0);
  newer.SetLinkStatus(1);
  newer.TakeTargets(listed);
  newer.TakeVPorts(listed);
  ChangeOwnThings(newer);
  EXPECT_EQ(Merge(listed, newer), 0);
  EXPECT_EQ(ownThings(listed), before);
}

// Each part below a port that was not read keeps what is listed, and one that was read and is empty does not.
TEST(HbaEntryMerge, WhatWasNotReadIsNotNews) {
  const Change fill = [](CHbaEntry& p) {
    p.SetTargetBindType(3);
    p.AddVF(Name(6));
  };
  using Parts = std::tuple<unsigned int, unsigned int, unsigned int, unsigned int>;
  const struct {
    Change read;
    Parts kept;  // bind type, targets, virtual ports, functions
  } rows[] = {{[](CHbaEntry&) {}, {3, 1, 1, 1}},
              {[](CHbaEntry& p) { p.SetTargetsRead(true); }, {0x1002, 0, 1, 1}},
              {[](CHbaEntry& p) { p.SetVPortsRead(true); }, {3, 1, 0, 1}},
              {[](CHbaEntry& p) { p.SetVFsRead(true); }, {3, 1, 1, 0}},
              {[](CHbaEntry& p) { p.ClearBelow(); }, {0x1002, 0, 0, 0}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    const auto below = [](const CHbaEntry& port) {
      return Parts(port.GetTargetBindType(), port.GetTargetCount(), port.GetVPortCount(), port.GetVFCount());
    };
    CHbaEntry newer = MakePort(Info(1));
    newer.SetLinkStatus(1);
    newer.SetNothingRead();
    row.read(newer);
    const CHbaEntry copy = newer;
    CHbaEntry merged = PortWith(fill);
    CHbaEntry taken = merged;
    EXPECT_EQ(Merge(merged, copy), row.kept == Parts(3, 1, 1, 1) ? 0 : 1);
    EXPECT_EQ(below(merged), row.kept);
    EXPECT_EQ(merged.AreTargetsRead(), std::get<1>(row.kept) == 0) << "it is looked at again";
    EXPECT_EQ(merged.GetOldTargetCount(), std::get<1>(row.kept)) << "and compared with what is listed then";
    taken.TakeTargets(copy);
    taken.TakeVPorts(copy);
    taken.TakeVFs(copy);
    EXPECT_EQ(below(taken), row.kept);
    EXPECT_EQ(taken.AreTargetsRead(), merged.AreTargetsRead());
  }
}

TEST(HbaEntryMerge, NewOverTemperatureStopsTheMerge) {
  CHbaEntry listed = Port();
  const CHbaEntry newer = PortWith([](CHbaEntry& p) {
    p.SetLinkStatus(kLinkOverTemperature);
    p.ClearTargets();
    p.GetHbaInfo()->busNumber = 3;
  });
  EXPECT_EQ(Merge(listed, newer), 1);
  EXPECT_EQ(listed.GetLinkStatus(), kLinkOverTemperature);
  EXPECT_EQ(listed.GetTargetCount(), 1U);
  EXPECT_EQ(listed.GetHbaInfo()->busNumber, 0);

  // Still too hot in the next cycle: no longer a reason to stop, nor a change of its own.
  EXPECT_EQ(Merge(listed, newer), 1);
  EXPECT_EQ(listed.GetTargetCount(), 0U);
  EXPECT_EQ(Merge(listed, newer), 0);
}

TEST(HbaEntryMerge, KnownProxyIsNeverErased) {
  CHbaEntry listed = PortWith([](CHbaEntry& p) { SetProxy(p, 0xFF, 1); });
  EXPECT_EQ(Merge(listed, Port()), 0);
  EXPECT_EQ(listed.GetProxyAddress()[7], 1);
  EXPECT_EQ(Merge(listed, PortWith([](CHbaEntry& p) { SetProxy(p, 0xFE, 1); })), 0) << "the same host";
  EXPECT_EQ(listed.GetProxyAddress()[0], 0xFF);
  EXPECT_EQ(Merge(listed, PortWith([](CHbaEntry& p) { SetProxy(p, 0xFE, 2); })), 1);
  EXPECT_EQ(listed.GetProxyAddress()[0], 0xFE);
}

TEST(HbaEntryMerge, ProxyOnlyIsClearedButNeverSet) {
  const CHbaEntry proxyOnly = PortWith([](CHbaEntry& p) { p.SetProxyOnlyAccess(1); });
  CHbaEntry listed = proxyOnly;
  EXPECT_EQ(Merge(listed, Port()), 1);
  EXPECT_EQ(listed.ProxyOnly(), 0);
  EXPECT_EQ(Merge(listed, proxyOnly), 0);
  EXPECT_EQ(listed.ProxyOnly(), 0);
}

TEST(HbaEntryMerge, TargetsBecomeOfTheListedPortsKind) {
  CHbaEntry listed = PortWith([](CHbaEntry& p) { p.ClearTargets(); });
  listed.SetSpecialFeatures(RM_FEATURE_ISCSI);
  EXPECT_EQ(Merge(listed, Port()), 1);
  EXPECT_TRUE(listed.GetTargetList().GetEntry(0).IsISCSITarget());
}

TEST(HbaEntryMerge, NamesNeedAnISCSIPortAndBothNewNames) {
  CHbaEntry listed = MakePort(Info(1));
  listed.GetISCSINames()->SetNames("i", "own", nullptr);
  const auto merge = [&listed](const char* initiator, const char* fallback, const char* alias) {
    CHbaEntry newer = MakePort(Info(1));  // its own features do not matter
    newer.GetISCSINames()->SetNames(initiator, fallback, alias);
    return Merge(listed, newer);
  };
  EXPECT_EQ(merge("i2", "d2", "a2"), 0) << "not an iSCSI port";

  listed.SetSpecialFeatures(RM_FEATURE_ISCSI);
  EXPECT_EQ(merge("i2", "d2", "a2"), 1);
  EXPECT_STREQ(listed.GetISCSINames()->GetInitiatorName(), "i2");
  EXPECT_STREQ(listed.GetISCSINames()->GetDefaultName(), "own");
  EXPECT_STREQ(listed.GetISCSINames()->GetAlias(), "a2");
  EXPECT_EQ(merge("i2", "d2", "a2"), 0) << "the default name alone is no change";
  EXPECT_EQ(merge("i3", "d3", nullptr), 0);
  EXPECT_EQ(merge(nullptr, "d3", "a3"), 0);
  EXPECT_EQ(merge("i2", nullptr, "a3"), 1);
  EXPECT_STREQ(listed.GetISCSINames()->GetAlias(), "a3");
}

}  // namespace

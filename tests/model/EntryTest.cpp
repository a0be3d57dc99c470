// One port: defaults, construction, copies, the calls that copy lists out.

#include "discovery/HbaDiscoveryListEntry.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "include/hbadiscovery.h"
#include "tests/model/Samples.h"

namespace {

_RM_IP_INFO IpInfo(unsigned char flags) {
  return _RM_IP_INFO{{10, 1, 2, 3}, 0x1234, flags, 0};
}

std::vector<int> Proxy(const CHbaEntry& port) {
  return std::vector<int>(port.GetProxyAddress(), port.GetProxyAddress() + 8);
}

CVPortEntry VPort(unsigned int number, unsigned int targets) {
  const HBA_info_v2 info = VPortInfo(number);
  CVPortEntry vport(&info);
  for (unsigned int i = 0; i < targets; ++i) {
    const RM_NodeInfoEntry target = FcTarget(i);
    vport.AddTarget(&target);
  }
  return vport;
}

TEST(HbaEntry, StartsWithItsDefaults) {
  CHbaEntry port(Name(1).wwn);
  EXPECT_EQ(port.IsLocalPort(), 0);
  EXPECT_EQ(port.IsHbaInfoValid(), 0);
  EXPECT_EQ(port.GetLinkStatus(), 2U);
  EXPECT_EQ(port.GetTargetBindType(), 0x1002U);
  EXPECT_EQ(port.GetFoundOnPort(0), nullptr);
  EXPECT_EQ(port.GetProxyIpInfo(), nullptr);
  for (const unsigned int left : {3U, 2U, 1U, 0U, 0U}) EXPECT_EQ(port.GetTargetMapRetries(), left);
  CHbaEntry reset;
  reset.ResetTargetMapRetries();
  EXPECT_EQ(reset.GetTargetMapRetries(), 0U);
}

TEST(HbaEntry, IpInfoReplacesTheProxyAddressUnlessItIsIpv6) {
  const HBA_info_v4 info = PortInfo(1);
  const unsigned char proxy[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  const _RM_IP_INFO ip = IpInfo(0);
  const CHbaEntry plain(&info, nullptr, 0, proxy, 1, &ip);
  EXPECT_EQ(Proxy(plain), (std::vector<int>{0xFF, 0, 0x34, 0x12, 10, 1, 2, 3}));
  EXPECT_EQ(plain.ProxyOnly(), 1);
  ASSERT_NE(plain.GetProxyIpInfo(), nullptr);
  EXPECT_EQ(std::memcmp(plain.GetProxyIpInfo(), &ip, sizeof(ip)), 0);

  const _RM_IP_INFO cim = IpInfo(RM_IP_FLAG_CIM);
  EXPECT_EQ(CHbaEntry(&info, nullptr, 0, nullptr, 1, &cim).GetProxyAddress()[0], 0xFE);
  const _RM_IP_INFO v6 = IpInfo(RM_IP_FLAG_IPV6 | RM_IP_FLAG_CIM);
  EXPECT_EQ(Proxy(CHbaEntry(&info, nullptr, 0, proxy, 1, &v6)), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(Proxy(CHbaEntry(&info, nullptr, 1, nullptr, 0, nullptr)), (std::vector<int>(8, 0)));
}

TEST(HbaEntry, SettingIpInfoLeavesTheProxyAddress) {
  CHbaEntry port(Name(1).wwn);
  const _RM_IP_INFO ip = IpInfo(0);
  port.SetProxyIpInfo(&ip);
  ASSERT_NE(port.GetProxyIpInfo(), nullptr);
  EXPECT_EQ(Proxy(port), (std::vector<int>(8, 0)));
}

TEST(HbaEntry, CopyTakesEverythingAndIsIndependent) {
  const HBA_info_v4 info = PortInfo(1, "host");
  CHbaEntry port(&info, nullptr, 1, nullptr, 0, nullptr);
  port.SetHbaInfoValid();
  port.SetDiscoveryMark(5);
  port.SetMergeMark(6);
  port.SetOldTargetCount(7);
  port.SetLinkStatus(1);
  port.GetTargetMapRetries();
  port.GetISCSINames()->SetNames("i", "d", "a");
  const RM_NodeInfoEntry target = FcTarget(1);
  port.AddTarget(&target);
  const CVPortEntry vport = VPort(2, 1);
  port.AddVPort(&vport);
  port.AddVF(Name(3));

  CHbaEntry copy;
  copy = port;
  EXPECT_TRUE(copy == &port);
  EXPECT_EQ(copy.IsHbaInfoValid(), 1);
  EXPECT_EQ(copy.GetDiscoveryMark(), 5U);
  EXPECT_EQ(copy.GetMergeMark(), 6U);
  EXPECT_EQ(copy.GetOldTargetCount(), 7U);
  EXPECT_EQ(copy.GetTargetMapRetries(), 2U);
  EXPECT_STREQ(copy.GetISCSINames()->GetDefaultName(), "d");

  port.ClearTargets();
  port.ClearVPorts();
  port.ClearVFs();
  port.GetISCSINames()->SetNames(nullptr, nullptr, nullptr);
  EXPECT_EQ(copy.GetTargetCount(), 1U);
  EXPECT_EQ(copy.GetVPortCount(), 1U);
  EXPECT_EQ(copy.GetVFCount(), 1U);
  EXPECT_STREQ(copy.GetISCSINames()->GetAlias(), "a");

  const CHbaEntry& self = copy;
  copy = self;
  EXPECT_EQ(copy.GetTargetCount(), 1U);
}

TEST(HbaEntry, CopyTurnsTargetsIntoTheKindOfThePort) {
  CHbaEntry port(Name(1).wwn);
  RM_NodeInfoEntry target = FcTarget(1);
  target.nodeState = 9;  // behind the 516 bytes of an iSCSI record
  port.AddTarget(&target);
  port.SetSpecialFeatures(RM_FEATURE_ISCSI);
  const CHbaEntry iscsi(port);
  ASSERT_EQ(iscsi.GetTargetCount(), 1U);
  const CTargetList list = iscsi.GetTargetList();
  EXPECT_TRUE(list.GetEntry(0).IsISCSITarget());
  EXPECT_EQ(list.GetEntry(0).GetTargetEntry()->nodeState, 0U);

  port.SetSpecialFeatures(0);
  CHbaEntry fc;
  fc = port;
  EXPECT_FALSE(fc.GetTargetList().GetEntry(0).IsISCSITarget());
}

TEST(HbaEntry, TakenListsAreSharedUntilOneSideChanges) {
  CHbaEntry worker(Name(1).wwn);
  const RM_NodeInfoEntry target = FcTarget(1);
  worker.AddTarget(&target);
  worker.AddVF(Name(1));
  CHbaEntry listed(Name(1).wwn);
  listed.AddVF(Name(2));
  listed.TakeTargets(worker);
  listed.TakeVPorts(worker);
  listed.TakeVFs(worker);
  EXPECT_EQ(&listed.GetTargetList().GetEntry(0), &worker.GetTargetList().GetEntry(0));
  EXPECT_EQ(listed.GetVFList().GetEntry(0).GetAddress(), Name(1));
  worker.AddVF(Name(3));
  EXPECT_EQ(listed.GetVFCount(), 1U);
}

TEST(HbaEntry, VPortsFollowTheCountContract) {
  CHbaEntry port(Name(1).wwn);
  const CVPortEntry second = VPort(20, 3);
  const CVPortEntry first = VPort(10, 0);
  port.AddVPort(&second);
  port.AddVPort(&first);
  discovery_vport_info records[2] = {};
  unsigned int count = 0;
  EXPECT_EQ(port.GetVPorts(nullptr, &count), 2U);
  count = 1;
  EXPECT_EQ(port.GetVPorts(records, &count), 1U);
  EXPECT_EQ(count, 1U);
  EXPECT_EQ(records[1].portWwn, HBA_NAME{});
  count = 7;
  EXPECT_EQ(port.GetVPorts(records, &count), 0U);
  EXPECT_EQ(count, 2U);
  EXPECT_EQ(records[0].portWwn, Name(10));
  EXPECT_EQ(records[1].portWwn, Name(20));
  EXPECT_EQ(records[1].nodeWwn, Name(21));
  EXPECT_EQ(records[1].targetCount, 3U);
}

TEST(HbaEntry, VPortTargetsAreThoseOfTheNamedPort) {
  CHbaEntry port(Name(1).wwn);
  const CVPortEntry empty = VPort(10, 0);
  const CVPortEntry vport = VPort(20, 3);
  port.AddVPort(&empty);
  port.AddVPort(&vport);
  RM_NodeInfoEntry records[2] = {};
  unsigned int count = 2;
  EXPECT_EQ(port.GetVPortTargets(Name(20), records, &count), 1U);
  EXPECT_EQ(count, 2U);
  EXPECT_EQ(records[1].portWwn[7], 1);
  EXPECT_EQ(port.GetVPortTargets(Name(30), records, &count), 0U);
  EXPECT_EQ(count, 0U);
}

TEST(HbaEntry, VirtualFunctionsAreCopiedAllOrNone) {
  CHbaEntry port(Name(1).wwn);
  port.AddVF(Name(2));
  port.AddVF(Name(1));
  port.AddVF(Name(2));
  struct {
    discovery_vf_addrs header;
    HBA_NAME addresses[3];
  } record{{1}, {Name(9), Name(9), Name(9)}};
  EXPECT_EQ(port.GetVirtualFunctionAddrs(&record.header), 1U);
  EXPECT_EQ(record.header.count, 2U);
  EXPECT_EQ(record.addresses[0], Name(9));
  EXPECT_EQ(port.GetVirtualFunctionAddrs(&record.header), 0U);
  EXPECT_EQ(record.header.count, 2U);
  EXPECT_EQ(record.addresses[0], Name(1));
  EXPECT_EQ(record.addresses[1], Name(2));
  record.header.count = 3;
  EXPECT_EQ(port.GetVirtualFunctionAddrs(&record.header), 0U);
  EXPECT_EQ(record.header.count, 2U);
  EXPECT_EQ(record.addresses[2], Name(9));
}

}  // namespace

// One port: defaults, construction, copies, the calls that copy lists out.

#include "model/HbaEntry.h"

#include "include/hbadiscovery.h"
#include "tests/support/Ports.h"
#include "tests/support/Testing.h"

namespace {

CVPortEntry VPort(unsigned int number, unsigned int targets) {
  CVPortEntry vport(Name(number).wwn);
  std::memcpy(vport.GetHbaInfo()->nodeWwn, Name(number + 1).wwn, 8);
  for (unsigned int i = 0; i < targets; ++i) {
    const RM_NodeInfoEntry target = Node(i);
    vport.AddTarget(&target);
  }
  return vport;
}

// A port of one target and these virtual ports.
CHbaEntry PortWith(const std::vector<CVPortEntry>& vports, std::uint32_t features = 0) {
  CHbaEntry port = MakePort(Info(1, features));
  RM_NodeInfoEntry target = Node(1);
  target.nodeState = 9;  // behind the 516 bytes of an iSCSI record
  port.AddTarget(&target);
  for (const CVPortEntry& vport : vports) port.AddVPort(&vport);
  return port;
}

TEST(HbaEntry, IpInfoReplacesTheProxyAddressUnlessItIsIpv6) {
  const auto proxy = [](const CHbaEntry& port) {
    return std::vector<int>(port.GetProxyAddress(), port.GetProxyAddress() + 8);
  };
  const HBA_info_v4 info = Info(1);
  const unsigned char own[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  const struct {
    unsigned char flags;
    std::vector<int> proxy;
  } rows[] = {{0, {0xFF, 0, 0x34, 0x12, 10, 1, 2, 3}},
              {RM_IP_FLAG_CIM, {0xFE, 0, 0x34, 0x12, 10, 1, 2, 3}},
              {RM_IP_FLAG_IPV6 | RM_IP_FLAG_CIM, {1, 2, 3, 4, 5, 6, 7, 8}}};
  CHbaEntry later(Name(1).wwn);
  for (const auto& row : rows) {
    const _RM_IP_INFO ip{{10, 1, 2, 3}, 0x1234, row.flags, 0};
    const CHbaEntry port(&info, nullptr, 0, own, 1, &ip);
    EXPECT_EQ(proxy(port), row.proxy);
    EXPECT_EQ(port.ProxyOnly(), 1);
    ASSERT_NE(port.GetProxyIpInfo(), nullptr);
    EXPECT_EQ(std::memcmp(port.GetProxyIpInfo(), &ip, sizeof(ip)), 0);
    later.SetProxyIpInfo(&ip);
    EXPECT_NE(later.GetProxyIpInfo(), nullptr);
    EXPECT_EQ(proxy(later), std::vector<int>(8, 0)) << "set later it leaves the proxy address";
  }
}

TEST(HbaEntry, CopyTakesEverythingAndIsIndependent) {
  CHbaEntry port = PortWith({VPort(2, 1)});
  port.SetHbaInfoValid();
  port.SetDiscoveryMark(5);
  port.SetMergeMark(6);
  port.SetOldTargetCount(7);
  port.SetLinkStatus(1);
  port.GetTargetMapRetries();
  port.GetISCSINames()->SetNames("i", "d", "a");
  port.AddVF(Name(3));

  CHbaEntry copy;
  EXPECT_EQ(copy.GetLinkStatus(), 2U);
  copy = port;
  EXPECT_TRUE(copy == &port);
  EXPECT_EQ(copy.IsHbaInfoValid(), 1);
  EXPECT_EQ(copy.GetDiscoveryMark(), 5U);
  EXPECT_EQ(copy.GetMergeMark(), 6U);
  EXPECT_EQ(copy.GetOldTargetCount(), 7U);
  EXPECT_EQ(copy.GetTargetMapRetries(), 2U);

  port.ClearTargets();
  port.ClearVPorts();
  port.ClearVFs();
  port.GetISCSINames()->SetNames(nullptr, nullptr, nullptr);
  const CHbaEntry& self = copy;
  copy = self;
  EXPECT_EQ(copy.GetTargetCount(), 1U);
  EXPECT_EQ(copy.GetVPortCount(), 1U);
  EXPECT_EQ(copy.GetVFCount(), 1U);
  EXPECT_STREQ(copy.GetISCSINames()->GetDefaultName(), "d");
}

TEST(HbaEntry, TakenListsAreSharedUntilOneSideChanges) {
  CHbaEntry worker = PortWith({});
  CHbaEntry listed(Name(1).wwn);
  listed.TakeTargets(worker);
  EXPECT_EQ(&listed.GetTargetList().GetEntry(0), &worker.GetTargetList().GetEntry(0));
  const RM_NodeInfoEntry target = Node(2);
  worker.AddTarget(&target);
  EXPECT_EQ(listed.GetTargetCount(), 1U);
}

}  // namespace

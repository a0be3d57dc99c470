#include "tools/hbadisc/PortReader.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/tool/FakeLibrary.h"
#include "tools/hbadisc/Discovery.h"

namespace hbadisc {
namespace {

// What a walk reads when those ports are there.
std::vector<Port> Read(const std::vector<fake::Port>& ports) {
  fake::SetScript({{.ports = ports}});
  const Notices notices;
  const Discovery discovery(0, Scope::Everywhere, notices);
  EXPECT_TRUE(notices.Wait(std::chrono::seconds(30), -1));
  return ReadPorts(Details::All);
}

TEST(PortReaderTest, FindsTheKindInTheOrderOfTheFeatures) {
  const std::pair<unsigned int, PortKind> rows[] = {
      {0, PortKind::Fc},        {0x80, PortKind::Fc},   {0x2, PortKind::Fc},        {0x6, PortKind::Iscsi},
      {0x12, PortKind::Fcoe},   {0xA, PortKind::Nic},   {0x40A, PortKind::NicRoce}, {0x400, PortKind::NicRoce},
      {0x414, PortKind::Iscsi}, {0x418, PortKind::Fcoe}};
  for (const auto& [features, kind] : rows) {
    EXPECT_EQ(ToPort(fake::MakePort(1, features).record).kind, kind) << features;
  }
}

TEST(PortReaderTest, ReadsTheLinkByteByByte) {
  const struct {
    std::uint32_t word;
    Link link;
    Link function;
  } rows[] = {{0x0001, Link::Up, Link::Unknown},
              {0x0102, Link::Down, Link::Up},
              {0x0201, Link::Up, Link::Down},
              {0, Link::Unknown, Link::Unknown},
              {0xEE000000, Link::OverTemperature, Link::Unknown},
              {0xEE000001, Link::Up, Link::Unknown}};
  for (const auto& row : rows) {
    fake::Port port = fake::MakePort(1);
    port.record.base.base.linkStatus = row.word;
    const Port read = ToPort(port.record);
    EXPECT_EQ(read.link, row.link) << row.word;
    EXPECT_EQ(read.functionLink, row.function) << row.word;
  }
}

TEST(PortReaderTest, TellsThePositionFormByTheFeatures) {
  fake::Port numbered = fake::MakePort(1, HBADISC_FEATURE_SUB_ADAPTER);
  numbered.record.base.position.numbers = {3, 0xFFFF, 5, 0xFFFF};
  const Position position = ToPort(numbered.record).position;
  EXPECT_EQ(position.portNumber, 3);
  EXPECT_FALSE(position.pciFunction);
  EXPECT_EQ(position.pciBus, 5);
  EXPECT_FALSE(position.subAdapter);
  EXPECT_EQ(position.vpdPortNumber, "");

  fake::Port text = fake::MakePort(1, HBADISC_FEATURE_CONVERGED | HBADISC_FEATURE_ROCE);
  std::memcpy(text.record.base.position.vpdPortNumber, "12345678", 8);
  EXPECT_EQ(ToPort(text.record).position.vpdPortNumber, "12345678");
  EXPECT_FALSE(ToPort(text.record).position.portNumber);
}

TEST(PortReaderTest, BoundsUnterminatedTextsAndCounts) {
  fake::Port port = fake::MakePort(1);
  hba_discovery_info& info = port.record.base.base;
  std::memset(info.port.hostName, 'h', sizeof info.port.hostName);
  std::memset(info.port.model, 'm', sizeof info.port.model);
  std::memset(port.record.base.serialNumber, 's', sizeof port.record.base.serialNumber);
  info.port.modelId = HBADISC_MODEL_TARGET_MODE | 7;
  info.foundOnCount = 4000;
  info.foundOn[0].wwn[7] = 9;
  const Port read = ToPort(port.record);
  EXPECT_EQ(read.system, std::string(32, 'h'));
  EXPECT_EQ(read.model, std::string(80, 'm'));
  EXPECT_EQ(read.serialNumber, std::string(60, 's'));
  EXPECT_EQ(read.modelNumber, 7U);
  EXPECT_TRUE(read.targetMode);
  EXPECT_EQ(read.foundOn.size(), 4U);
}

TEST(PortReaderTest, ReadsTheWayToARemotePort) {
  fake::Port port = fake::MakePort(1);
  EXPECT_FALSE(ToPort(port.record).via);

  const std::uint8_t proxy[8] = {0xFF, 0, 0x59, 0x5B, 10, 0, 0, 5};
  std::memcpy(port.record.base.base.proxyAddress, proxy, sizeof proxy);
  EXPECT_EQ(ToPort(port.record).via.value().address, "10.0.0.5");
  EXPECT_FALSE(ToPort(port.record).via.value().port);

  port.record.hasProxyIpInfo = 1;
  port.record.proxyIpInfo = {{0xfd, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 2000, RM_IP_FLAG_IPV6, 0};
  EXPECT_EQ(ToPort(port.record).via.value().address, "fd00::1");
  EXPECT_EQ(ToPort(port.record).via.value().port, 2000);
}

TEST(PortReaderTest, ReadsDetailsWhileTheWalkStandsOnThePort) {
  fake::Port fc = fake::MakePort(1);
  for (unsigned char i = 0; i < 40; ++i) fc.targets.push_back(fake::MakeFcTarget(i));
  fc.targets[1].bus = fc.targets[1].fcAddressId = 0xFFFFFFFF;
  fc.targets[1].nodeState = RM_NODE_EXISTS;
  std::memset(fc.targets[1].osDeviceName, 'd', sizeof fc.targets[1].osDeviceName);
  fc.vports = {fake::MakeVPort(1, {fake::MakeFcTarget(7)}), fake::MakeVPort(2, {})};
  fake::Port nic = fake::MakePort(2, HBADISC_FEATURE_NIC);
  nic.virtualFunctions = {HBA_NAME{{2, 0, 0, 0, 0, 0, 0, 1}}, HBA_NAME{{2, 0, 0, 0, 0, 0, 0, 2}}};

  const std::vector<Port> ports = Read({fc, nic});
  ASSERT_EQ(ports.size(), 2U);
  const PortDetails& details = ports[0].details.value();
  ASSERT_EQ(details.fcTargets.size(), 40U);
  EXPECT_EQ(HexText(details.fcTargets[39].wwpn), "0x5000000000000027");
  EXPECT_TRUE(details.fcTargets[0].ready);
  EXPECT_FALSE(details.fcTargets[1].ready);
  EXPECT_FALSE(details.fcTargets[1].bus);
  EXPECT_FALSE(details.fcTargets[1].fcAddressId);
  EXPECT_EQ(details.fcTargets[1].device, std::string(256, 'd'));
  ASSERT_EQ(details.virtualPorts.size(), 2U);
  ASSERT_EQ(details.virtualPorts[0].targets.size(), 1U);
  EXPECT_EQ(HexText(details.virtualPorts[0].targets[0].wwpn), "0x5000000000000007");
  EXPECT_TRUE(details.virtualPorts[1].targets.empty());
  // The count in the record is older than the list: the reader asks again with more room.
  ASSERT_EQ(ports[1].vfCount, 0U);
  ASSERT_EQ(ports[1].details.value().virtualFunctions.size(), 2U);
  EXPECT_EQ(HexText(ports[1].details.value().virtualFunctions[1]), "0x0200000000000002");
  EXPECT_FALSE(fake::Recorded().walkOpen);
}

TEST(PortReaderTest, ReadsIscsiTargetsAndNames) {
  fake::Port port = fake::MakePort(1, HBADISC_FEATURE_ISCSI | HBADISC_FEATURE_CONVERGED);
  const std::string longName(300, 'n');
  port.targets = {fake::MakeIscsiTarget("iqn.2001:a", RM_ISCSI_HAS_SESSIONS),
                  fake::MakeIscsiTarget(longName, RM_ISCSI_HAS_SESSIONS | RM_ISCSI_CONNECTED)};
  port.iscsiNames.emplace();
  fake::SetText(port.iscsiNames->initiatorName, "iqn.2001:me");

  const std::vector<Port> ports = Read({port});
  const PortDetails& details = ports.at(0).details.value();
  ASSERT_EQ(details.iscsiTargets.size(), 2U);
  EXPECT_TRUE(details.fcTargets.empty());
  EXPECT_EQ(details.iscsiTargets[0].name, "iqn.2001:a");
  EXPECT_TRUE(details.iscsiTargets[0].hasSessions);
  EXPECT_FALSE(details.iscsiTargets[0].connected);
  EXPECT_EQ(details.iscsiTargets[1].name, longName);
  EXPECT_EQ(details.iscsiTargets[1].secondName, "");
  EXPECT_EQ(details.iscsiNames.value().initiatorName, "iqn.2001:me");
}

}  // namespace
}  // namespace hbadisc

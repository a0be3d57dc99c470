#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "inband/PortAttributes.h"
#include "tests/inband/recorded_log.h"
#include "tests/inband/scripted_provider.h"

namespace {

constexpr std::uint64_t kPort = 0x1000025DC9000001;

class Attributes : public testing::Test {
 protected:
  Attributes() {
    auto& all = m_Port.attributes;
    all[513] = Attribute::Text("host-a");
    all[514] = Attribute::Text("maker");
    all[515] = Attribute::Text("SN-1");
    all[518] = Attribute::Wwn(0x2000025DC9000001);
    all[527] = Attribute::Number(0xF100);
    all[535] = Attribute::Wwn(0x1000AABBCCDDEEFF);
    all[537] = Attribute::Text("model-a");
    all[553] = Attribute::Text("1");
    all[555] = Attribute::Number(0x1234);
    all[560] = Attribute::Number(3);
    all[561] = Attribute::Number(0x0BAD);
    all[586] = Attribute::Text("sub-1");
    all[774] = Attribute::Number(0x11223301);
    all[802] = Attribute::Number(0x44556602);
  }

  int Read() { return GetRemotePortAttr(&m_Entry, nullptr); }
  const HBA_info_v4& Record() const { return *m_Entry.GetHbaInfo(); }
  void MakeNonFC(std::uint32_t type) {
    m_Port.attributes[556] = Attribute::Number(type);
    m_Port.attributes[571] = Attribute::Wwn(0x2000000000000571);
    m_Port.attributes[516] = Attribute::Text("model-516");
  }

  RecordedLog m_Log;
  ScriptedProvider m_Provider;
  ScriptedPort& m_Port = m_Provider.ports[kPort];
  CHbaEntry m_Entry{Name(kPort).wwn};
};

TEST_F(Attributes, FillTheRecordOfAnFCPort) {
  const unsigned char proxy[8] = {0xFF, 0, 0x25, 0x5B, 10, 0, 0, 1};
  m_Entry.SetProxyAddress(proxy);
  m_Port.attributes[585] = Attribute::Number(2);
  m_Port.attributes[587] = Attribute::Number(1);
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(m_Provider.lastProxy, 0xFF00255B0A000001U);
  EXPECT_STREQ(Record().hostName, "host-a");
  EXPECT_STREQ(Record().manufacturer, "maker");
  EXPECT_STREQ(Record().serialNumber, "SN-1");
  EXPECT_STREQ(Record().model, "model-a");
  EXPECT_STREQ(Record().vpdPortNumber, "1");
  EXPECT_STREQ(Record().subAdapterId, "sub-1");
  EXPECT_EQ(Record().modelId, 0xF100U);
  EXPECT_EQ(Record().busNumber, 0x1234);
  EXPECT_EQ(Record().functionNumber, 3);
  EXPECT_EQ(std::memcmp(Record().portWwn, Name(kPort).wwn, 8), 0);
  EXPECT_EQ(std::memcmp(Record().nodeWwn, Name(0x2000025DC9000001).wwn, 8), 0);
  EXPECT_EQ(std::memcmp(Record().fabricName, Name(0x1000AABBCCDDEEFF).wwn, 8), 0);
  EXPECT_EQ(Record().specialFeatures, 0x340U);
  EXPECT_EQ(m_Entry.GetSpecialFeatures(), 0x340U);
  EXPECT_EQ(m_Entry.GetLinkStatus(), 0x01U) << "the first byte of 774; 802 is for converged functions";
  EXPECT_EQ(m_Log.Find("GetRemotePortAttr: subadapterid=sub-1").mask, 256U);
}

TEST_F(Attributes, ClearWhatAnEarlierReadLeft) {
  m_Port.attributes[559] = Attribute::Number(7);
  m_Port.attributes[556] = Attribute::Number(2);
  ASSERT_EQ(Read(), 0);
  ASSERT_EQ(Record().physicalPort, 7);
  m_Port.attributes = {{774, Attribute::Number(2)}};
  ASSERT_EQ(Read(), 0);
  HBA_info_v4 cleared{};
  std::memcpy(cleared.portWwn, Name(kPort).wwn, 8);
  cleared.modelId = 0xF100;
  cleared.functionNumber = cleared.busNumber = 0xFFFF;
  std::memcpy(cleared.model, "model by number", 16);
  EXPECT_EQ(std::memcmp(&cleared, &Record(), sizeof(cleared)), 0);
  EXPECT_EQ(m_Entry.GetLinkStatus(), 2U);
}

// Each missing attribute skips what depends on its status, and nothing else.
TEST_F(Attributes, RunningStatusSkipsOnlyWhatFollowsUntilItIsReset) {
  m_Port.attributes.erase(513);
  EXPECT_EQ(Read(), 0);
  EXPECT_STREQ(Record().manufacturer, "");
  EXPECT_STREQ(Record().serialNumber, "");
  EXPECT_EQ(Record().modelId, 0U);
  EXPECT_EQ(Record().functionNumber, 3);
  EXPECT_STREQ(Record().subAdapterId, "sub-1");
  EXPECT_STREQ(Record().model, "model-a");
  EXPECT_EQ(m_Log.Find("GetRemotePortAttr: NO HOST NAME for HBA!").mask, 33U);

  m_Port.attributes[513] = Attribute::Text("");  // no name either
  EXPECT_EQ(Read(), 0);
  EXPECT_STREQ(Record().manufacturer, "");
  m_Port.attributes[513] = Attribute::Text("host-a");
  m_Port.attributes.erase(514);
  EXPECT_EQ(Read(), 0);
  EXPECT_EQ(Record().modelId, 0U);
  m_Port.attributes[514] = Attribute::Text("maker");
  m_Port.attributes.erase(527);
  EXPECT_EQ(Read(), 0);
  EXPECT_STREQ(Record().serialNumber, "");
  EXPECT_EQ(m_Log.Count("GetRemotePortAttr: Could not get Model ID"), 1);
}

TEST_F(Attributes, WhatIsMissingIsSaidAndNoFailure) {
  m_Port.attributes[556] = Attribute::Number(2);
  m_Port.attributes[559] = Attribute::Number(1);
  const struct {
    unsigned int id;
    const char* text;
  } cases[] = {{514, "Could not get board mfg. attribute value"},
               {515, "Could not get HBA serial number"},
               {535, "Could not get fabric name attribute value"},
               {518, "Could not get node WWN attribute value"},
               {559, "Could not get Physical Port Number attribute value"},
               {553, "Could not get HBA port number attribute value"}};
  for (const auto& c : cases) {
    const auto attribute = m_Port.attributes.extract(c.id).mapped();
    EXPECT_EQ(Read(), 0) << c.id;
    EXPECT_EQ(m_Log.Find(std::string("GetRemotePortAttr: ") + c.text).mask, 33U) << c.id;
    EXPECT_EQ(m_Log.Count(std::string("GetRemotePortAttr: ") + c.text), 1) << c.id;
    m_Port.attributes[c.id] = attribute;
  }
}

TEST_F(Attributes, SubVendorLookUpDecidesWhetherTheSerialNumberIsRead) {
  struct Case {
    std::optional<std::uint32_t> vendor, device;
    bool sortane, serial;
  };
  for (const Case& c :
       {Case{0x103C, 0x3391, true, true}, Case{0x103C, 0x3392, true, true}, Case{0x103C, 0x3393, false, true},
        Case{0x103C, {}, false, false}, Case{{}, 0x3391, false, false}, Case{0x0BAD, {}, false, true}}) {
    m_Port.attributes.erase(561);
    m_Port.attributes.erase(557);
    if (c.vendor) m_Port.attributes[561] = Attribute::Number(*c.vendor);
    if (c.device) m_Port.attributes[557] = Attribute::Number(*c.device);
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ((Record().specialFeatures & 0x20U) != 0, c.sortane);
    EXPECT_EQ(Record().serialNumber[0] != 0, c.serial);
  }
}

TEST_F(Attributes, LastLinkLookUpIsTheResult) {
  m_Port.attributes.erase(774);
  EXPECT_EQ(Read(), 192);
  EXPECT_EQ(m_Entry.GetLinkStatus(), 0U);
  EXPECT_STREQ(Record().hostName, "host-a") << "read all the same";

  m_Port.attributes[556] = Attribute::Number(2);  // converged: the function's link counts
  EXPECT_EQ(Read(), 0);
  EXPECT_EQ(m_Entry.GetLinkStatus(), 0x0200U);
  m_Port.attributes[774] = Attribute::Number(1);
  EXPECT_EQ(Read(), 0);
  EXPECT_EQ(m_Entry.GetLinkStatus(), 0x0201U);
  m_Port.attributes.erase(802);
  EXPECT_EQ(Read(), 192);
  EXPECT_EQ(m_Entry.GetLinkStatus(), 0x0001U);
}

TEST_F(Attributes, PortTypesGiveFeatures) {
  const struct {
    std::uint32_t type, features;
    bool isFC;
    const char* text;
  } cases[] = {{0, 0, true, nullptr},
               {1, 0x6, false, "GetRemotePortAttr: CNA iSCSI port"},
               {2, 0x12, true, "GetRemotePortAttr: CNA FCoE port"},
               {3, 0xA, false, "GetRemotePortAttr: CNA NIC port"},
               {4, 0x80, true, "GetRemotePortAttr: Tovrin FC port"},
               {5, 0, true, nullptr},
               {6, 0x40A, false, "GetRemotePortAttr: CNA NIC+RoCE port"},
               {7, 0x1000, true, "GetRemotePortAttr: Kelso FC port"},
               {8, 0, true, nullptr},
               {0xFFFFFFFF, 0, true, nullptr}};
  m_Port.attributes.erase(586);
  m_Port.attributes[571] = Attribute::Wwn(0x2000000000000571);
  for (const auto& c : cases) {
    m_Port.attributes[556] = Attribute::Number(c.type);
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(m_Entry.GetSpecialFeatures(), c.features) << c.type;
    EXPECT_EQ(Record().vpdPortNumber[0] != 0, c.isFC) << c.type;
    EXPECT_EQ(Record().fabricName[0] != 0, c.isFC) << c.type;
    EXPECT_EQ(std::memcmp(Record().nodeWwn, Name(c.isFC ? 0x2000025DC9000001 : 0x2000000000000571).wwn, 8), 0);
    if (c.text != nullptr) {
      EXPECT_EQ(m_Log.Count(c.text), 1);
    }
  }
}

TEST_F(Attributes, OtherFunctionsTakeTheirModelFromOneAttributeAlone) {
  MakeNonFC(3);
  m_Port.attributes[516] = Attribute::Text(std::string(100, 'm'));
  m_Port.attributes[559] = Attribute::Number(2);
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(std::string(Record().model), std::string(79, 'm'));
  EXPECT_EQ(Record().physicalPort, 2);
  EXPECT_EQ(m_Log.Count("GetRemotePortAttr: Got ZAPH port"), 2);
  m_Port.attributes.erase(516);
  m_Port.attributes.erase(559);
  ASSERT_EQ(Read(), 0);
  EXPECT_STREQ(Record().model, "");
  EXPECT_EQ(m_Log.Count("GetRemotePortAttr: Got ZAPH port"), 3);
}

TEST_F(Attributes, ISCSINamesOfAnyLengthAreStored) {
  MakeNonFC(1);
  m_Port.initiatorName = "iqn.a";
  m_Port.defaultName = std::string(256, 'd');
  ASSERT_EQ(Read(), 0);
  EXPECT_STREQ(m_Entry.GetISCSINames()->GetInitiatorName(), "iqn.a");
  EXPECT_EQ(std::string(m_Entry.GetISCSINames()->GetDefaultName()), std::string(256, 'd'));
  EXPECT_STREQ(m_Entry.GetISCSINames()->GetAlias(), "");
  EXPECT_EQ(m_Log.Count("GetRemotePortAttr: iSCSI initiator name='iqn.a'\n"), 1);
}

TEST_F(Attributes, FailedISCSINamesSurviveOnlyWithoutLinkLookUp) {
  MakeNonFC(1);
  m_Provider.Script("RM_iSCSI_GetInitiatorProperties", {{5}, {5}});
  EXPECT_EQ(Read(), 0) << "the link status replaces it";
  EXPECT_EQ(m_Log.Count("GetRemotePortAttr: Could not get iSCSI names (error 5)"), 1);
  m_Provider.Script("RM_GetDiscoveryAttributes", {{2}});
  EXPECT_EQ(Read(), 506);
}

TEST_F(Attributes, LegacyCallKnowsNoLink) {
  m_Provider.Script("RM_GetDiscoveryAttributes", {{2}, {2}});
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(m_Entry.GetLinkStatus(), 0U);
  EXPECT_EQ(m_Provider.LookedUp().count(774), 0U);
  EXPECT_STREQ(Record().hostName, "host-a");

  MakeNonFC(3);  // its last look-up is the physical port
  EXPECT_EQ(Read(), 192);
}

TEST_F(Attributes, OverTemperatureIsReportedAfterReadingEverything) {
  for (const bool legacy : {false, true}) {
    m_Entry = CHbaEntry(Name(kPort).wwn);
    m_Provider.Script("RM_GetDiscoveryAttributes", {{legacy ? 2 : 231}});
    m_Provider.Script("RM_GetHBAAttributes", {{231}});
    EXPECT_EQ(Read(), 231);
    EXPECT_STREQ(Record().hostName, "host-a");
    EXPECT_EQ(m_Entry.GetLinkStatus(), 0xEE000000U);
    EXPECT_EQ(m_Provider.LookedUp().count(774), 0U);
  }
}

TEST_F(Attributes, ModelWordKeepsWhatIsNotReplaced) {
  m_Entry.GetHbaInfo()->modelId = 0xA0001122;
  m_Port.attributes.erase(527);
  Read();
  EXPECT_EQ(Record().modelId, 0xA0001122U) << "missing: untouched";
  m_Port.attributes[527] = Attribute::Number(0);
  Read();
  EXPECT_EQ(Record().modelId, 0xA000FF22U);
  EXPECT_STREQ(Record().serialNumber, "SN-1");
  m_Port.attributes[527] = Attribute::Number(0xFE05);
  Read();
  EXPECT_EQ(Record().modelId, 0xFE05U);
  EXPECT_EQ(Record().specialFeatures & 1U, 1U);
  EXPECT_EQ(m_Log.Find("Discovered Mardel port: Model ID = fe05").mask, 18U);
  m_Port.attributes[554] = Attribute::Number(1);
  Read();
  EXPECT_EQ(Record().modelId, 0x2000FE05U);

  m_Provider.isCimHost = true;
  m_Port.attributes[527] = Attribute::Number(0);
  m_Port.attributes.erase(554);
  EXPECT_EQ(Read(), 0);
  EXPECT_EQ(Record().modelId, 0U);
  EXPECT_STREQ(Record().serialNumber, "");
  EXPECT_EQ(m_Log.Count("GetRemotePortAttr: Model ID = 0"), 1);
}

TEST_F(Attributes, ModelNameFallsBackToTheNumber) {
  m_Port.attributes.erase(537);
  m_Port.attributes[516] = Attribute::Text(std::string(90, 'x'));
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(std::string(Record().model, 80), std::string(80, 'x')) << "may fill the field";
  EXPECT_STREQ(Record().serialNumber, "SN-1");

  m_Port.attributes.erase(516);
  m_Port.attributes[527] = Attribute::Number(0x8000F100);
  m_Port.attributes[554] = Attribute::Number(1);
  ASSERT_EQ(Read(), 0);
  EXPECT_STREQ(Record().model, "model by number");
  EXPECT_EQ(m_Provider.lastModelId, 0xF100U) << "flags are no part of the number";
}

TEST_F(Attributes, TextsAreCutToTheirFields) {
  m_Port.attributes[513] = Attribute::Text(std::string(40, 'h'));
  m_Port.attributes[514] = Attribute::Text(std::string(40, 'm'));
  m_Port.attributes[515] = Attribute::Text(std::string(70, 's'));
  m_Port.attributes[553] = Attribute::Text("123456789");
  m_Port.attributes[586] = Attribute::Text(std::string(33, 'a'));
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(std::string(Record().hostName), std::string(31, 'h'));
  EXPECT_EQ(std::string(Record().manufacturer), std::string(31, 'm'));
  EXPECT_EQ(std::string(Record().serialNumber, 60), std::string(60, 's'));
  EXPECT_EQ(std::string(Record().vpdPortNumber, 8), "12345678");
  EXPECT_EQ(std::string(Record().subAdapterId, 32), std::string(32, 'a'));
  EXPECT_EQ(m_Log.Count("GetRemotePortAttr: subadapterid=" + std::string(32, 'a')), 1);
  EXPECT_EQ(Record().padding[0], 0);
}

TEST_F(Attributes, ValuesOfTheWrongTypeOrWithoutValueAreMissing) {
  m_Port.attributes[515] = Attribute::Number(0x41414141);
  m_Port.attributes[560] = Attribute::Text("3");
  m_Port.attributes[553].withoutValue = true;
  m_Port.attributes[774].withoutValue = true;
  EXPECT_EQ(Read(), 1);
  EXPECT_STREQ(Record().serialNumber, "");
  EXPECT_EQ(Record().functionNumber, 0xFFFF);
  EXPECT_EQ(m_Log.Count("GetRemotePortAttr: Could not get HBA port number attribute value"), 1);
}

TEST_F(Attributes, AFailedCallLeavesAClearedRecord) {
  ASSERT_EQ(Read(), 0);
  m_Provider.Script("RM_GetDiscoveryAttributes", {{64}});
  EXPECT_EQ(Read(), 64);
  EXPECT_STREQ(Record().hostName, "");
  m_Provider.usedSize = 4097;
  EXPECT_EQ(Read(), 7) << "a provider that wrote beyond the room cannot be believed";
  EXPECT_STREQ(Record().hostName, "");
}

TEST_F(Attributes, ADisabledWorkerReadsNoFurther) {
  CZylTpThread disabled;
  EXPECT_EQ(GetRemotePortAttr(&m_Entry, &disabled), 0);
  EXPECT_TRUE(m_Provider.LookedUp().empty());
}

}  // namespace

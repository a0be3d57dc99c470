#include "inband/PortAttributes.h"
#include "tests/support/RecordedLog.h"
#include "tests/support/ScriptedProvider.h"
#include "tests/support/Testing.h"

namespace {

constexpr std::uint64_t kNode = 0x2000025DC9000001;
constexpr std::uint64_t kFunctionNode = 0x2000000000000571;
constexpr std::uint64_t kFabric = 0x1000AABBCCDDEEFF;
const std::string kText = "GetRemotePortAttr: ";

class PortAttributes : public testing::Test {
 protected:
  PortAttributes() {
    using Text = std::pair<unsigned int, const char*>;
    for (const auto& [id, text] : {Text{513, "host-a"}, Text{514, "maker"}, Text{515, "SN-1"},
                                   Text{537, "model-a"}, Text{553, "1"}, Text{586, "sub-1"}}) {
      Set(id, text);
    }
    using Number = std::pair<unsigned int, std::uint32_t>;
    for (const auto& [id, number] : {Number{527, 0xF100}, Number{555, 0x1234}, Number{560, 3},
                                     Number{561, 0x0BAD}, Number{774, 0x11223301}, Number{802, 0x44556602}}) {
      Set(id, number);
    }
    m_Attributes[518] = Attribute::Wwn(kNode);
    m_Attributes[535] = Attribute::Wwn(kFabric);
    m_Attributes[571] = Attribute::Wwn(kFunctionNode);
  }

  void Set(unsigned int id, const std::string& text) { m_Attributes[id] = Attribute::Text(text); }
  void Set(unsigned int id, std::uint32_t number) { m_Attributes[id] = Attribute::Number(number); }
  // Puts the number there, or takes the attribute away.
  void Put(unsigned int id, std::optional<std::uint32_t> number) {
    m_Attributes.erase(id);
    if (number) Set(id, *number);
  }
  int Read() { return GetRemotePortAttr(&m_Entry, nullptr); }
  int ReadAfresh() {
    m_Entry = CHbaEntry(Name(kPort).wwn);
    return Read();
  }
  const HBA_info_v4& Record() const { return *m_Entry.GetHbaInfo(); }

  RecordedLog m_Log;
  ScriptedProvider m_Provider;
  ScriptedPort& m_Port = m_Provider.ports[kPort];
  Attributes& m_Attributes = m_Port.attributes;
  CHbaEntry m_Entry{Name(kPort).wwn};
};

TEST_F(PortAttributes, FillTheRecordOfAnFCPort) {
  const unsigned char proxy[8] = {0xFF, 0, 0x25, 0x5B, 10, 0, 0, 1};
  m_Entry.SetProxyAddress(proxy);
  Set(585, 2);
  Set(587, 1);
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(m_Provider.lastProxy, 0xFF00255B0A000001U);
  EXPECT_EQ(Record().busNumber, 0x1234);
  EXPECT_EQ(WwpnKey(Record().fabricName), kFabric);
  EXPECT_EQ(Record().specialFeatures, 0x340U);
  EXPECT_EQ(m_Entry.GetSpecialFeatures(), 0x340U);
  EXPECT_EQ(m_Entry.GetLinkStatus(), 0x01U) << "the first byte of 774; 802 is for converged functions";
  EXPECT_EQ(m_Log.Find(kText + "subadapterid=sub-1").mask, 256U);
}

// A missing attribute is said, is no failure, and skips what depends on its status until that is reset.
TEST_F(PortAttributes, MissingOnesSkipWhatDependsOnThem) {
  Set(556, 2);
  Set(559, 1);
  const struct {
    unsigned int id;
    const char* text;
    bool manufacturer, modelId, serialNumber;  // are read all the same
  } rows[] = {{513, "NO HOST NAME for HBA!", false, false, false},
              {514, "Could not get board mfg. attribute value", false, false, false},
              {527, "Could not get Model ID", true, false, false},
              {515, "Could not get HBA serial number", true, true, false},
              {535, "Could not get fabric name attribute value", true, true, true},
              {518, "Could not get node WWN attribute value", true, true, true},
              {559, "Could not get Physical Port Number attribute value", true, true, true},
              {553, "Could not get HBA port number attribute value", true, true, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const Attribute attribute = m_Attributes.extract(row.id).mapped();
    EXPECT_EQ(ReadAfresh(), 0);
    EXPECT_STREQ(Record().manufacturer, row.manufacturer ? "maker" : "");
    EXPECT_EQ(Record().modelId, row.modelId ? 0xF100U : 0U);
    EXPECT_STREQ(Record().serialNumber, row.serialNumber ? "SN-1" : "");
    EXPECT_EQ(Record().functionNumber, 3);
    EXPECT_STREQ(Record().subAdapterId, "sub-1");
    EXPECT_STREQ(Record().model, "model-a");
    EXPECT_EQ(m_Log.Find(kText + row.text).mask, 33U);
    EXPECT_EQ(m_Log.Count(kText + row.text), 1);
    m_Attributes[row.id] = attribute;
  }
  Set(513, "");  // no name either
  EXPECT_EQ(ReadAfresh(), 0);
  EXPECT_STREQ(Record().manufacturer, "");
}

TEST_F(PortAttributes, LastLinkLookUpIsTheResult) {
  const struct {
    std::optional<std::uint32_t> portType, physical, function;
    int result;
    unsigned int link;
  } rows[] = {{{}, {}, 2, 192, 0},
              {2, {}, 2, 0, 0x0200},  // converged: the function's link counts
              {2, 1, 2, 0, 0x0201},
              {2, 1, {}, 192, 0x0001}};
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    Put(556, row.portType);
    Put(774, row.physical);
    Put(802, row.function);
    EXPECT_EQ(Read(), row.result);
    EXPECT_EQ(m_Entry.GetLinkStatus(), row.link);
    EXPECT_STREQ(Record().hostName, "host-a") << "read all the same";
  }
}

TEST_F(PortAttributes, PortTypesGiveFeatures) {
  const struct {
    std::uint32_t type, features;
    bool isFC;
    const char* text;
  } rows[] = {{0, 0, true, nullptr},
              {1, 0x6, false, "CNA iSCSI port"},
              {2, 0x12, true, "CNA FCoE port"},
              {3, 0xA, false, "CNA NIC port"},
              {4, 0x80, true, "Tovrin FC port"},
              {5, 0, true, nullptr},
              {6, 0x40A, false, "CNA NIC+RoCE port"},
              {7, 0x1000, true, "Kelso FC port"},
              {8, 0, true, nullptr},
              {0xFFFFFFFF, 0, true, nullptr}};
  m_Attributes.erase(586);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.type);
    Set(556, row.type);
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(m_Entry.GetSpecialFeatures(), row.features);
    EXPECT_EQ(Record().vpdPortNumber[0] != 0, row.isFC);
    EXPECT_EQ(Record().fabricName[0] != 0, row.isFC);
    EXPECT_EQ(WwpnKey(Record().nodeWwn), row.isFC ? kNode : kFunctionNode);
    if (row.text != nullptr) {
      EXPECT_EQ(m_Log.Count(kText + row.text), 1);
    }
  }
}

TEST_F(PortAttributes, ISCSINamesOfAnyLengthAreStored) {
  Set(556, 1);
  m_Port.initiatorName = "iqn.a";
  m_Port.defaultName = std::string(256, 'd');
  ASSERT_EQ(Read(), 0);
  EXPECT_STREQ(m_Entry.GetISCSINames()->GetInitiatorName(), "iqn.a");
  EXPECT_EQ(std::string(m_Entry.GetISCSINames()->GetDefaultName()), std::string(256, 'd'));
  EXPECT_STREQ(m_Entry.GetISCSINames()->GetAlias(), "");
  EXPECT_EQ(m_Log.Count(kText + "iSCSI initiator name='iqn.a'\n"), 1);

  m_Provider.Script("RM_iSCSI_GetInitiatorProperties", {{5}, {5}});
  EXPECT_EQ(Read(), 0) << "the link status replaces the failure";
  EXPECT_EQ(m_Log.Count(kText + "Could not get iSCSI names (error 5)"), 1);
  m_Provider.Script("RM_GetDiscoveryAttributes", {{2}, {2}});
  EXPECT_EQ(Read(), 506) << "the older call knows no link";
  EXPECT_EQ(m_Entry.GetLinkStatus(), 0U);
  Set(556, 3);
  EXPECT_EQ(Read(), 192) << "the last look-up is the physical port";
}

TEST_F(PortAttributes, OverTemperatureIsReportedAfterReadingEverything) {
  for (const bool legacy : {false, true}) {
    m_Provider.Script("RM_GetDiscoveryAttributes", {{legacy ? 2 : 231}});
    m_Provider.Script("RM_GetHBAAttributes", {{231}});
    EXPECT_EQ(ReadAfresh(), 231);
    EXPECT_STREQ(Record().hostName, "host-a");
    EXPECT_EQ(m_Entry.GetLinkStatus(), 0xEE000000U);
  }
}

TEST_F(PortAttributes, ModelWordKeepsWhatIsNotReplaced) {
  m_Entry.GetHbaInfo()->modelId = 0xA0001122;
  const struct {
    std::optional<std::uint32_t> modelId, targetMode;
    bool isCimHost;
    unsigned int word;
    const char* serialNumber;
  } rows[] = {{{}, {}, false, 0xA0001122, ""},  // missing: untouched
              {0, {}, false, 0xA000FF22, "SN-1"},
              {0xFE05, {}, false, 0xFE05, "SN-1"},
              {0xFE05, 1, false, 0x2000FE05, "SN-1"},
              {0, {}, true, 0, ""}};
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    Put(527, row.modelId);
    Put(554, row.targetMode);
    m_Provider.isCimHost = row.isCimHost;
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(Record().modelId, row.word);
    EXPECT_STREQ(Record().serialNumber, row.serialNumber);
    EXPECT_EQ(Record().specialFeatures & 1U, row.modelId == 0xFE05 ? 1U : 0U);
  }
  EXPECT_EQ(m_Log.Find("Discovered Mardel port: Model ID = fe05").mask, 18U);
  EXPECT_EQ(m_Log.Count(kText + "Model ID = 0"), 1);
}

TEST_F(PortAttributes, TextsAreCutToTheirFields) {
  for (const unsigned int id : {513U, 514U, 515U, 553U, 586U}) Set(id, std::string(70, 'x'));
  ASSERT_EQ(Read(), 0);
  EXPECT_EQ(std::string(Record().hostName), std::string(31, 'x'));
  EXPECT_EQ(std::string(Record().manufacturer), std::string(31, 'x'));
  EXPECT_EQ(std::string(Record().serialNumber, 60), std::string(60, 'x'));
  EXPECT_EQ(std::string(Record().vpdPortNumber, 8), std::string(8, 'x'));
  EXPECT_EQ(std::string(Record().subAdapterId, 32), std::string(32, 'x'));
  EXPECT_EQ(m_Log.Count(kText + "subadapterid=" + std::string(32, 'x')), 1);
  EXPECT_EQ(Record().physicalPort, 0) << "nothing runs on into the next field";
  EXPECT_EQ(Record().padding[0], 0);
}

TEST_F(PortAttributes, ValuesOfTheWrongTypeOrWithoutValueAreMissing) {
  Set(515, 0x41414141);
  Set(560, "3");
  m_Attributes[553].withoutValue = true;
  m_Attributes[774].withoutValue = true;
  EXPECT_EQ(Read(), 1);
  EXPECT_STREQ(Record().serialNumber, "");
  EXPECT_EQ(Record().functionNumber, 0xFFFF);
  EXPECT_EQ(m_Log.Count(kText + "Could not get HBA port number attribute value"), 1);
}

}  // namespace

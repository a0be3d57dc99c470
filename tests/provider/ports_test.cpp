// What a fabric file says, as it arrives in the boundary's records and attribute buffers.
#include <gmock/gmock.h>

#include "tests/provider/Boundary.h"
#include "tests/support/RecordBytes.h"
#include "tests/support/Testing.h"

namespace providertest {
namespace {

using testing::ElementsAreArray;

// Every key that has its own place in a record, texts as long as their fields.
json FullBoard(const std::string& kind) {
  json board = R"({"wwnn": "2000000000000abc", "model_id": "0x6A77", "vpd_port_number": "12345678",
                   "physical_port": 3, "pci_function": 5, "pci_bus": 9, "sub_vendor_id": "0x103C",
                   "sub_device_id": "0x3392", "attribute_585": 2, "attribute_587": 1,
                   "link": {"physical": 7, "function": "down"}})"_json;
  board["kind"] = kind;
  board["wwpn"] = kPort;
  board["model"] = std::string(80, 'm');
  board["manufacturer"] = std::string(31, 'v');
  board["serial_number"] = std::string(60, 's');
  board["sub_adapter_id"] = std::string(32, 'a');
  return board;
}

TEST(Ports, FeaturesAndLinkWordOfEachKind) {
  const struct {
    const char* kind;
    json more;
    std::uint32_t features;
    std::uint32_t link;
    long portType;
  } rows[] = {
      {"fc", {}, 0, 1, 0},
      {"fc", {{"port_type", 4}}, 0x80, 1, 4},
      {"fc", {{"port_type", 7}}, 0x1000, 1, 7},
      {"fc", {{"port_type", nullptr}}, 0, 1, -1},
      {"fc", {{"model_id", 0xFE05}}, 0x1, 1, 0},
      {"fc", {{"model_id", 0xFED5}}, 0x1, 1, 0},
      {"fc", {{"sub_vendor_id", 0x103C}, {"sub_device_id", 0x3391}}, 0x20, 1, 0},
      {"fc", {{"sub_vendor_id", 0x103C}, {"sub_device_id", 0x3390}}, 0, 1, 0},
      {"fc", {{"attribute_585", 3}, {"attribute_587", 0}}, 0, 1, 0},
      {"fcoe", {}, 0x12, 0x0101, 2},
      {"iscsi", {{"iscsi", {{"initiator_name", "iqn.x"}}}}, 0x6, 0x0101, 1},
      {"nic", {{"link", "down"}}, 0xA, 0x0202, 3},
      {"nic-roce", {{"link", {{"function", 2}}}}, 0x40A, 0x0201, 6},
      {"nic", {{"overheated", true}}, 0xA, 0xEE000000, 3},
  };
  for (const auto& row : rows) {
    json board = {{"kind", row.kind}, {"wwpn", kPort}};
    board.update(row.more.is_null() ? json::object() : row.more);
    SCOPED_TRACE(board.dump());
    const Fabric fabric(Boards{board});
    const BoardRead read = ReadBoard(0);
    ASSERT_EQ(read.status, RM_STATUS_OK);
    EXPECT_EQ(read.info.specialFeatures, row.features);
    EXPECT_EQ(read.board.linkStatus, row.link);
    EXPECT_EQ(AttributesRead(RM_GetDiscoveryAttributes, kPort).Number(556), row.portType);
  }
}

TEST(Ports, AttributesOfAnFcLikePort) {
  json board = FullBoard("fcoe");
  board["fabric_name"] = "1000aabbccdd0001";
  board["model_name"] = "long model";
  board["target_mode"] = true;
  const Fabric fabric(Boards{board});
  const AttributesRead read(RM_GetDiscoveryAttributes, kPort);
  ASSERT_EQ(read.status, RM_STATUS_OK);
  EXPECT_LE(read.size, unsigned{RM_ATTRIBUTE_ROOM});
  const std::pair<unsigned int, std::string> texts[] = {
      {513, "testhost"},           {514, std::string(31, 'v')}, {515, std::string(60, 's')},
      {516, std::string(80, 'm')}, {537, "long model"},         {553, "12345678"},
      {586, std::string(32, 'a')}};
  for (const auto& [id, text] : texts) EXPECT_EQ(read.Text(id), text) << id;
  const std::pair<unsigned int, long> numbers[] = {{527, 0x6A77}, {554, 1}, {555, 9}, {556, 2},
                                                   {557, 0x3392}, {559, 3}, {560, 5}, {561, 0x103C},
                                                   {585, 2},      {587, 1}, {774, 7}, {802, 2}};
  for (const auto& [id, number] : numbers) EXPECT_EQ(read.Number(id), number) << id;
  EXPECT_EQ(read.NameOf(518), "2000000000000abc");
  EXPECT_EQ(read.NameOf(535), "1000aabbccdd0001");
  for (const unsigned int id : {571u, 9999u}) EXPECT_EQ(read.StatusOf(id), RM_STATUS_NOT_FOUND) << id;
}

// An FC port has one link level; a missing value is missing, also when the file takes it away by number.
TEST(Ports, AttributesLeftOutAndPutIn) {
  json board = FcBoard();
  board["serial_number"] = nullptr;
  board["manufacturer"] = nullptr;
  board["attributes"] = R"([{"id": 513, "value": null}, {"id": 527, "value": "not a number"},
                            {"id": 600, "value": {"name": "0102030405060708"}},
                            {"id": 601, "value": 4294967295}])"_json;
  const Fabric fabric(Boards{board});
  const AttributesRead read(RM_GetDiscoveryAttributes, kPort);
  for (const unsigned int id : {513u, 514u, 515u, 802u})
    EXPECT_EQ(read.StatusOf(id), RM_STATUS_NOT_FOUND) << id;
  EXPECT_EQ(read.Text(527), "not a number");
  EXPECT_EQ(read.NameOf(600), "0102030405060708");
  EXPECT_EQ(read.Number(601), 0xFFFFFFFFL);
  EXPECT_EQ(ReadBoard(0).info.serialNumber[0], '\0');
}

TEST(Ports, AttributeBufferWithoutRoom) {
  json endless = FcBoard(kOtherPort);  // no buffer holds it
  for (int id = 1000; id < 1010; ++id) {
    endless["attributes"].push_back({{"id", id}, {"value", std::string(1000, 'x')}});
  }
  const Fabric fabric(Boards{FullBoard("fc"), endless});
  const AttributesRead whole(RM_GetDiscoveryAttributes, kPort);
  const AttributesRead exact(RM_GetDiscoveryAttributes, kPort, whole.size);
  EXPECT_EQ(exact.status, RM_STATUS_OK);
  EXPECT_EQ(exact.Text(513), "testhost");
  const AttributesRead tooSmall(RM_GetDiscoveryAttributes, kPort, whole.size - 1);
  EXPECT_EQ(tooSmall.status, RM_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(tooSmall.size, whole.size);
  EXPECT_EQ(AttributesRead(RM_GetDiscoveryAttributes, kOtherPort, 65'536).status, RM_STATUS_BUFFER_TOO_SMALL);
}

TEST(Ports, IscsiNamesAndTargets) {
  const std::string longName(511, 'n');
  const json board = {{"kind", "iscsi"},
                      {"wwpn", kPort},
                      {"iscsi", {{"initiator_name", std::string(256, 'i')}, {"default_name", "default"}}},
                      {"iscsi_targets",
                       {{{"name", "iqn.{n}"}, {"count", 2}, {"sessions", true}, {"second_name", "second{n}"}},
                        {{"name", longName}, {"connected", true}}}}};
  const Fabric fabric(Boards{board});
  char names[3][257] = {};
  for (char* name : names) std::memset(name, '#', 257);
  ASSERT_EQ(RM_iSCSI_GetInitiatorProperties(nullptr, Name(kPort).wwn, names[0], names[1], names[2]),
            RM_STATUS_OK);
  EXPECT_EQ(std::string(names[0], 257), std::string(256, 'i') + '#');  // fills its buffer and no more
  EXPECT_STREQ(names[1], "default");
  EXPECT_STREQ(names[2], "");

  const auto targets = IscsiTargets(kPort);
  ASSERT_EQ(targets.records.size(), 3u);
  RecordBytes first(516);
  first.Text(0, "iqn.0").Text(256, "second0").U8(512, 0x40);
  EXPECT_THAT(BytesOf(targets.records[0]), ElementsAreArray(first.Get()));
  RecordBytes last(516);
  last.Text(0, longName).U8(512, 0x80);
  EXPECT_THAT(BytesOf(targets.records[2]), ElementsAreArray(last.Get()));
  EXPECT_EQ(RM_iSCSI_GetInitiatorProperties(nullptr, Name(kOtherPort).wwn, names[0], names[1], names[2]),
            RM_STATUS_NOT_FOUND);
}

TEST(Ports, RangesCountNamesAndNumbersUp) {
  json board = FcBoard();
  board["targets"] = R"([{"wwpn": "50000000000000fe", "count": 300, "wwnn": "5100000000000000", "wwnn_step": 0,
                          "luns": 2, "lun": 5, "fcp_lun": "0x500", "device": "/dev/d{n}-{n}",
                          "fc_id": "0xfffffe", "state": "exists"},
                         {"wwpn": "5200000000000000"}])"_json;
  const Fabric fabric(Boards{board});
  const auto nodes = Nodes(kPort, 601);
  ASSERT_EQ(nodes.records.size(), 601u);
  const RM_NodeInfoEntry& node = nodes.records[2 * 299 + 1];
  EXPECT_EQ(Digits(node.portWwn), "5000000000000229");
  EXPECT_EQ(Digits(node.nodeWwn), "5100000000000000");
  EXPECT_EQ(node.target, 299u);
  EXPECT_EQ(node.lun, 6u);
  EXPECT_EQ(node.fcpLun, 0x501u);
  EXPECT_EQ(node.fcAddressId, 299u - 2);
  EXPECT_STREQ(node.osDeviceName, "/dev/d599-599");
  EXPECT_EQ(node.nodeState, 0x20u);
  EXPECT_EQ(nodes.records[600].target, 300u);  // one on from the range before
  EXPECT_EQ(Digits(nodes.records[600].nodeWwn), "2000000000000000");
}

TEST(Ports, ListsWithoutRoomSayWhatTheyNeed) {
  const json nic = R"({"kind": "nic", "wwpn": "1000000000000002",
                       "virtual_functions": [{"address": "0100000000000000", "count": 3}]})"_json;
  json fc = FcBoard();
  fc["targets"] = {{{"wwpn", "5000000000000001"}, {"count", 40}}};
  const Fabric fabric(Boards{fc, nic});
  const auto tooSmall = Nodes(kPort, 16);
  EXPECT_EQ(tooSmall.status, RM_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(tooSmall.count, 40u);
  EXPECT_EQ(Nodes(kPort, 40).records.size(), 40u);
  EXPECT_EQ(Functions(kOtherPort, 2).status, RM_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(Digits(Functions(kOtherPort, 3).records[2].wwn), "0100000000000002");
  EXPECT_EQ(Instances(1).status, RM_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(Instances(1).count, 2u);
  EXPECT_EQ(Nodes(kOtherPort, 0).status, RM_STATUS_OK);  // nothing needs no room
}

TEST(Ports, SingleNumbersAndQuestions) {
  json board = FcBoard();
  board["driver_type"] = 13;
  board["bind_type"] = 8;
  board["virtual_ports"] = {{{"wwpn", "1100000000000001"}}};
  board["targets"] = {{{"wwpn", "5000000000000001"}, {"count", 2}, {"makers_port", true}},
                      {{"wwpn", "5000000000000009"}}};
  const Fabric fabric(Boards{board}, {{"secure_management", true}});
  unsigned int number = 0;
  EXPECT_EQ(RM_GetDriverType(nullptr, Name(kPort).wwn, &number), RM_STATUS_OK);
  EXPECT_EQ(number, 13u);
  EXPECT_EQ(RM_GetBindingSupport(nullptr, Name(kPort).wwn, 1, &number), RM_STATUS_OK);
  EXPECT_EQ(number, 8u);
  EXPECT_EQ(RM_GetSecureMgmtConfig(&number), RM_STATUS_OK);
  EXPECT_EQ(number, 1u);

  EXPECT_NE(RM_IsLocalHBA(Name(kPort).wwn), 0);
  EXPECT_EQ(RM_IsLocalHBA(Name("5000000000000001").wwn), 0);
  for (const char* makers : {kPort, "1100000000000001", "5000000000000002"}) {
    EXPECT_NE(RM_IsVarnixPort(Name(makers).wwn), 0) << makers;
  }
  EXPECT_EQ(RM_IsVarnixPort(Name("5000000000000009").wwn), 0);

  char text[80];
  EXPECT_EQ(RM_GetAdapterType(0xFE05, text), RM_STATUS_OK);
  EXPECT_STREQ(text, "Varnix Mardel FC Adapter");
  EXPECT_EQ(RM_GetAdapterType(0x1234, text), RM_STATUS_OK);
  EXPECT_STREQ(text, "Varnix adapter 0x1234");
  EXPECT_EQ(RM_GetAdapterType(0, text), RM_STATUS_NOT_FOUND);
}

}  // namespace
}  // namespace providertest

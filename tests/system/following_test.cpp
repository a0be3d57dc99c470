// What did not answer and what has changed, through the exported interface.
#include <gmock/gmock.h>
#include <poll.h>

#include <random>

#include "provider/OpenProvider.h"
#include "tests/system/Agent.h"
#include "tests/system/Fabric.h"
#include "tests/system/Picture.h"

namespace systemtest {
namespace {

using testing::ElementsAre;
using testing::Key;
using testing::UnorderedElementsAre;

constexpr unsigned int kLong = 3600;
constexpr char kFirst[] = "1000000000000001";
constexpr char kSecond[] = "1000000000000002";
constexpr char kThird[] = "1000000000000003";
constexpr char kRemote[] = "1000000000000011";

// Changes from `*sequence` on, which moves to the last one.
std::vector<hbadisc_change> ChangesSince(const Library& library, std::uint64_t* sequence) {
  std::vector<hbadisc_change> all;
  for (;;) {
    std::vector<hbadisc_change> some(7);
    unsigned int count = 7;
    EXPECT_EQ(library.GetChanges(*sequence, some.data(), &count), 0);
    if (count == 0) return all;
    all.insert(all.end(), some.begin(), some.begin() + count);
    *sequence = all.back().sequence;
  }
}

std::vector<unsigned int> KindsOf(const std::vector<hbadisc_change>& changes) {
  std::vector<unsigned int> kinds;
  for (const hbadisc_change& change : changes) kinds.push_back(change.kind);
  return kinds;
}

template <class Record>
std::vector<Record> ListOf(int (*call)(Record*, unsigned int*)) {
  unsigned int count = 0;
  const int missing = call(nullptr, &count);
  std::vector<Record> records(static_cast<std::size_t>(missing));
  count = static_cast<unsigned int>(missing);
  EXPECT_EQ(call(records.data(), &count), 0);
  return records;
}

class Following : public testing::Test {
 protected:
  void Load() {
    m_Fabric.Write();
    m_Library = std::make_unique<Library>(m_Fabric.Path());
    m_CallBacks = std::make_unique<CallBacks>(*m_Library, HBADISC_EVENT_FORCED);
    EXPECT_GE(m_Library->GetChangeDescriptor(), 0);  // followed from the first cycle on
  }
  void Start(bool withHosts = false) {
    Load();
    if (withHosts) {
      const auto setInstallDir = m_Library->Symbol<decltype(&RMOpen_SetInstallDir)>("RMOpen_SetInstallDir");
      ASSERT_EQ(setInstallDir(Scratch("").c_str()), 0);
    }
    m_Library->StartupEx(kLong, withHosts ? kLong : HBADISC_NO_OOB_DISCOVERY, withHosts ? 0 : 1);
    ASSERT_EQ(m_Library->WaitForFirstPicture(60000), 1);
    m_Cycles = 1;
    ASSERT_EQ(m_CallBacks->Await(m_Cycles).size(), m_Cycles);
  }
  void Cycle() {
    m_Library->StartDiscoveryCycle();
    ++m_Cycles;
    ASSERT_EQ(m_CallBacks->Await(m_Cycles).size(), m_Cycles);
  }
  void ChangeAndLook() {
    ASSERT_TRUE(m_Fabric.Replace(*m_Library));
    Cycle();
  }
  Picture Read() { return Picture::Read(*m_Library, &m_Sequence); }
  std::vector<hbadisc_change> Changes() { return ChangesSince(*m_Library, &m_Sequence); }

  Log m_Log{0x3FF, "DISCO_FULL_DISCOVERY:1\n"};
  Fabric m_Fabric{{FcBoard(kFirst), FcBoard(kSecond), FcBoard(kThird)}};
  std::unique_ptr<Library> m_Library;
  std::unique_ptr<CallBacks> m_CallBacks;
  std::size_t m_Cycles = 0;
  std::uint64_t m_Sequence = 0;
};

TEST_F(Following, ReplayedChangesGiveTheNextPictureOfRandomFabrics) {
  const unsigned int seed = std::random_device()();
  RecordProperty("seed", static_cast<int>(seed));
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto dice = [&random](unsigned int sides) { return static_cast<unsigned int>(random() % sides); };
  const auto targets = [&](unsigned int first) {
    json list = json::array();
    for (unsigned int i = 0; i < 4; ++i) {
      if (dice(2) == 0) continue;
      list.push_back({{"wwpn", "50000000000000" + std::to_string(first + i)}, {"lun", dice(2)}, {"target", i}});
    }
    return list;
  };
  const auto board = [&](unsigned int number) -> json {
    const std::string name = "100000000000000" + std::to_string(number);
    json made = number % 3 == 0 ? NicBoard(name) : number % 3 == 1 ? FcBoard(name) : IscsiBoard(name);
    made["link"] = dice(2) == 0 ? "up" : "down";
    made["serial_number"] = "S" + std::to_string(dice(2));
    made["overheated"] = number != 1 && dice(5) == 0;
    made["details"] = {{"link_speed", 8000 * (1 + dice(2))},
                       {"firmware_version", "F" + std::to_string(dice(2))}};
    if (number % 3 == 1) {
      made["targets"] = targets(10);
      made["virtual_ports"] = json::array();
      if (dice(2) == 0)
        made["virtual_ports"].push_back(
            {{"wwpn", "300000000000000" + std::to_string(number)}, {"targets", targets(20)}});
    } else if (number % 3 == 0) {
      made["virtual_functions"] = json::array();
      if (dice(2) == 0) made["virtual_functions"].push_back("020000000000000" + std::to_string(number));
    } else {
      made["iscsi"]["alias"] = "A" + std::to_string(dice(2));
      made["iscsi_targets"] = json::array();
      if (dice(2) == 0) made["iscsi_targets"].push_back({{"name", "iqn.t"}, {"connected", dice(2) == 0}});
    }
    return made;
  };
  Start();
  Picture picture = Read();
  for (int round = 0; round < 8; ++round) {
    json boards = json::array({board(1)});
    for (unsigned int number = 2; number < 8; ++number) {
      if (dice(3) != 0) boards.push_back(board(number));
    }
    m_Fabric.Local()["boards"] = boards;
    // What cannot be read is in the picture, too.
    m_Fabric.Local()["faults"] = json::array();
    if (dice(2) == 0) m_Fabric.AddFault({{"call", "RM_GetLocalHBAInfoV4"}, {"port", kFirst}, {"status", 64}});
    ChangeAndLook();
    if (HasFatalFailure()) return;
    std::uint64_t before = m_Sequence;
    std::uint64_t now = 0;
    const Picture next = Picture::Read(*m_Library, &now);
    for (const hbadisc_change& change : Changes()) {
      ASSERT_EQ(change.sequence, ++before);
      picture.Apply(change);
    }
    ASSERT_EQ(m_Sequence, now);
    ASSERT_EQ(picture.ports.size(), next.ports.size());
    for (const auto& [name, port] : next.ports) {
      ASSERT_EQ(picture.ports.at(name).Comparable(), port.Comparable()) << name << " in round " << round;
    }
  }
}

TEST_F(Following, PortWhoseBoardIsBusyStaysWithItsMark) {
  m_Fabric.Board(1)["serial_number"] = "S2";
  Start();
  ASSERT_EQ(Read().ports.size(), 3U);
  EXPECT_TRUE(ListOf(m_Library->GetUnanswered).empty());
  m_Fabric.AddFault({{"call", "RM_GetLocalHBAInfoV4"}, {"port", kSecond}, {"status", 64}});
  ChangeAndLook();
  EXPECT_THAT(m_Library->Ports(), UnorderedElementsAre(Key(kFirst), Key(kThird))) << "described calls";
  const KeptPort kept = Read().ports.at(kSecond);
  EXPECT_EQ(kept.record.unanswered, 1U);
  EXPECT_EQ(kept.record.status, 64);
  EXPECT_STREQ(kept.record.base.base.serialNumber, "S2");
  std::uint64_t from = 3;
  EXPECT_THAT(KindsOf(ChangesSince(*m_Library, &from)), ElementsAre(HBADISC_CHANGE_UNANSWERED));
  const auto unanswered = ListOf(m_Library->GetUnanswered);
  ASSERT_EQ(unanswered.size(), 2U);
  EXPECT_EQ(unanswered[0].what, static_cast<unsigned int>(HBADISC_UNANSWERED_BOARD));
  EXPECT_EQ(unanswered[0].instance, 1U);
  EXPECT_EQ(Digits(unanswered[0].port.wwn), kSecond);
  EXPECT_EQ(unanswered[1].what, static_cast<unsigned int>(HBADISC_UNANSWERED_PORT));
  EXPECT_EQ(unanswered[1].status, 64);
  EXPECT_EQ(unanswered[1].tries, 1U);
  EXPECT_GE(unanswered[1].since, unanswered[1].lastGood);
  EXPECT_GT(unanswered[1].lastGood, 0);
  EXPECT_STREQ(m_Library->GetStatusText(unanswered[1].status), "in use");
  m_Fabric.Local()["faults"] = json::array();
  ChangeAndLook();
  EXPECT_EQ(Read().ports.at(kSecond).record.unanswered, 0U);
  // One that is positively not there goes.
  m_Fabric.Local()["boards"].erase(1);
  ChangeAndLook();
  EXPECT_THAT(Read().ports, UnorderedElementsAre(Key(kFirst), Key(kThird)));
  EXPECT_TRUE(ListOf(m_Library->GetUnanswered).empty());
}

TEST_F(Following, BoardsThatCannotBeCountedAreKeptAsLongAsTheSettingSays) {
  const Log settings(0x3FF, "DISCO_FULL_DISCOVERY:1\nDISCO_KEEP_UNANSWERED:2\n");
  Start();
  Read();
  m_Fabric.AddFault({{"call", "RM_GetAllLocalHBAInstances"}, {"status", 1}});
  ChangeAndLook();
  const Picture picture = Read();
  ASSERT_EQ(picture.ports.size(), 3U);
  EXPECT_EQ(picture.ports.at(kThird).record.unanswered, 1U);
  EXPECT_EQ(ListOf(m_Library->GetUnanswered)[0].what, static_cast<unsigned int>(HBADISC_UNANSWERED_BOARDS));
  EXPECT_TRUE(Eventually([&] { return Read().ports.empty(); }));
}

// Those of the described calls stay as a lite cycle leaves them.
TEST_F(Following, LiteCyclesTellBoardsThatGoAndDropWhatIsTooOld) {
  const Log settings(0x3FF, "DISCO_KEEP_UNANSWERED:0\n");
  Start();
  ASSERT_EQ(Read().ports.size(), 3U);
  m_Fabric.Local()["boards"].erase(2);
  m_Fabric.AddFault({{"call", "RM_GetLocalHBAInfoV4"}, {"port", kSecond}, {"status", 64}});
  ASSERT_TRUE(m_Fabric.Replace(*m_Library));
  m_Library->ChangeDiscoveryInterval(kLong);
  ASSERT_TRUE(Eventually([&] { return m_Log.Count("** DISCOVERY CYCLE DONE") == 2; }));
  EXPECT_TRUE(m_Log.Has("Doing Lite discovery cycle"));
  EXPECT_EQ(m_Library->Ports().size(), 3U);
  EXPECT_THAT(Read().ports, ElementsAre(Key(kFirst)));
}

TEST_F(Following, IscsiPortWithoutItsNamesIsKept) {
  m_Fabric.Local()["boards"].push_back(IscsiBoard("1000000000000004"));
  Start();
  ASSERT_EQ(Read().ports.size(), 4U);
  m_Fabric.AddFault({{"call", "RM_iSCSI_GetInitiatorProperties"}, {"status", 64}});
  ChangeAndLook();
  EXPECT_EQ(m_Library->Ports().size(), 3U) << "described calls";
  const KeptPort kept = Read().ports.at("1000000000000004");
  EXPECT_EQ(kept.record.unanswered, 1U);
  EXPECT_NE(kept.names.find("iqn.2020-01.example:1000000000000004"), Bytes::npos);
}

TEST_F(Following, HangingBoardLeavesWhatIsKnownSoFar) {
  m_Fabric.AddFault({{"call", "RM_GetLocalHBAInfoV4"}, {"port", kSecond}, {"hang", 8}});
  Load();
  EXPECT_EQ(m_Library->WaitForFirstPicture(0), 0);
  m_Library->Start(kLong);
  EXPECT_EQ(m_Library->WaitForFirstPicture(2000), 0);
  EXPECT_TRUE(m_Library->Ports().empty()) << "described calls";
  EXPECT_THAT(Read().ports, ElementsAre(Key(kFirst)));
  const auto unanswered = ListOf(m_Library->GetUnanswered);
  ASSERT_EQ(unanswered.size(), 2U);
  EXPECT_EQ(unanswered[0].instance, 1U);
  EXPECT_EQ(unanswered[0].status, HBADISC_STATUS_WAITING);
  EXPECT_EQ(unanswered[1].instance, 2U);
  EXPECT_EQ(unanswered[1].status, HBADISC_STATUS_NOT_ASKED);
  EXPECT_EQ(m_Library->WaitForFirstPicture(60000), 1);
  EXPECT_EQ(Read().ports.size(), 3U);
}

TEST_F(Following, HostsSayWhatTheyAnswered) {
  const std::string near = LoopbackAddress(1);
  const std::string dead = LoopbackAddress(2);
  m_Fabric.AddRemote(near, "near", {FcBoard(kRemote)});
  m_Fabric.Write();
  WriteFile(Scratch("hbahosts.lst"), near + " # near\n" + dead + "\n300.1.2.3\n");
  auto agent = std::make_unique<Agent>(m_Fabric.Path(), near);
  Start(true);
  EXPECT_EQ(Read().ports.size(), 4U);
  auto hosts = ListOf(m_Library->GetHostStates);
  ASSERT_EQ(hosts.size(), 3U);
  EXPECT_EQ(hosts[0].state, static_cast<unsigned int>(HBADISC_HOST_ANSWERED));
  EXPECT_STREQ(hosts[0].name, "near");
  EXPECT_EQ(hosts[0].ports, 1U);
  EXPECT_GT(hosts[0].answered, 0);
  EXPECT_EQ(hosts[1].state, static_cast<unsigned int>(HBADISC_HOST_REFUSED));
  EXPECT_EQ(hosts[1].tries, 1U);
  EXPECT_EQ(hosts[2].state, static_cast<unsigned int>(HBADISC_HOST_NOT_A_HOST));
  agent->Kill();
  Cycle();
  EXPECT_EQ(m_Library->Ports().count(kRemote), 0U) << "described calls";
  EXPECT_EQ(Read().ports.at(kRemote).record.unanswered, 1U);
  const auto unanswered = ListOf(m_Library->GetUnanswered);
  ASSERT_EQ(unanswered.size(), 1U);
  EXPECT_EQ(unanswered[0].host, near);
  EXPECT_EQ(ListOf(m_Library->GetHostStates)[0].ports, 1U);
  agent = std::make_unique<Agent>(m_Fabric.Path(), near);
  Cycle();
  EXPECT_EQ(Read().ports.at(kRemote).record.unanswered, 0U);
  // A host that leaves the file takes its ports along, whether it answers or not.
  agent->Kill();
  WriteFile(Scratch("hbahosts.lst"), dead + "\n");
  Cycle();
  EXPECT_EQ(Read().ports.count(kRemote), 0U);
  EXPECT_TRUE(ListOf(m_Library->GetUnanswered).empty());
}

TEST_F(Following, DescriptorAnnouncesChangesAndTheyRunOut) {
  const Log settings(0x3FF, "DISCO_FULL_DISCOVERY:1\nDISCO_CHANGE_RECORDS:2\n");
  Load();
  pollfd descriptor{m_Library->GetChangeDescriptor(), POLLIN, 0};
  ASSERT_GE(descriptor.fd, 0);
  EXPECT_EQ(poll(&descriptor, 1, 0), 0);
  m_Library->Start(kLong);
  ASSERT_EQ(poll(&descriptor, 1, 60000), 1);
  hbadisc_change changes[8];
  unsigned int count = 8;
  EXPECT_EQ(m_Library->GetChanges(0, changes, &count), 1) << "three came, two are kept";
  ASSERT_EQ(count, 2U);
  EXPECT_EQ(changes[0].sequence, 2U);
  EXPECT_EQ(Digits(changes[1].port.wwn), kThird);
  EXPECT_EQ(m_Library->GetChanges(3, changes, &count), 0);
  EXPECT_EQ(count, 0U);
  m_Library->Terminate();
  Read();
  EXPECT_THAT(KindsOf(Changes()), ElementsAre()) << "read by the walk";
  EXPECT_EQ(m_Sequence, 6U) << "a stop takes the ports away";
}

TEST_F(Following, LargerRecordTellsWhatIsKnown) {
  m_Fabric.Board(0)["details"] = {{"link_speed", 32000},     {"supported_speeds", "8000 16000 32000"},
                                  {"driver_name", "vx"},     {"pci_address", "0000:3b:00.1"},
                                  {"lun_count", 0},          {"block_devices", "sda sdb"},
                                  {"block_device_count", 2}, {"part_number", "P1"}};
  // Numbers of another provider's that happen to be the same.
  m_Fabric.Board(1)["attributes"] = {{{"id", 0x44580001}, {"value", 5}}};
  Start();
  const Picture picture = Read();
  const hba_discovery_info_V4& known = picture.ports.at(kFirst).record;
  EXPECT_EQ(known.linkSpeed, 32000000000U);
  EXPECT_THAT(std::vector(known.supportedSpeeds, known.supportedSpeeds + 4),
              ElementsAre(8000000000U, 16000000000U, 32000000000U, 0U));
  EXPECT_STREQ(known.pciAddress, "0000:3b:00.1");
  EXPECT_STREQ(known.partNumber, "P1");
  EXPECT_STREQ(known.blockDevices, "sda sdb");
  EXPECT_EQ(known.lunCount, 0U);
  EXPECT_EQ(known.blockDeviceCount, 2U);
  EXPECT_STREQ(known.firmwareVersion, "");
  const hba_discovery_info_V4& other = picture.ports.at(kSecond).record;
  EXPECT_EQ(other.linkSpeed, HBADISC_UNKNOWN_64);
  EXPECT_EQ(other.supportedSpeeds[0], HBADISC_UNKNOWN_64);
  EXPECT_EQ(other.lunCount, HBADISC_UNKNOWN_32);
}

TEST_F(Following, LogLinesAndTexts) {
  Load();
  static std::mutex s_Lock;
  static std::vector<std::string> s_Lines;
  m_Library->SetLogCallBack(
      [](unsigned int mask, const char* line, void* context) {
        const std::lock_guard guard(s_Lock);
        EXPECT_NE(mask & 0x200U, 0U);
        EXPECT_EQ(context, &s_Lines);
        s_Lines.emplace_back(line);
      },
      0x200, &s_Lines);
  m_Library->Start(kLong);
  ASSERT_EQ(m_Library->WaitForFirstPicture(60000), 1);
  ASSERT_EQ(m_CallBacks->Await(1).size(), 1U);
  m_Library->SetLogCallBack(nullptr, 0, nullptr);
  const std::lock_guard guard(s_Lock);
  EXPECT_THAT(s_Lines, testing::Contains("In-Band Discovery: Doing full discovery cycle"));
  EXPECT_EQ(m_Library->GetVersion(), HBADISC_HEADER_VERSION);
  EXPECT_STREQ(m_Library->GetLinkText(0x0201), "up, function down");
  EXPECT_STREQ(m_Library->GetHostStateText(HBADISC_HOST_TIMED_OUT), "timed out");
}

}  // namespace
}  // namespace systemtest

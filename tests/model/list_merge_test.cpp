// MergeLists: what is updated, kept, removed and added, and what the log says.

#include "model/HbaList.h"
#include "tests/support/Ports.h"
#include "tests/support/RecordedLog.h"
#include "tests/support/Testing.h"

namespace {

constexpr unsigned int kInBandMask = 2;
constexpr unsigned int kOobMask = 0x10;
constexpr char kAdding[] = "MergeLists: Adding adapter on system ";
constexpr char kNamelessGone[] = "MergeLists: No longer discovered -- removed from discovery list";

using Numbers = std::vector<std::uint64_t>;
using Lines = std::vector<RecordedLog::Line>;

std::string Gone(const std::string& system) {
  return "MergeLists: No longer discovered on system " + system + " -- removed from discovery list";
}

CHbaEntry LocalPort(unsigned int number, const std::string& system = "", unsigned int linkStatus = 2) {
  CHbaEntry port = MakePort(Info(number, 0, system));
  port.SetLinkStatus(linkStatus);
  return port;
}

CHbaEntry RemotePort(unsigned int number, int proxyOnly, const std::string& system = "") {
  const HBA_info_v4 info = Info(number, 0, system);
  const _RM_IP_INFO ip{{10, 20, 30, 240}, 0, 0, 0};
  return CHbaEntry(&info, nullptr, 0, nullptr, proxyOnly, &ip);
}

class ListMerge : public testing::Test {
 protected:
  int Merge(int inBand, int removeMissing) { return m_Current.MergeLists(&m_New, inBand, removeMissing); }

  RecordedLog m_Log;
  CHbaList m_Current{ListRank::kCurrent};
  CHbaList m_New{ListRank::kGathered};
};

TEST_F(ListMerge, EqualListsChangeNothing) {
  for (CHbaList* list : {&m_Current, &m_New}) {
    Add(*list, LocalPort(1, "host"));
    Add(*list, RemotePort(2, 0));
  }
  m_Current.SetModified(0);
  EXPECT_EQ(Merge(1, 1), 0);
  EXPECT_EQ(Merge(0, 1), 0);
  EXPECT_EQ(m_Current.MergeLists(nullptr, 1, 1), 0);
  EXPECT_EQ(m_Current.MergeLists(&m_Current, 1, 1), 0);
  EXPECT_EQ(Names(m_Current), (Numbers{1, 2}));
  EXPECT_EQ(m_Current.IsModified(), 0);
  EXPECT_EQ(m_Log.Take(), Lines{});
  EXPECT_EQ(Listed(m_Current, 1).GetMergeMark(), 0U);
  EXPECT_EQ(Listed(m_New, 1).GetMergeMark(), 0xABU);
}

TEST_F(ListMerge, NewPortsAreAddedAndLogged) {
  CHbaEntry marked = LocalPort(1, "host");
  marked.SetDiscoveryMark(3);
  Add(m_New, marked);
  Add(m_New, LocalPort(2));
  EXPECT_EQ(Merge(1, 0), 1);
  EXPECT_EQ(m_Current.IsModified(), 1);
  EXPECT_EQ(Listed(m_Current, 1).GetDiscoveryMark(), 3U);
  EXPECT_EQ(m_Log.Take(), (Lines{{kInBandMask, 1, std::string(kAdding) + "host"}, {kInBandMask, 2, kAdding}}));
  CHbaList empty;
  EXPECT_EQ(empty.MergeLists(&m_New, 0, 0), 1);
  EXPECT_EQ(m_Log.Take()[0], (RecordedLog::Line{kOobMask, 1, std::string(kAdding) + "host"}));
}

TEST_F(ListMerge, FullSystemNameIsCutInTheNewListOnly) {
  const std::string full(32, 's');
  Add(m_New, LocalPort(1, full));
  EXPECT_EQ(Merge(1, 1), 1);
  EXPECT_EQ(m_Log.Take()[0].text, kAdding + full.substr(1));
  EXPECT_EQ(Listed(m_Current, 1).GetHbaInfo()->hostName[31], 's');
  EXPECT_EQ(Listed(m_New, 1).GetHbaInfo()->hostName[31], '\0');

  CHbaList next;
  Add(next, LocalPort(1, full));
  EXPECT_EQ(m_Current.MergeLists(&next, 1, 1), 0);
  CHbaList none;
  EXPECT_EQ(m_Current.MergeLists(&none, 1, 1), 1);
  EXPECT_EQ(m_Log.Take()[0].text, Gone(full.substr(1)));
}

TEST_F(ListMerge, InBandKeepsHotLocalPortsAndThoseBehindAProxy) {
  Add(m_Current, LocalPort(1, "", kLinkOverTemperature));
  Add(m_Current, RemotePort(2, 0));
  EXPECT_EQ(Merge(1, 1), 0);
  EXPECT_EQ(Names(m_Current), (Numbers{1, 2}));
  EXPECT_EQ(Listed(m_Current, 1).ProxyOnly(), 0);
  EXPECT_EQ(Listed(m_Current, 1).GetMergeMark(), 0U);
  EXPECT_EQ(Listed(m_Current, 2).ProxyOnly(), 1);
  EXPECT_EQ(m_Log.Take(),
            (Lines{{kInBandMask, 1, "MergeLists: Keeping local adapter with above operating temperature"}}));
}

TEST_F(ListMerge, InBandRemovesTheRest) {
  CHbaEntry remoteHot = MakePort(Info(4, 0, ""), 0);
  remoteHot.SetLinkStatus(kLinkOverTemperature);
  CHbaEntry marked = LocalPort(2);
  marked.SetMergeMark(0x55);
  for (const CHbaEntry& port : {LocalPort(1, "host"), marked, LocalPort(3), remoteHot}) Add(m_Current, port);
  EXPECT_EQ(Merge(1, 0), 0) << "a partial pass removes nothing";
  EXPECT_EQ(Listed(m_Current, 2).GetMergeMark(), 0x55U);
  Add(m_New, LocalPort(3));
  EXPECT_EQ(Merge(1, 1), 1);
  EXPECT_EQ(Names(m_Current), Numbers{3});
  EXPECT_EQ(m_Log.Take(), (Lines{{kInBandMask, 1, Gone("host")},
                                 {kInBandMask, 2, kNamelessGone},
                                 {kInBandMask, 4, kNamelessGone}}));
}

TEST_F(ListMerge, OutOfBandRemovesProxyOnlyPorts) {
  CHbaEntry hot = RemotePort(1, 1, "host");
  hot.SetLinkStatus(kLinkOverTemperature);
  for (const CHbaEntry& port : {hot, RemotePort(2, 0, "host"), RemotePort(3, 1)}) Add(m_Current, port);
  EXPECT_EQ(Merge(0, 0), 0) << "a partial pass removes nothing";
  EXPECT_EQ(Merge(0, 1), 1);
  EXPECT_EQ(Names(m_Current), Numbers{2});
  EXPECT_EQ(Listed(m_Current, 2).GetMergeMark(), 0U);
  EXPECT_EQ(m_Log.Take(), (Lines{{kOobMask, 1, Gone("host (10.20.30.240)")}, {kOobMask, 3, kNamelessGone}}));
}

TEST_F(ListMerge, PortLostBetweenTwoMergesOfOneCycleComesBack) {
  Add(m_New, LocalPort(1));
  Merge(1, 0);
  Merge(1, 0);
  ASSERT_EQ(Listed(m_New, 1).GetMergeMark(), 0xABU);
  Remove(m_Current, 1);
  EXPECT_EQ(Merge(1, 1), 1);
  EXPECT_EQ(Names(m_Current), Numbers{1});
}

}  // namespace

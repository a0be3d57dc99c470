// MergeLists: what is updated, kept, removed and added, and what the log says.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "discovery/HbaDiscoveryList.h"
#include "tests/model/RecordedLog.h"
#include "tests/model/Samples.h"

namespace {

constexpr unsigned int kInBandMask = 2;
constexpr unsigned int kOobMask = 0x10;

class ListMerge : public testing::Test {
 protected:
  void SetUp() override { TakeLogLines(); }

  static CHbaEntry LocalPort(unsigned int number, const char* system = "") {
    const HBA_info_v4 info = PortInfo(number, system);
    return CHbaEntry(&info, nullptr, 1, nullptr, 0, nullptr);
  }

  static CHbaEntry RemotePort(unsigned int number, int proxyOnly, const char* system = "") {
    const HBA_info_v4 info = PortInfo(number, system);
    const _RM_IP_INFO ip{{10, 20, 30, 240}, 0, 0, 0};
    return CHbaEntry(&info, nullptr, 0, nullptr, proxyOnly, &ip);
  }

  static void Add(CHbaList& list, const CHbaEntry& port) EXCLUDES(list) {
    const CHbaListGuard guard(list);
    list.AddEntry(&port);
  }

  // A copy of the listed port; one with merge mark 0x1234 when there is none.
  static CHbaEntry Find(CHbaList& list, unsigned int number) EXCLUDES(list) {
    const CHbaListGuard guard(list);
    CHbaEntry none;
    none.SetMergeMark(0x1234);
    const CHbaEntry* port = list.FindEntry(Name(number).wwn);
    return port == nullptr ? none : *port;
  }

  static bool Has(CHbaList& list, unsigned int number) { return Find(list, number).GetMergeMark() != 0x1234; }

  CHbaList m_Current{ListRank::kCurrent};
  CHbaList m_New{ListRank::kGathered};
};

TEST_F(ListMerge, EqualListsChangeNothing) {
  for (CHbaList* list : {&m_Current, &m_New}) {
    Add(*list, LocalPort(1, "host"));
    Add(*list, RemotePort(2, 0));
  }
  m_Current.SetModified(0);
  EXPECT_EQ(m_Current.MergeLists(&m_New, 1, 1), 0);
  EXPECT_EQ(m_Current.MergeLists(&m_New, 0, 1), 0);
  EXPECT_EQ(m_Current.IsModified(), 0);
  EXPECT_EQ(TakeLogLines(), std::vector<LogLine>{});
  EXPECT_EQ(Find(m_Current, 1).GetMergeMark(), 0U);
  EXPECT_EQ(Find(m_New, 1).GetMergeMark(), 0xABU);
}

TEST_F(ListMerge, NullAndSelfChangeNothing) {
  Add(m_Current, LocalPort(1));
  EXPECT_EQ(m_Current.MergeLists(nullptr, 1, 1), 0);
  EXPECT_EQ(m_Current.MergeLists(&m_Current, 1, 1), 0);
  EXPECT_EQ(m_Current.GetCount(), 1U);
}

TEST_F(ListMerge, ChangedPortIsUpdatedInPlace) {
  Add(m_Current, LocalPort(1));
  CHbaEntry newer = LocalPort(1);
  newer.SetLinkStatus(1);
  newer.AddVF(Name(7));
  Add(m_New, newer);
  EXPECT_EQ(m_Current.MergeLists(&m_New, 1, 0), 1);
  EXPECT_EQ(Find(m_Current, 1).GetLinkStatus(), 1U);
  EXPECT_EQ(Find(m_Current, 1).GetVFCount(), 1U);
  EXPECT_EQ(m_Current.MergeLists(&m_New, 1, 1), 0);
}

TEST_F(ListMerge, NewPortsAreAddedAndLogged) {
  CHbaEntry marked = LocalPort(1, "host");
  marked.SetDiscoveryMark(3);
  Add(m_New, marked);
  Add(m_New, LocalPort(2));
  EXPECT_EQ(m_Current.MergeLists(&m_New, 1, 0), 1);
  EXPECT_EQ(m_Current.IsModified(), 1);
  EXPECT_EQ(Find(m_Current, 1).GetDiscoveryMark(), 3U);
  EXPECT_EQ(TakeLogLines(), (std::vector<LogLine>{{kInBandMask, 1, "MergeLists: Adding adapter on system host"},
                                                  {kInBandMask, 2, "MergeLists: Adding adapter on system "}}));
  CHbaList empty;
  EXPECT_EQ(empty.MergeLists(&m_New, 0, 0), 1);
  EXPECT_EQ(TakeLogLines()[0], (LogLine{kOobMask, 1, "MergeLists: Adding adapter on system host"}));
}

TEST_F(ListMerge, FullSystemNameIsCutInTheNewListOnly) {
  const std::string full(32, 's');
  Add(m_New, LocalPort(1, full.c_str()));
  EXPECT_EQ(m_Current.MergeLists(&m_New, 1, 1), 1);
  EXPECT_EQ(TakeLogLines()[0].text, "MergeLists: Adding adapter on system " + full.substr(1));
  EXPECT_EQ(Find(m_Current, 1).GetHbaInfo()->hostName[31], 's');
  EXPECT_EQ(Find(m_New, 1).GetHbaInfo()->hostName[31], '\0');

  CHbaList next;
  Add(next, LocalPort(1, full.c_str()));
  EXPECT_EQ(m_Current.MergeLists(&next, 1, 1), 0);

  CHbaList none;
  EXPECT_EQ(m_Current.MergeLists(&none, 1, 1), 1);
  EXPECT_EQ(TakeLogLines()[0].text,
            "MergeLists: No longer discovered on system " + full.substr(1) + " -- removed from discovery list");
}

TEST_F(ListMerge, PartialPassRemovesNothing) {
  Add(m_Current, LocalPort(1));
  Add(m_Current, RemotePort(2, 1));
  CHbaEntry marked = LocalPort(3);
  marked.SetMergeMark(0x55);
  Add(m_Current, marked);
  EXPECT_EQ(m_Current.MergeLists(&m_New, 1, 0), 0);
  EXPECT_EQ(m_Current.MergeLists(&m_New, 0, 0), 0);
  EXPECT_EQ(m_Current.GetCount(), 3U);
  EXPECT_EQ(Find(m_Current, 3).GetMergeMark(), 0x55U);
  EXPECT_EQ(TakeLogLines(), std::vector<LogLine>{});
}

TEST_F(ListMerge, InBandKeepsHotLocalPortsAndThoseBehindAProxy) {
  CHbaEntry hot = LocalPort(1);
  hot.SetLinkStatus(kLinkOverTemperature);
  Add(m_Current, hot);
  Add(m_Current, RemotePort(2, 0));
  EXPECT_EQ(m_Current.MergeLists(&m_New, 1, 1), 0);
  EXPECT_EQ(m_Current.GetCount(), 2U);
  EXPECT_EQ(Find(m_Current, 1).ProxyOnly(), 0);
  EXPECT_EQ(Find(m_Current, 1).GetMergeMark(), 0U);
  EXPECT_EQ(Find(m_Current, 2).ProxyOnly(), 1);
  EXPECT_EQ(TakeLogLines(),
            (std::vector<LogLine>{
                {kInBandMask, 1, "MergeLists: Keeping local adapter with above operating temperature"}}));
}

TEST_F(ListMerge, InBandRemovesTheRest) {
  Add(m_Current, LocalPort(1, "host"));
  Add(m_Current, LocalPort(2));
  Add(m_Current, LocalPort(3));
  CHbaEntry remoteHot = LocalPort(4);
  const HBA_info_v4 info = PortInfo(4);
  remoteHot = CHbaEntry(&info, nullptr, 0, nullptr, 0, nullptr);
  remoteHot.SetLinkStatus(kLinkOverTemperature);
  Add(m_Current, remoteHot);
  Add(m_New, LocalPort(3));
  EXPECT_EQ(m_Current.MergeLists(&m_New, 1, 1), 1);
  EXPECT_EQ(m_Current.GetCount(), 1U);
  EXPECT_TRUE(Has(m_Current, 3));
  const std::string nameless = "MergeLists: No longer discovered -- removed from discovery list";
  EXPECT_EQ(
      TakeLogLines(),
      (std::vector<LogLine>{
          {kInBandMask, 1, "MergeLists: No longer discovered on system host -- removed from discovery list"},
          {kInBandMask, 2, nameless},
          {kInBandMask, 4, nameless}}));
}

TEST_F(ListMerge, OutOfBandRemovesProxyOnlyPorts) {
  CHbaEntry hot = RemotePort(1, 1, "host");
  hot.SetLinkStatus(kLinkOverTemperature);
  Add(m_Current, hot);
  Add(m_Current, RemotePort(2, 0, "host"));
  Add(m_Current, RemotePort(3, 1));
  EXPECT_EQ(m_Current.MergeLists(&m_New, 0, 1), 1);
  EXPECT_EQ(m_Current.GetCount(), 1U);
  EXPECT_TRUE(Has(m_Current, 2));
  EXPECT_EQ(Find(m_Current, 2).GetMergeMark(), 0U);
  EXPECT_EQ(
      TakeLogLines(),
      (std::vector<LogLine>{
          {kOobMask, 1,
           "MergeLists: No longer discovered on system host (10.20.30.240) -- removed from discovery list"},
          {kOobMask, 3, "MergeLists: No longer discovered -- removed from discovery list"}}));
}

TEST_F(ListMerge, PortLostBetweenTwoMergesOfOneCycleComesBack) {
  Add(m_New, LocalPort(1));
  m_Current.MergeLists(&m_New, 1, 0);
  m_Current.MergeLists(&m_New, 1, 0);
  ASSERT_EQ(Find(m_New, 1).GetMergeMark(), 0xABU);
  {
    const CHbaListGuard guard(m_Current);
    const CHbaEntry port = LocalPort(1);
    m_Current.RemoveEntry(&port);
  }
  EXPECT_EQ(m_Current.MergeLists(&m_New, 1, 1), 1);
  EXPECT_TRUE(Has(m_Current, 1));
}

}  // namespace

// One host's boards, the current list, and cycles over them.
#ifndef TESTS_INBAND_ENUMERATION_FIXTURE_H_
#define TESTS_INBAND_ENUMERATION_FIXTURE_H_

#include "inband/LocalHbaInfo.h"
#include "tests/support/RecordedLog.h"
#include "tests/support/ScriptedProvider.h"
#include "tests/support/Testing.h"

class Enumeration : public testing::Test {
 protected:
  using List = std::vector<std::uint64_t>;

  Enumeration() {
    // The names known behind local ports outlive a cycle, and so a test.
    DiscoWWPNListGuard guard(CPortInfo::m_AllDiscoPorts);
    while (const CDiscoWWPNEntry* entry = CPortInfo::m_AllDiscoPorts.GetFirstEntry()) {
      CPortInfo::m_AllDiscoPorts.RemoveEntry(entry);
    }
  }

  ScriptedBoard& AddBoard(std::uint64_t number, std::uint32_t features = 0) {
    return m_Provider.AddBoard(Info(kPort + number, features));
  }

  int FullCycle() {
    m_New = std::make_shared<CHbaList>();
    return m_Ports.BuildDiscoPortsList(m_Current, m_New, nullptr, 0, 0);
  }
  int LiteCycle(unsigned int mark = 1) {
    return m_Ports.BuildDiscoPortsList(m_Current, nullptr, m_Slow, 1, mark);
  }
  // A full cycle whose workers find nothing below the ports, and whose result becomes the current list.
  void Settle() {
    ASSERT_EQ(FullCycle(), 0);
    {
      HbaListGuard guard(*m_New);
      for (CHbaEntry* port = m_New->GetFirstEntry(); port != nullptr; port = m_New->GetNextEntry()) {
        port->ClearBelow();
      }
    }
    m_Current->MergeLists(m_New.get(), 1, 1);
  }

  void ChangeListed(std::uint64_t wwpn, const std::function<void(CHbaEntry&)>& change) {
    HbaListGuard guard(*m_Current);
    CHbaEntry* entry = m_Current->FindEntry(Name(wwpn).wwn);
    ASSERT_NE(entry, nullptr);
    change(*entry);
  }
  CHbaEntry ListedPort(std::uint64_t wwpn) { return Listed(*m_Current, wwpn); }
  List ToVisit() const { return Names(*m_Ports.GetDiscoPortsList()); }

  RecordedLog m_Log;
  ScriptedProvider m_Provider;
  std::shared_ptr<CHbaList> m_Current = std::make_shared<CHbaList>(ListRank::kCurrent);
  std::shared_ptr<CHbaList> m_New;
  std::shared_ptr<CHbaList> m_Slow;
  CPortInfo m_Ports;
};

#endif  // TESTS_INBAND_ENUMERATION_FIXTURE_H_

// One host's boards, the current list, and cycles over them.
#ifndef TESTS_INBAND_ENUMERATION_FIXTURE_H_
#define TESTS_INBAND_ENUMERATION_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "discovery/HbaDiscoveryListKey.h"
#include "inband/LocalHbaInfo.h"
#include "tests/inband/recorded_log.h"
#include "tests/inband/scripted_provider.h"

constexpr std::uint64_t kPort = 0x1000025DC9000000;    // + board number
constexpr std::uint64_t kTarget = 0x5000000000000000;  // + number

class Enumeration : public testing::Test {
 protected:
  Enumeration() {
    // The names known behind local ports outlive a cycle, and so a test.
    CDiscoWWPNListGuard guard(CPortInfo::m_AllDiscoPorts);
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
  // A full cycle whose result becomes the current list.
  void Settle() {
    ASSERT_EQ(FullCycle(), 0);
    m_Current->MergeLists(m_New.get(), 1, 1);
  }

  // A copy of the listed port, or a port of name 0.
  static CHbaEntry Listed(const std::shared_ptr<CHbaList>& list, std::uint64_t wwpn) {
    CHbaListGuard guard(*list);
    const CHbaEntry* entry = list->FindEntry(Name(wwpn).wwn);
    return entry == nullptr ? CHbaEntry() : *entry;
  }
  static void Change(const std::shared_ptr<CHbaList>& list, std::uint64_t wwpn,
                     const std::function<void(CHbaEntry&)>& change) {
    CHbaListGuard guard(*list);
    CHbaEntry* entry = list->FindEntry(Name(wwpn).wwn);
    ASSERT_NE(entry, nullptr);
    change(*entry);
  }
  std::vector<std::uint64_t> ToVisit() const { return Names(m_Ports.GetDiscoPortsList()); }
  static std::vector<std::uint64_t> Names(const std::shared_ptr<CHbaList>& list) {
    std::vector<std::uint64_t> names;
    if (list == nullptr) return names;
    CHbaListGuard guard(*list);
    for (const CHbaEntry* entry = list->GetFirstEntry(); entry != nullptr; entry = list->GetNextEntry()) {
      names.push_back(WwpnKey(entry->GetHbaInfo()->portWwn));
    }
    return names;
  }

  using List = std::vector<std::uint64_t>;

  RecordedLog m_Log;
  ScriptedProvider m_Provider;
  std::shared_ptr<CHbaList> m_Current = std::make_shared<CHbaList>(ListRank::kCurrent);
  std::shared_ptr<CHbaList> m_New;
  std::shared_ptr<CHbaList> m_Slow;
  CPortInfo m_Ports;
};

#endif  // TESTS_INBAND_ENUMERATION_FIXTURE_H_

// The adapter ports of this host: which there are, which of them the workers have to visit in a cycle, and
// whether something changed that a lite cycle cannot take in.
//
// Thread safety: the in-band thread only; the lists lock themselves. Of two lists the current one is locked
// first, then the slow list or the list of ports to visit; the new list and m_AllDiscoPorts are locked alone.
// No list is locked during a provider call, except m_AllDiscoPorts, which nobody else uses. Ownership: shares
// the cycle's lists. The list of ports to visit is made here and shared with the workers, who may need it
// longer than this object lives.
#ifndef INBAND_LOCALHBAINFO_H_
#define INBAND_LOCALHBAINFO_H_

#include <memory>
#include <optional>
#include <utility>

#include "inband/InitiatorNames.h"
#include "inband/StopQuery.h"
#include "model/Answers.h"
#include "model/HbaList.h"
#include "model/Wwpns.h"
#include "rmapi/rmapi.h"

class CPortInfo {
 public:
  CPortInfo() = default;
  CPortInfo(const CPortInfo& other);             // copies nothing; the mark becomes 0xFFFFFFFF
  CPortInfo& operator=(const CPortInfo& other);  // only drops the list of ports to visit
  virtual ~CPortInfo() = default;

  // What BuildDiscoPortsList and GetLocalPorts return. All but kGoOn ask for a full cycle.
  static constexpr int kGoOn = 0;
  static constexpr int kTargetsChanged = 1;    // the WWPNs known behind local ports
  static constexpr int kPortStateChanged = 2;  // a local port's link
  static constexpr int kVFCountChanged = 3;    // a local port's virtual functions

  // Enumerates the local ports. A full cycle (`lite` 0) puts every port on `newList` and on the list of ports
  // to visit. A lite one stamps known ports in `mainList` with `mark`, puts new ones there, and visits the new
  // and those whose targets may still change; of the rest of its checks the first that fails decides the
  // result. There is no list of ports to visit when the result is not kGoOn or when there are no boards. Lists
  // may be null where a cycle has none.
  int BuildDiscoPortsList(std::shared_ptr<CHbaList> mainList, std::shared_ptr<CHbaList> newList,
                          const std::shared_ptr<CHbaList>& slowList, int lite, unsigned int mark);

  // Reads m_NumLocalHbas boards. With kGoOn, and only then, m_NumLocalHbas becomes the number that could be
  // read; their records stand at the front of `boards`.
  int GetLocalPorts(local_hba_info* boards);

  // Of the ports to visit, leaves those that this lite cycle has work for.
  void ProcessLiteDiscovery(CHbaList* slowList);

  // Adds the targets behind a local port, given by its record or its WWN, to m_AllDiscoPorts.
  void UpdateAllDiscoPortsListWithTargets(const unsigned char* portInfo);

  std::shared_ptr<CHbaList> GetDiscoPortsList() const { return m_pDiscoPortsList; }
  unsigned int GetNumberOfDiscoPorts() const {
    return m_pDiscoPortsList == nullptr ? 0U : m_pDiscoPortsList->GetCount();
  }
  unsigned int GetNumberOfLocalHbas() const { return m_NumLocalHbas; }

  // A lite cycle's own reads, which wait for those of the workers of killed cycles, end when it says so.
  void SetStopQuery(StopQuery stopped) { m_Stopped = std::move(stopped); }

  // Where the answers of boards are noted; null, as at first: nowhere. Not copied.
  void SetAnswers(std::shared_ptr<Answers> answers) { m_Answers = std::move(answers); }

  // Takes the port of each board as soon as the board is read; null, as at first: nobody wants to know so
  // early.
  void SetSeen(std::shared_ptr<CHbaList> seen) { m_pSeen = std::move(seen); }

  // Every target WWPN seen behind a local port since the process started; a name is never taken out. Never
  // destroyed, because the in-band thread may still run when the process exits.
  static CDiscoWWPNList& m_AllDiscoPorts;

 private:
  // A local board once it has been read.
  struct LocalBoard {
    HBA_info_v4 info{};
    unsigned int linkStatus = 0;
    InitiatorNames names;  // iSCSI boards only
  };

  void BeginCycle();
  std::unique_ptr<unsigned int[]> ReadInstances();
  AnswerBook<unsigned int>* Boards() const { return m_Answers == nullptr ? nullptr : &m_Answers->boards; }
  int EnumerateBoards(const unsigned int* instances);
  static CHbaEntry EntryOf(const LocalBoard& board);
  void AddLocalPort(const LocalBoard& board);
  void BeginWithListed(const LocalBoard& board, CHbaEntry* entry) const;

  // Nothing when the current list does not know the port.
  std::optional<int> CheckKnownPort(const LocalBoard& board);
  std::optional<int> StampKnownPort(const LocalBoard& board);
  bool HasVFCountChanged(const LocalBoard& board) const;
  void RevisitWhileRetriesLast(const LocalBoard& board);
  void UpdateISCSIPort(const LocalBoard& board);

  static int SettleDiscoPortFlags();

  std::shared_ptr<CHbaList> m_pDiscoPortsList;
  std::shared_ptr<CHbaList> m_pMainHbaList;
  std::shared_ptr<CHbaList> m_pNewHbaList;
  int m_LiteDiscovery = 0;
  unsigned int m_DiscoveryMark = 0;
  unsigned int m_NumLocalHbas = 0;
  StopQuery m_Stopped;
  std::shared_ptr<Answers> m_Answers;
  std::shared_ptr<CHbaList> m_pSeen;
};

#endif  // INBAND_LOCALHBAINFO_H_

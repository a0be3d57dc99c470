#include "inband/LocalHbaInfo.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "inband/PortKind.h"
#include "inband/RecordBuffer.h"
#include "log/DiscoveryLog.h"

namespace {

constexpr unsigned int kFirstBoardRoom = 256;
constexpr int kLockedTries = 3;

void AddTo(CHbaList* list, const CHbaEntry& entry) {
  if (list == nullptr) return;
  HbaListGuard guard(*list);
  list->AddEntry(&entry);
}

// False when the board is to be left out. That it is not found is an answer, too.
bool ReadBoard(local_hba_info* record, unsigned int number, HBA_info_v4* info,
               AnswerBook<unsigned int>::Question& question) {
  int status = RM_STATUS_LOCKED;
  for (int tries = 0; tries < kLockedTries && status == RM_STATUS_LOCKED; ++tries) {
    *info = {};
    status = RM_GetLocalHBAInfoV4(record, info);
  }
  question.Answer(status, status == RM_STATUS_OK || status == RM_STATUS_NOT_FOUND);
  if (status == RM_STATUS_OK) question.NamesPort(info->portWwn);
  switch (status) {
    case RM_STATUS_OK:
      return true;
    case RM_STATUS_LOCKED:
      disco_printf(kLogLocalPorts, nullptr,
                   "RM_GetLocalHBAInfo for local HBA board number %d locked, skipping HBA", number);
      return false;
    case RM_STATUS_NOT_FOUND:
      disco_printf(kLogLocalPorts, nullptr,
                   "RM_GetLocalHBAInfo for local HBA board number %d not found, skipping HBA", number);
      return false;
    default:
      disco_printf(kLogLocalPorts, nullptr,
                   "RM_GetLocalHBAInfo for local HBA board number %d returned error %d", number, status);
      return false;
  }
}

// Moves what the provider said about a board to the first free record.
void KeepRecord(const local_hba_info& from, local_hba_info* to, const HBA_info_v4& info) {
  std::memmove(to, &from, offsetof(local_hba_info, portWwn));
  std::memcpy(to->portWwn, info.portWwn, sizeof(to->portWwn));
}

// Without its names the board is left out, though it could be read.
bool ReadNames(const HBA_info_v4& info, InitiatorNames* names, AnswerBook<unsigned int>::Question& question) {
  const int status = names->Read(nullptr, info.portWwn);
  if (status != RM_STATUS_OK) question.Answer(status, false);
  if (status != RM_STATUS_OK) {
    disco_printf(kLogLocalPorts | kLogDetails, info.portWwn, "Local port Could not get iSCSI names (error %d)",
                 status);
    return false;
  }
  disco_printf(kLogInBand | kLogOob, info.portWwn, "Local port iSCSI initiator name='%s'\n",
               names->GetInitiatorName());
  return true;
}

}  // namespace

CDiscoWWPNList& CPortInfo::m_AllDiscoPorts = *new CDiscoWWPNList;

CPortInfo::CPortInfo(const CPortInfo& /*other*/) : m_DiscoveryMark(0xFFFFFFFFU) {}

CPortInfo& CPortInfo::operator=(const CPortInfo& other) {
  if (this != &other) m_pDiscoPortsList.reset();
  return *this;
}

int CPortInfo::BuildDiscoPortsList(std::shared_ptr<CHbaList> mainList, std::shared_ptr<CHbaList> newList,
                                   const std::shared_ptr<CHbaList>& slowList, int lite, unsigned int mark) {
  m_pMainHbaList = std::move(mainList);
  m_pNewHbaList = std::move(newList);
  m_LiteDiscovery = lite;
  m_DiscoveryMark = mark;
  BeginCycle();

  const std::unique_ptr<unsigned int[]> instances = ReadInstances();
  disco_printf(kLogInBand, nullptr, "Getting local HBA info (%d local HBAs)", m_NumLocalHbas);
  int result = kGoOn;
  if (m_NumLocalHbas != 0) {
    result = EnumerateBoards(instances.get());
    if (result == kGoOn && m_LiteDiscovery != 0 && m_pDiscoPortsList != nullptr) {
      result = SettleDiscoPortFlags();
      if (result == kGoOn) ProcessLiteDiscovery(slowList.get());
    }
  }
  disco_printf(kLogInBand, nullptr, "Building disco port list done");
  if (result != kGoOn) m_pDiscoPortsList.reset();
  return result;
}

void CPortInfo::BeginCycle() {
  m_pDiscoPortsList.reset();
  {
    DiscoWWPNListGuard guard(m_AllDiscoPorts);
    m_AllDiscoPorts.ResetCycleDiscoveredPorts();
    m_AllDiscoPorts.SetListChanged(0);
  }
  if (m_pMainHbaList != nullptr) m_pMainHbaList->SetModified(0);
}

// The numbers of the boards, m_NumLocalHbas of them.
std::unique_ptr<unsigned int[]> CPortInfo::ReadInstances() {
  unsigned int room = kFirstBoardRoom;
  m_NumLocalHbas = room;
  AnswerBook<unsigned int>::Question question(Boards(), kBoardCount);
  auto instances = AllocateRecords<unsigned int>(room);
  int status = RM_STATUS_OK;
  if (instances != nullptr) status = RM_GetAllLocalHBAInstances(&m_NumLocalHbas, instances.get());
  if (status == RM_STATUS_BUFFER_TOO_SMALL) {
    room = m_NumLocalHbas;
    instances = AllocateRecords<unsigned int>(room);
    if (instances != nullptr) status = RM_GetAllLocalHBAInstances(&m_NumLocalHbas, instances.get());
  }
  if (instances == nullptr) {
    disco_printf(kLogLocalPorts, nullptr, "Failed to allocate memory for %d board instances", m_NumLocalHbas);
    m_NumLocalHbas = 0;
  } else if (status != RM_STATUS_OK) {
    disco_printf(kLogLocalPorts, nullptr, "Error %d getting local board instances", status);
    m_NumLocalHbas = 0;
  }
  m_NumLocalHbas = std::min(m_NumLocalHbas, room);
  const bool counted = instances != nullptr && status == RM_STATUS_OK;
  question.Answer(status, counted || status == RM_STATUS_NOT_FOUND);
  if (counted && m_Answers != nullptr) m_Answers->SetBoards(instances.get(), m_NumLocalHbas);
  return instances;
}

int CPortInfo::EnumerateBoards(const unsigned int* instances) {
  const auto boards = AllocateRecords<local_hba_info>(m_NumLocalHbas);
  if (boards == nullptr) {
    disco_printf(kLogLocalPorts, nullptr, "Failed to allocate memory for %d local board info structs.",
                 m_NumLocalHbas);
    m_NumLocalHbas = 0;
    return kGoOn;
  }
  for (unsigned int i = 0; i < m_NumLocalHbas; ++i) {
    boards[i].instance = instances[i];
    boards[i].boardCount = m_NumLocalHbas;
  }
  m_pDiscoPortsList = std::make_shared<CHbaList>();
  return GetLocalPorts(boards.get());
}

int CPortInfo::GetLocalPorts(local_hba_info* boards) {
  unsigned int kept = 0;
  for (unsigned int i = 0; i < m_NumLocalHbas; ++i) {
    LocalBoard board;
    // It lasts as long as anything about the board is asked here.
    AnswerBook<unsigned int>::Question question(Boards(), boards[i].instance);
    if (!ReadBoard(&boards[i], i, &board.info, question)) continue;
    KeepRecord(boards[i], &boards[kept], board.info);
    board.linkStatus = boards[kept].linkStatus;
    AddTo(m_pSeen.get(), EntryOf(board));
    const unsigned int features = board.info.specialFeatures;
    if (IsISCSIPort(features)) {
      if (!ReadNames(board.info, &board.names, question)) continue;
    } else if (!IsNICPort(features) && !IsTargetModePort(board.info)) {
      UpdateAllDiscoPortsListWithTargets(board.info.portWwn);
    }
    const std::optional<int> checked = m_LiteDiscovery != 0 ? CheckKnownPort(board) : std::nullopt;
    if (!checked) {
      AddLocalPort(board);
    } else if (*checked != kGoOn) {
      return *checked;
    }
    ++kept;
  }
  m_NumLocalHbas = kept;
  return kGoOn;
}

CHbaEntry CPortInfo::EntryOf(const LocalBoard& board) {
  const HBA_info_v4& info = board.info;
  CHbaEntry entry(&info, nullptr, 1, nullptr, 0, nullptr);
  entry.SetHbaInfoValid();
  entry.SetLinkStatus(board.linkStatus);
  entry.SetSpecialFeatures(info.specialFeatures);
  return entry;
}

void CPortInfo::AddLocalPort(const LocalBoard& board) {
  const HBA_info_v4& info = board.info;
  disco_printf(kLogInBand, info.portWwn,
               "Adding local adapter to discovery list: vpdport#=%.8s, phyport#=%d, type=%s, model=%.80s",
               VPDPortNumberText(info), info.physicalPort, PortTypeWord(info.specialFeatures), info.model);
  CHbaEntry entry = EntryOf(board);
  if (IsISCSIPort(info.specialFeatures)) board.names.StoreIn(entry.GetISCSINames());
  entry.SetNothingRead();
  if (IsTargetModePort(info)) entry.ClearBelow();
  if (m_LiteDiscovery != 0) {
    AddTo(m_pMainHbaList.get(), entry);
  } else {
    BeginWithListed(board, &entry);
    AddTo(m_pNewHbaList.get(), entry);
  }
  AddTo(m_pDiscoPortsList.get(), entry);
}

// What the current list knows of the port's targets.
void CPortInfo::BeginWithListed(const LocalBoard& board, CHbaEntry* entry) const {
  if (m_pMainHbaList == nullptr) return;
  CHbaList& current = *m_pMainHbaList;
  HbaListGuard guard(current);
  const CHbaEntry* listed = current.FindEntry(board.info.portWwn);
  if (listed == nullptr) return;
  entry->SetOldTargetCount(listed->GetTargetCount());
  if (!IsNICPort(board.info.specialFeatures) && !IsTargetModePort(board.info)) entry->BeginWithTargets(*listed);
}

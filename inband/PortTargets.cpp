#include "inband/PortTargets.h"

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "inband/Gathering.h"
#include "inband/LocalTurn.h"
#include "inband/PortKind.h"
#include "inband/RecordBuffer.h"
#include "thread/zyl_thread.h"

namespace {

constexpr int kTries = 5;
constexpr unsigned int kDriverTypePause = 500000;  // microseconds
constexpr unsigned int kPause = 100000;            // microseconds
constexpr unsigned int kDriverTypes = 15;
// Bit n: a driver of type n maps every node that exists by itself.
constexpr unsigned int kMappingDrivers = 0x21F8;

LocalReads& gs_LocalTargetReads = *new LocalReads;

// Room of the next target list, in records. Atomic: shared by all readers, and a stale value only costs one
// more call.
constinit std::atomic<std::uint32_t> gs_LastTargetCount{16};

bool IsBusy(int status) {
  return status == RM_STATUS_BUSY || status == RM_STATUS_LOCKED || status == RM_STATUS_TRY_AGAIN;
}

bool SaysHowMany(int status) {
  return status == RM_STATUS_OK || status == RM_STATUS_BUFFER_TOO_SMALL || status == RM_STATUS_MORE_DATA;
}

class TargetReader {
 public:
  TargetReader(CHbaEntry* port, CZylTpThread* thread, int verbose, const LocalTurn& turn)
      : m_Port(*port), m_Thread(thread), m_Masks(verbose != 0), m_Turn(turn) {}

  unsigned int Read();

 private:
  bool Enabled() const { return IsWorkerEnabled(m_Thread); }
  const unsigned char* Proxy() const { return m_Port.GetProxyAddress(); }
  const unsigned char* Wwn() const { return m_Port.GetHbaInfo()->portWwn; }

  template <typename Call>
  int CallPatiently(unsigned int pause, Call call) const;

  bool DriverMapsNodes() const;
  void ReadBindType();
  int ReadNodes(NodeBuffer& nodes) const;
  bool AllocateNodes(NodeBuffer& nodes, std::uint32_t room) const;
  int AskForNodes(NodeBuffer& nodes) const;
  unsigned int StoreNodes(NodeBuffer& nodes, bool addAll);
  void LogNode(std::uint32_t index, const RM_NodeInfoEntry& node, bool added) const;

  CHbaEntry& m_Port;
  CZylTpThread* const m_Thread;
  const GatherMasks m_Masks;
  const LocalTurn& m_Turn;
};

// Repeats a call while the port is busy. A call that was never made counts as busy.
template <typename Call>
int TargetReader::CallPatiently(unsigned int pause, Call call) const {
  int status = RM_STATUS_LOCKED;
  for (int tries = 0; tries < kTries && Enabled(); ++tries) {
    m_Turn.NoteCall();
    status = call();
    if (!IsBusy(status) || !Enabled() || tries + 1 == kTries) break;
    ZylSleep(pause);
  }
  return status;
}

bool TargetReader::DriverMapsNodes() const {
  unsigned int type = 0;
  const int status = CallPatiently(kDriverTypePause, [&] { return RM_GetDriverType(Proxy(), Wwn(), &type); });
  return status == RM_STATUS_OK && type < kDriverTypes && ((kMappingDrivers >> type) & 1U) != 0;
}

void TargetReader::ReadBindType() {
  unsigned int type = 0;
  const int status = CallPatiently(kPause, [&] { return RM_GetBindingSupport(Proxy(), Wwn(), 1, &type); });
  if (status == RM_STATUS_OK && Enabled()) m_Port.SetTargetBindType(type);
}

bool TargetReader::AllocateNodes(NodeBuffer& nodes, std::uint32_t room) const {
  if (nodes.Allocate(room)) return true;
  disco_printf(m_Masks.error, Wwn(), "AddTargetInfo, unable to allocate memory for %d targets %d", room,
               RM_STATUS_FAILED);
  return false;
}

int TargetReader::AskForNodes(NodeBuffer& nodes) const {
  return CallPatiently(kPause, [&] { return RM_GetAllNodeInfo(Proxy(), Wwn(), nodes.Request()); });
}

int TargetReader::ReadNodes(NodeBuffer& nodes) const {
  if (!AllocateNodes(nodes, gs_LastTargetCount.load(std::memory_order_relaxed))) return RM_STATUS_FAILED;
  const int status = AskForNodes(nodes);
  if (!Enabled() || !SaysHowMany(status) || nodes.ReturnedCount() <= nodes.Room()) return status;
  const std::uint32_t wanted = nodes.ReturnedCount();
  if (!AllocateNodes(nodes, wanted)) return RM_STATUS_FAILED;
  disco_printf(m_Masks.info, Wwn(), "AddTargetInfo, increased target count to %d", wanted);
  return AskForNodes(nodes);
}

void TargetReader::LogNode(std::uint32_t index, const RM_NodeInfoEntry& node, bool added) const {
  disco_printf(
      m_Masks.info, Wwn(),
      "Target %d%s WWPN=%s, WWNN=%s,\n           BindType=0x%x, NodeState=%x, Bus=%d, Target=%d, LUN=%d", index,
      added ? ":" : " (NOT READY - not added to list!):", WwnText(node.portWwn).Text(),
      WwnText(node.nodeWwn).Text(), node.bindType, node.nodeState, node.bus, node.target, node.lun);
}

unsigned int TargetReader::StoreNodes(NodeBuffer& nodes, bool addAll) {
  if (nodes.Count() == 0) {
    disco_printf(m_Masks.info, Wwn(), "AddTargetInfo, no targets");
  } else {
    disco_printf(m_Masks.info, Wwn(), "AddTargetInfo: got %d targets", nodes.Count());
  }
  unsigned int added = 0;
  std::uint32_t i = 0;
  for (; i < nodes.Count() && Enabled(); ++i) {
    RM_NodeInfoEntry& node = nodes[i];
    if ((node.nodeState & RM_NODE_EXISTS) == 0) continue;
    const bool ready = addAll || (node.nodeState & RM_NODE_READY) != 0;
    if (ready) {
      node.nodeState |= RM_NODE_READY;
      m_Port.AddTarget(&node);
      ++added;
    }
    LogNode(i, node, ready);
  }
  if (i < nodes.Count()) m_Port.SetTargetsRead(false);  // cut short
  // The next reader has room for one target that has come meanwhile.
  gs_LastTargetCount.store(std::min(nodes.ReturnedCount(), kMaxRecords - 1) + 1, std::memory_order_relaxed);
  return added;
}

unsigned int TargetReader::Read() {
  const unsigned int current = m_Port.GetTargetCount();
  const bool addAll = DriverMapsNodes();
  if (!Enabled()) return current;
  ReadBindType();
  if (!Enabled()) return current;
  NodeBuffer nodes;
  const int status = ReadNodes(nodes);
  if (!Enabled() || !IsAnswer(status)) return current;
  m_Port.ClearTargets();
  if (status == RM_STATUS_OK) return StoreNodes(nodes, addAll);
  disco_printf(m_Masks.error, Wwn(), "AddTargetInfo, error getting targets %d", status);
  return 0;
}

}  // namespace

unsigned int AddTargetInfo(CHbaEntry* port, CZylTpThread* thread, int refresh, int verbose) {
  if (IsNICPort(port->GetSpecialFeatures())) {
    port->SetTargetBindType(0);
    port->SetTargetsRead(true);
    return 0;
  }
  if (IsISCSIPort(port->GetSpecialFeatures())) return iSCSI_AddTargetInfo(port, thread, refresh);

  disco_printf(GatherMasks(verbose != 0).info, port->GetHbaInfo()->portWwn,
               "AddTargetInfo, last target count=%d", gs_LastTargetCount.load(std::memory_order_relaxed));
  const LocalTurn turn(gs_LocalTargetReads, *port, StopOf(thread));
  if (turn.HasCome()) return TargetReader(port, thread, verbose, turn).Read();
  port->SetTargetsRead(false);
  return port->GetTargetCount();
}

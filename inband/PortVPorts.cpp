#include "inband/PortVPorts.h"

#include <cstddef>
#include <cstring>

#include "inband/Gathering.h"
#include "inband/LocalTurn.h"
#include "inband/PortKind.h"
#include "inband/RecordBuffer.h"

namespace {

constexpr int kNoMemory = 35;
constexpr std::uint32_t kFirstRoom = 1;

LocalReads& gs_LocalVPortReads = *new LocalReads;

RM_NodeInfoEntry NodeOf(const RM_VPortTargetEntry& target) {
  RM_NodeInfoEntry node{};
  std::memcpy(node.osDeviceName, target.osDeviceName, sizeof(node.osDeviceName));
  node.bus = target.bus;
  node.target = target.target;
  node.lun = target.lun;
  // From the FC address id to the FCP LUN the two records have the same layout, padding included.
  constexpr std::size_t kBegin = offsetof(RM_NodeInfoEntry, fcAddressId);
  static_assert(kBegin == offsetof(RM_VPortTargetEntry, fcAddressId));
  static_assert(offsetof(RM_NodeInfoEntry, lunId) == sizeof(RM_VPortTargetEntry));
  std::memcpy(reinterpret_cast<std::byte*>(&node) + kBegin,
              reinterpret_cast<const std::byte*>(&target) + kBegin, sizeof(target) - kBegin);
  node.nodeState = RM_NODE_READY;
  return node;
}

class VPortReader {
 public:
  VPortReader(CHbaEntry* port, CZylTpThread* thread, int verbose, const LocalTurn& turn)
      : m_Port(*port), m_Thread(thread), m_Masks(verbose != 0), m_Turn(turn) {}

  int Read();

 private:
  bool Enabled() const { return IsWorkerEnabled(m_Thread); }
  const unsigned char* Proxy() const { return m_Port.GetProxyAddress(); }
  const unsigned char* Wwn() const { return m_Port.GetHbaInfo()->portWwn; }

  int AddVPort(std::uint32_t index, const RM_VPortEntry& record);
  int ReadTargets(std::uint32_t index, CVPortEntry& vport) const;

  CHbaEntry& m_Port;
  CZylTpThread* const m_Thread;
  const GatherMasks m_Masks;
  const LocalTurn& m_Turn;
};

int VPortReader::ReadTargets(std::uint32_t index, CVPortEntry& vport) const {
  const std::uint8_t* wwn = vport.GetHbaInfo()->portWwn;
  const WwnText name(wwn);
  VPortTargetBuffer targets;
  const std::optional<int> status = AskGrowing(targets, kFirstRoom, [&](RM_VPortTargetList* list) {
    m_Turn.NoteCall();
    return RM_VPListTargets(Proxy(), Wwn(), wwn, list);
  });
  if (!status) {
    disco_printf(m_Masks.error, Wwn(), "NPIVDISC: VPORT %d - %s, No memory to get %d targets", index,
                 name.Text(), targets.Room());
    return kNoMemory;
  }
  if (*status != RM_STATUS_OK) {
    disco_printf(m_Masks.error, Wwn(), "NPIVDISC: VPORT %d - %s, Get targets failed %d", index, name.Text(),
                 *status);
    return *status;
  }
  for (std::uint32_t i = 0; i < targets.Count(); ++i) {
    const RM_NodeInfoEntry node = NodeOf(targets[i]);
    vport.AddTarget(&node);
  }
  disco_printf(m_Masks.info, Wwn(), "NPIVDISC: VPORT %d - %s, add %d targets", index, name.Text(),
               targets.Count());
  return *status;
}

int VPortReader::AddVPort(std::uint32_t index, const RM_VPortEntry& record) {
  disco_printf(m_Masks.info, Wwn(), "NPIVDISC: VPORT %d - %s", index, WwnText(record.portWwn).Text());
  CVPortEntry vport(record.portWwn);
  std::memcpy(vport.GetHbaInfo()->nodeWwn, record.nodeWwn, sizeof(record.nodeWwn));
  const int status = ReadTargets(index, vport);
  m_Port.AddVPort(&vport);
  return status;
}

int VPortReader::Read() {
  if (!Enabled()) return RM_STATUS_OK;
  VPortBuffer vports;
  const auto ask = [&](RM_VPortList* list) {
    m_Turn.NoteCall();
    return RM_VPList(Proxy(), Wwn(), list);
  };
  int status = AskGrowing(vports, kFirstRoom, ask).value_or(kNoMemory);
  if (!Enabled()) return status;
  if (IsAnswer(status)) m_Port.SetVPortsRead(true);
  if (status != RM_STATUS_OK) return status;
  m_Port.ClearVPorts();
  std::uint32_t i = 0;
  for (; i < vports.Count() && Enabled(); ++i) status = AddVPort(i, vports[i]);
  if (i < vports.Count()) m_Port.SetVPortsRead(false);
  return status;
}

}  // namespace

int AddVPortInfo(CHbaEntry* port, CZylTpThread* thread, int verbose) {
  const bool isNIC = IsNICPort(port->GetSpecialFeatures());
  const bool isISCSI = IsISCSIPort(port->GetSpecialFeatures());
  // What a kind of port never has needs no call to be known.
  if (isNIC || isISCSI) port->SetVPortsRead(true);
  if (!isNIC) port->SetVFsRead(true);
  if (isNIC) return AddSriovVFInfo(port, thread, verbose);
  if (isISCSI) return RM_STATUS_OK;
  const StopQuery stopped = StopOf(thread);
  const LocalTurn turn(gs_LocalVPortReads, *port, stopped);
  if (turn.HasCome()) return VPortReader(port, thread, verbose, turn).Read();
  port->SetVPortsRead(false);
  return IsStopped(stopped) ? RM_STATUS_OK : RM_STATUS_LOCKED;
}

int AddSriovVFInfo(CHbaEntry* port, CZylTpThread* /*thread*/, int /*verbose*/) {
  const unsigned char* wwn = port->GetHbaInfo()->portWwn;
  port->SetVFsRead(true);  // no memory for the answer is a failure like most others
  VFBuffer functions;
  if (!functions.Allocate(kFirstVFRoom)) return 0;
  int status = RM_GetVirtualFunctionList(port->GetProxyAddress(), wwn, functions.Request());
  disco_printf(kLogInBand, wwn, "RM_GetVirtualFunctionList status = %d", status);
  if (status == RM_STATUS_BUFFER_TOO_SMALL) {
    if (!functions.Grow()) return 0;
    status = RM_GetVirtualFunctionList(port->GetProxyAddress(), wwn, functions.Request());
  }
  port->SetVFsRead(IsAnswer(status));
  if (status == RM_STATUS_OK && functions.Count() != 0) {
    disco_printf(kLogInBand, wwn, "Virtual Functions:");
    for (std::uint32_t i = 0; i < functions.Count(); ++i) {
      disco_printf(kLogInBand, functions[i].wwn, "VFAddr");
      port->AddVF(functions[i]);
    }
  }
  disco_printf(kLogInBand, wwn, "VFs count:%d", port->GetVFCount());
  return 0;
}

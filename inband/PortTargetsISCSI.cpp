#include <optional>

#include "inband/Gathering.h"
#include "inband/LocalTurn.h"
#include "inband/PortTargets.h"
#include "inband/RecordBuffer.h"

namespace {

constexpr std::uint32_t kFirstRoom = 128;

LocalReads& gs_LocaliSCSITargetReads = *new LocalReads;

// The last status, or nothing when there is no memory for what the provider wants to return.
std::optional<int> AskForTargets(const CHbaEntry& port, const StopQuery& stopped, int refresh,
                                 const LocalTurn& turn, ISCSITargetBuffer& targets) {
  const auto ask = [&] {
    turn.NoteCall();
    return RM_iSCSI_GetTargets(port.GetProxyAddress(), port.GetHbaInfo()->portWwn, refresh != 0 ? 1 : 0,
                               targets.Request());
  };
  int status = ask();
  if (status == RM_STATUS_FAILED && !IsStopped(stopped)) status = ask();
  if (status == RM_STATUS_BUFFER_TOO_SMALL && !IsStopped(stopped)) {
    if (!targets.Grow()) return std::nullopt;
    status = ask();
  }
  return status;
}

// As AskForTargets once the turn comes; else RM_STATUS_LOCKED, and the port's targets are marked as not read.
std::optional<int> ReadTargets(CHbaEntry& port, const StopQuery& stopped, int refresh,
                               ISCSITargetBuffer& targets) {
  if (!targets.Allocate(kFirstRoom)) return std::nullopt;
  const LocalTurn turn(gs_LocaliSCSITargetReads, port, stopped);
  if (turn.HasCome()) return AskForTargets(port, stopped, refresh, turn, targets);
  port.SetTargetsRead(false);
  return RM_STATUS_LOCKED;
}

void AddTarget(CHbaEntry& port, const _RM_ISCSI_TARGET& target, unsigned int mask) {
  port.AddTarget(&target);
  // A long name runs on into the second one.
  const char* name = reinterpret_cast<const char*>(&target);
  const unsigned char* wwn = port.GetHbaInfo()->portWwn;
  if ((target.flags[0] & RM_ISCSI_HAS_SESSIONS) != 0) {
    disco_printf(mask, wwn, "iSCSI AddTarget %.512s - has sessions", name);
  }
  if ((target.flags[0] & RM_ISCSI_CONNECTED) != 0) {
    disco_printf(mask, wwn, "iSCSI AddTarget %.512s - connected", name);
  }
}

}  // namespace

unsigned int iSCSI_AddTargetInfo(CHbaEntry* port, CZylTpThread* thread, int refresh) {
  return iSCSI_AddTargetInfo(port, StopOf(thread), refresh);
}

unsigned int iSCSI_AddTargetInfo(CHbaEntry* port, const StopQuery& stopped, int refresh) {
  const unsigned int mask = port->IsLocalPort() != 0 ? kLogInBand : kLogOob;
  const unsigned char* wwn = port->GetHbaInfo()->portWwn;
  port->SetTargetBindType(0);
  port->ClearTargets();
  disco_printf(mask, wwn, "iSCSI AddTargetInfo (refresh targets=%s)", refresh != 0 ? "true" : "false");

  ISCSITargetBuffer targets;
  const std::optional<int> status = ReadTargets(*port, stopped, refresh, targets);
  if (!status) {
    disco_printf(kLogLocalPorts, wwn, "iSCSI AddTargetInfo: failed to allocate target list");
    return 0;
  }
  if (IsStopped(stopped)) {
    port->SetTargetsRead(false);
    return 0;
  }
  if (!port->AreTargetsRead()) return 0;  // nobody was asked
  if (*status != RM_STATUS_OK) {
    disco_printf(kLogLocalPorts, wwn, "iSCSI AddTargetInfo: get targets error %d", *status);
    return 0;
  }
  disco_printf(mask, wwn, "iSCSI AddTargetInfo: got %d targets", targets.Count());
  std::uint32_t i = 0;
  for (; i < targets.Count() && !IsStopped(stopped); ++i) AddTarget(*port, targets[i], mask);
  if (i < targets.Count()) port->SetTargetsRead(false);  // cut short
  return port->GetTargetCount();
}

#include <optional>

#include "inband/Gathering.h"
#include "inband/PortTargets.h"
#include "inband/RecordBuffer.h"
#include "thread/zyl_thread.h"

namespace {

constexpr std::uint32_t kFirstRoom = 128;

constinit CZylThreadLock gs_LocaliSCSITargetDiscoveryLock;

// The last status, or nothing when there is no memory for what the provider wants to return.
std::optional<int> AskForTargets(const CHbaEntry& port, const CZylTpThread* thread, int refresh,
                                 CISCSITargetBuffer& targets) {
  const auto ask = [&] {
    return RM_iSCSI_GetTargets(port.GetProxyAddress(), port.GetHbaInfo()->portWwn, refresh != 0 ? 1 : 0,
                               targets.Request());
  };
  int status = ask();
  if (IsWorkerEnabled(thread) && status == RM_STATUS_FAILED) status = ask();
  if (IsWorkerEnabled(thread) && status == RM_STATUS_BUFFER_TOO_SMALL) {
    if (!targets.Grow()) return std::nullopt;
    status = ask();
  }
  return status;
}

std::optional<int> ReadTargets(const CHbaEntry& port, const CZylTpThread* thread, int refresh,
                               CISCSITargetBuffer& targets) {
  if (!targets.Allocate(kFirstRoom)) return std::nullopt;
  if (port.IsLocalPort() == 0) return AskForTargets(port, thread, refresh, targets);
  CZylLockGuard guard(gs_LocaliSCSITargetDiscoveryLock);
  return AskForTargets(port, thread, refresh, targets);
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
  const unsigned int mask = port->IsLocalPort() != 0 ? kLogInBand : kLogOob;
  const unsigned char* wwn = port->GetHbaInfo()->portWwn;
  port->SetTargetBindType(0);
  port->ClearTargets();
  disco_printf(mask, wwn, "iSCSI AddTargetInfo (refresh targets=%s)", refresh != 0 ? "true" : "false");

  CISCSITargetBuffer targets;
  const std::optional<int> status = ReadTargets(*port, thread, refresh, targets);
  if (!status) {
    disco_printf(kLogLocalPorts, wwn, "iSCSI AddTargetInfo: failed to allocate target list");
    return 0;
  }
  if (!IsWorkerEnabled(thread)) return 0;
  if (*status != RM_STATUS_OK) {
    disco_printf(kLogLocalPorts, wwn, "iSCSI AddTargetInfo: get targets error %d", *status);
    return 0;
  }
  disco_printf(mask, wwn, "iSCSI AddTargetInfo: got %d targets", targets.Count());
  for (std::uint32_t i = 0; i < targets.Count() && IsWorkerEnabled(thread); ++i) {
    AddTarget(*port, targets[i], mask);
  }
  return port->GetTargetCount();
}

#include "provider/fabric/FabricFaults.h"

namespace provider {

namespace {

// A fault of every call is one of those that answer a status.
bool Matches(const FabricFault& fault, FabricCall call, const Wwn* port, const Wwn* virtualPort) {
  if (fault.call.has_value() ? *fault.call != call : !TraitsOf(call).hasStatus) return false;
  if (fault.port.has_value() && (port == nullptr || *fault.port != *port)) return false;
  return !fault.virtualPort.has_value() || (virtualPort != nullptr && *fault.virtualPort == *virtualPort);
}

bool Strikes(const FabricFault& fault, std::uint64_t callsBefore) {
  if (callsBefore < fault.skip) return false;
  return !fault.times.has_value() || callsBefore - fault.skip < *fault.times;
}

}  // namespace

FabricFaults::FabricFaults(const FabricModel& model) : m_Model(model), m_Calls(model.faults.size(), 0) {}

// The first fault of the file that matches and is not used up yet. One that waits for its turn counts the call
// and lets later ones have it.
const FabricFault* FabricFaults::Strike(FabricCall call, const Wwn* port, const Wwn* virtualPort) {
  const MutexLock held(m_Mutex);
  for (std::size_t i = 0; i < m_Model.faults.size(); ++i) {
    const FabricFault& fault = m_Model.faults[i];
    if (Matches(fault, call, port, virtualPort) && Strikes(fault, m_Calls[i]++)) return &fault;
  }
  return nullptr;
}

FabricFaultEffect FabricFaults::Pass(FabricCall call, const Wwn* port, const Wwn* virtualPort) {
  const FabricFault* fault = Strike(call, port, virtualPort);
  FabricFaultEffect effect;
  if (fault != nullptr) effect = {fault->status, fault->claimedCount};

  // The two questions that answer from memory have no delay unless a fault names them.
  std::chrono::milliseconds delay = TraitsOf(call).hasStatus ? m_Model.delay : std::chrono::milliseconds(0);
  if (fault != nullptr && fault->delay.has_value()) delay = *fault->delay;
  if (delay.count() > 0) m_Pause.Sleep(delay);

  const bool hangs = fault != nullptr && fault->hangs;
  if (hangs && !m_Pause.Sleep(fault->hang) && !effect.status.has_value()) effect.status = RM_STATUS_FAILED;
  return effect;
}

}  // namespace provider

// The faults a fabric file scripts, and how often each has struck.
//
// Thread safety: locked inside; the lock is not held while a call sleeps.
#ifndef PROVIDER_FABRIC_FABRICFAULTS_H_
#define PROVIDER_FABRIC_FABRICFAULTS_H_

#include <optional>
#include <vector>

#include "provider/base/Mutex.h"
#include "provider/fabric/FabricModel.h"
#include "provider/fabric/FabricPause.h"

namespace provider {

// What a call is to do beside answering truly.
struct FabricFaultEffect {
  std::optional<int> status;
  std::optional<std::uint32_t> claimedCount;
};

class FabricFaults {
 public:
  // `model` outlives the faults.
  explicit FabricFaults(const FabricModel& model);

  // Counts the call, sleeps what it has to sleep, and says what it is to answer.
  FabricFaultEffect Pass(FabricCall call, const Wwn* port, const Wwn* virtualPort);

  // Wakes the calls that sleep.
  void EndSleeps() { m_Pause.End(); }

 private:
  const FabricFault* Strike(FabricCall call, const Wwn* port, const Wwn* virtualPort);

  const FabricModel& m_Model;
  FabricPause m_Pause;
  Mutex m_Mutex;
  std::vector<std::uint64_t> m_Calls GUARDED_BY(m_Mutex);  // that each fault has matched
};

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICFAULTS_H_

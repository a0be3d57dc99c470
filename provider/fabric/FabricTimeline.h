// The boards of a fabric as they are now: the file's state and every change whose time has come.
//
// Thread safety: locked inside; a snapshot is immutable and lives as long as somebody holds it.
#ifndef PROVIDER_FABRIC_FABRICTIMELINE_H_
#define PROVIDER_FABRIC_FABRICTIMELINE_H_

#include <chrono>
#include <memory>
#include <vector>

#include "provider/base/Mutex.h"
#include "provider/fabric/FabricModel.h"

namespace provider {

struct FabricMoment {
  std::vector<FabricBoardState> boards;  // by the model's board numbers
  std::vector<Wwn> makersPorts;          // sorted: boards, virtual ports and the targets marked so
};

class FabricTimeline {
 public:
  using Snapshot = std::shared_ptr<const FabricMoment>;

  // The clock starts now. The caller sees to it that `model` outlives the timeline.
  explicit FabricTimeline(const FabricModel& model);

  Snapshot Now();

 private:
  const FabricModel& m_Model;
  const std::chrono::steady_clock::time_point m_Start;
  Mutex m_Mutex;
  std::size_t m_Applied GUARDED_BY(m_Mutex) = 0;  // events
  Snapshot m_Current GUARDED_BY(m_Mutex);
};

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICTIMELINE_H_

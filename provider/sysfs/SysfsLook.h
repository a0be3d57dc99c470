// What has been read of targets while a look goes on. A full cycle asks each port for its targets twice, first
// for their names and later, on another thread, for themselves, and then for what lies behind them.
//
// Thread safety: internally locked. Ownership: owns what it keeps, from the beginning of a look to its end.
#ifndef PROVIDER_SYSFS_SYSFSLOOK_H_
#define PROVIDER_SYSFS_SYSFSLOOK_H_

#include <map>
#include <optional>

#include "provider/base/Mutex.h"
#include "provider/sysfs/SysfsTargets.h"

namespace provider {

class SysfsLook {
 public:
  void Begin() EXCLUDES(m_Mutex) { Restart(true); }
  void End() EXCLUDES(m_Mutex) { Restart(false); }

  // The targets that were kept, which go with that; nothing when there are none.
  std::optional<std::vector<RM_NodeInfoEntry>> TakeNodes(const Wwn& port) EXCLUDES(m_Mutex);
  std::optional<FcStorage> Storage(const Wwn& port) const EXCLUDES(m_Mutex);
  // Nothing between two looks.
  void Keep(const Wwn& port, const FcTargets& targets) EXCLUDES(m_Mutex);

 private:
  struct Known {
    std::optional<std::vector<RM_NodeInfoEntry>> nodes;
    FcStorage storage;
  };

  void Restart(bool goesOn) EXCLUDES(m_Mutex);

  mutable Mutex m_Mutex;
  bool m_GoesOn GUARDED_BY(m_Mutex) = false;
  std::map<Wwn, Known> m_Known GUARDED_BY(m_Mutex);
};

}  // namespace provider

#endif  // PROVIDER_SYSFS_SYSFSLOOK_H_

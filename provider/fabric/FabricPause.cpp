#include "provider/fabric/FabricPause.h"

#include <cstdlib>

#include "provider/base/Mutex.h"

namespace provider {

namespace {

// One for the process, never destroyed: a call may still sleep when the last destructors run.
struct Sleepers {
  Mutex mutex;
  Condition changed;
  bool exiting GUARDED_BY(mutex) = false;

  static Sleepers& Get() {
    static Sleepers& sleepers = *new Sleepers;
    return sleepers;
  }
};

// Runs before the destructors of everything that was constructed before the first sleep, so that a destructor
// may wait for a thread that hangs here.
void EndAll() {
  Sleepers& sleepers = Sleepers::Get();
  const MutexLock held(sleepers.mutex);
  sleepers.exiting = true;
  sleepers.changed.NotifyAll();
}

}  // namespace

bool FabricPause::Sleep(std::optional<std::chrono::milliseconds> time) {
  [[maybe_unused]] static const int registered = std::atexit(EndAll);
  Sleepers& sleepers = Sleepers::Get();
  const auto start = std::chrono::steady_clock::now();
  const MutexLock held(sleepers.mutex);
  while (!m_Ended && !sleepers.exiting) {
    if (!time.has_value()) {
      sleepers.changed.Wait(sleepers.mutex);
    } else if (!sleepers.changed.WaitUntil(sleepers.mutex, start + *time)) {
      return true;
    }
  }
  return false;
}

void FabricPause::End() {
  Sleepers& sleepers = Sleepers::Get();
  const MutexLock held(sleepers.mutex);
  m_Ended = true;
  sleepers.changed.NotifyAll();
}

}  // namespace provider

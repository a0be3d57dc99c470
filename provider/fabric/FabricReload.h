// A fabric file that may change while it is in use.
//
// Thread safety: locked inside. A call never waits for another one that reads the file anew.
// Ownership: a Fabric is shared with the calls that run on it; a call that began on the old content ends on it.
#ifndef PROVIDER_FABRIC_FABRICRELOAD_H_
#define PROVIDER_FABRIC_FABRICRELOAD_H_

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "provider/Mutex.h"
#include "provider/fabric/FabricFaults.h"
#include "provider/fabric/FabricModel.h"
#include "provider/fabric/FabricTimeline.h"

namespace provider {

// One content of the file with its clock and its counts.
struct Fabric {
  explicit Fabric(FabricModel read) : model(std::move(read)), timeline(model), faults(model) {}

  const FabricModel model;
  FabricTimeline timeline;
  FabricFaults faults;
};

class FabricReload {
 public:
  // Throws std::runtime_error: "file:line: key: what was expected", or the file and why it cannot be read.
  explicit FabricReload(std::string path);

  // The file's content, looked at again when the last look is 100 ms old. A content that is wrong is logged
  // once and the one before stays.
  std::shared_ptr<Fabric> Current();

 private:
  using Clock = std::chrono::steady_clock;

  // Which file, and which writing of it.
  struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = -1;
    timespec written{};
    bool settled = false;  // the last writing is so long ago that a later one has another time

    bool operator==(const Identity& other) const;
  };

  static Identity Identify(const std::string& path);
  void LookAgain() REQUIRES(m_LookMutex);
  void Install(std::shared_ptr<Fabric> fabric) REQUIRES(m_LookMutex);
  std::string ReadText() const;
  std::shared_ptr<Fabric> Load(const std::string& text) const;

  const std::string m_Path;
  std::atomic<Clock::rep> m_NextLook;  // atomic: asked by every call without a lock
  Mutex m_LookMutex;                   // who looks at the file; before m_FabricMutex
  Identity m_Identity GUARDED_BY(m_LookMutex);
  std::string m_Text GUARDED_BY(m_LookMutex);  // looked at last, right or wrong; or why it could not be read
  Mutex m_FabricMutex;
  std::shared_ptr<Fabric> m_Fabric GUARDED_BY(m_FabricMutex);
};

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICRELOAD_H_

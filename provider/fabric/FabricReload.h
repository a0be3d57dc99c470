// A fabric file that may change while it is in use.
//
// Thread safety: locked inside. A call never waits for another one that reads the file anew.
// Ownership: a content and its hosts are shared with the calls that run on it; a call that began on the old
// content ends on it.
#ifndef PROVIDER_FABRIC_FABRICRELOAD_H_
#define PROVIDER_FABRIC_FABRICRELOAD_H_

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "provider/base/Mutex.h"
#include "provider/fabric/FabricFaults.h"
#include "provider/fabric/FabricModel.h"
#include "provider/fabric/FabricTimeline.h"

namespace provider {

// One host of one content of the file, with its clock and its counts.
struct Fabric {
  explicit Fabric(FabricModel read) : model(std::move(read)), timeline(model), faults(model) {}

  const FabricModel model;
  FabricTimeline timeline;
  FabricFaults faults;
};

// One content of the file.
struct FabricContent {
  std::shared_ptr<Fabric> local;
  std::map<NetAddress, std::shared_ptr<Fabric>> remote;  // a host with two addresses is there twice

  void EndSleeps() const;
};

class FabricReload {
 public:
  enum class Remote { kKept, kOnlyChecked };

  // Throws std::runtime_error: "file:line: key: what was expected", or the file and why it cannot be read.
  FabricReload(std::string path, Remote remote);

  // The file's content, looked at again when the last look is 100 ms old. A content that is wrong is logged
  // once and the one before stays.
  std::shared_ptr<const FabricContent> Current();

  // Ends the calls that hang or are delayed, now and from now on; the content stays as it is.
  void EndSleeps();

 private:
  using Clock = std::chrono::steady_clock;

  // Which file, and which writing of it.
  struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = -1;
    timespec written{};
    timespec changed{};    // also by what makes a file readable
    bool settled = false;  // the last writing is so long ago that a later one has another time

    bool operator==(const Identity& other) const;
  };

  static Identity Identify(const std::string& path);
  void LookAgain() REQUIRES(m_LookMutex);
  void Install(std::shared_ptr<const FabricContent> content) REQUIRES(m_LookMutex);
  std::string ReadText() const;
  std::shared_ptr<const FabricContent> Load(const std::string& text) const;

  const std::string m_Path;
  const Remote m_Remote;
  std::atomic<Clock::rep> m_NextLook;  // atomic: asked by every call without a lock
  Mutex m_LookMutex;                   // who looks at the file; before m_ContentMutex
  Identity m_Identity GUARDED_BY(m_LookMutex);
  std::string m_Text GUARDED_BY(m_LookMutex);  // looked at last, right or wrong; or why it could not be read
  Mutex m_ContentMutex;
  std::shared_ptr<const FabricContent> m_Content GUARDED_BY(m_ContentMutex);
};

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICRELOAD_H_

// What this process looks at, between RM_InitLib and RM_ExitLib.
//
// Said by RMOpen_SetSource, or by the configuration file (a line FabricFile: with a fabric file's path, or
// SysfsRoot: with a directory); else this machine's sysfs. The file also says how long connections to remote
// hosts may take (ConnectTimeoutMs:).
//
// Thread safety: locked inside, usable before main and after exit has begun.
// Ownership: a host is shared with the calls that run on it, so that it outlives RM_ExitLib for those.
#ifndef PROVIDER_PROCESS_SOURCE_H_
#define PROVIDER_PROCESS_SOURCE_H_

#include <memory>
#include <optional>
#include <string>

#include "provider/base/Mutex.h"
#include "provider/host/Host.h"

namespace provider {

class Source {
 public:
  // The process's source; never destroyed.
  static Source& Get();

  // Throws std::runtime_error with the reason; then everything stays as it was.
  void Choose(const std::string& kind, const std::string& path);

  // Counted: the last Stop ends what the first Start began. Start reads the settings and opens the source; one
  // that cannot be used is logged and answers as a host that fails every question.
  void Start();
  // False when nothing has been started.
  bool Stop();

  // Null when nothing has been started.
  std::shared_ptr<Host> Local();

  // Why what was started cannot be used; empty when it can.
  std::string Trouble();

 private:
  struct Choice {
    bool isFabric = false;
    std::string path;
  };

  static Choice Configured();
  static std::unique_ptr<Host> Open(const Choice& choice);

  Mutex m_ChoiceMutex;  // also held while a source is opened; before m_HostMutex
  std::optional<Choice> m_Choice GUARDED_BY(m_ChoiceMutex);
  unsigned m_Starts GUARDED_BY(m_ChoiceMutex) = 0;
  Mutex m_HostMutex;
  std::shared_ptr<Host> m_Host GUARDED_BY(m_HostMutex);
  std::string m_Trouble GUARDED_BY(m_HostMutex);
};

}  // namespace provider

#endif  // PROVIDER_PROCESS_SOURCE_H_

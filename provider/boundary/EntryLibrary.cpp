// Start and stop of the library, and what it says about itself.
#include "provider/Exports.h"

#include <sys/stat.h>

#include <string>

#include "provider/base/Mutex.h"
#include "provider/boundary/Entry.h"
#include "provider/process/KeyValueFile.h"
#include "provider/process/Source.h"

namespace {

constexpr const char* kDefaultInstallDir = "/opt/varnix/quorbench/";

// Set before the library is started, and read from any thread from then on. Never destroyed: threads may
// outlive exit.
constinit provider::Mutex gs_InstallDirLock;
char gs_InstallDir[256] GUARDED_BY(gs_InstallDirLock) = "";

std::string ChosenInstallDir() {
  const provider::MutexLock lock(gs_InstallDirLock);
  return gs_InstallDir;
}

std::string InstallDir() {
  std::string directory = ChosenInstallDir();
  if (directory.empty())
    directory = provider::ReadKeyValue(provider::kManagementSettings, "InstallDir").value_or("");
  if (directory.empty()) directory = kDefaultInstallDir;
  if (!directory.ends_with('/')) directory += '/';
  return directory;
}

// Of the thread's last RMOpen_SetSource. A plain array: it needs no destructor while threads end.
thread_local char t_LastError[1024] = "";

void SetLastError(const char* text) {
  provider::CopyField(t_LastError, sizeof(t_LastError) - 1, text);
}

}  // namespace

int RM_InitLib(void) {
  return provider::Guarded([] {
    provider::Source::Get().Start();
    return int{RM_STATUS_OK};
  });
}

int RM_ExitLib(void) {
  return provider::Guarded(
      [] { return provider::Source::Get().Stop() ? int{RM_STATUS_OK} : int{RM_STATUS_FAILED}; });
}

int RM_GetAppInstallDirA(char* buffer, unsigned int size) {
  return provider::Guarded([&]() -> int {
    if (buffer == nullptr) return RM_STATUS_FAILED;
    const std::string directory = InstallDir();
    if (directory.size() >= size) return RM_STATUS_BUFFER_TOO_SMALL;
    provider::CopyField(buffer, directory.size() + 1, directory);
    return RM_STATUS_OK;
  });
}

int RM_GetSecureMgmtConfig(unsigned int* enabled) {
  return provider::Guarded([&]() -> int {
    if (enabled == nullptr) return RM_STATUS_FAILED;
    const provider::FoundHost found = provider::FindHost(nullptr);
    if (found.status != RM_STATUS_OK) return found.status;
    const provider::Answer<bool> answer = found.host->SecureManagement();
    if (answer.status == RM_STATUS_OK) *enabled = answer.value ? 1 : 0;
    return answer.status;
  });
}

int RMOpen_SetSource(const char* kind, const char* path) {
  SetLastError("");
  return provider::Guarded([&]() -> int {
    if (kind == nullptr || path == nullptr) {
      SetLastError("expected a kind and a path");
      return RM_STATUS_FAILED;
    }
    try {
      provider::Source::Get().Choose(kind, path);
      return RM_STATUS_OK;
    } catch (const std::exception& error) {
      SetLastError(error.what());
      return RM_STATUS_FAILED;
    }
  });
}

void RMOpen_LastError(char* text, unsigned int size) {
  if (text == nullptr || size == 0) return;
  text[0] = '\0';
  provider::Guarded([&] {
    std::string reason = t_LastError;
    if (reason.empty()) reason = provider::Source::Get().Trouble();
    const std::size_t length = std::min<std::size_t>(reason.size(), size - 1);
    std::memcpy(text, reason.data(), length);
    text[length] = '\0';
    return int{RM_STATUS_OK};
  });
}

void RMOpen_BeginLook(void) {
  provider::Guarded([] {
    if (const provider::FoundHost found = provider::FindHost(nullptr); found.host != nullptr)
      found.host->BeginLook();
    return int{RM_STATUS_OK};
  });
}

void RMOpen_EndLook(void) {
  provider::Guarded([] {
    if (const provider::FoundHost found = provider::FindHost(nullptr); found.host != nullptr)
      found.host->EndLook();
    return int{RM_STATUS_OK};
  });
}

int RMOpen_HasPortDetails(void) {
  return 1;
}

int RMOpen_SetInstallDir(const char* directory) {
  return provider::Guarded([&]() -> int {
    struct stat found {};
    if (directory == nullptr || std::strlen(directory) >= sizeof(gs_InstallDir)) return RM_STATUS_FAILED;
    if (stat(directory, &found) != 0 || !S_ISDIR(found.st_mode)) return RM_STATUS_FAILED;
    const provider::MutexLock lock(gs_InstallDirLock);
    provider::CopyField(gs_InstallDir, std::strlen(directory) + 1, directory);
    return RM_STATUS_OK;
  });
}

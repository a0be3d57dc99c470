// The firmware repository.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "config/unixConfig.h"
#include "rmapi/rmapi.h"

namespace {

// One level, and without the bit that lets others than root enter it: that is how it has always been made.
constexpr mode_t kMode = 0660;

bool CreateDirectoryIfMissing(const char* directory) {
  struct stat status {};
  if (stat(directory, &status) == 0 || errno != ENOENT) return true;
  return mkdir(directory, kMode) == 0;
}

}  // namespace

int getRepository(char* path) {
  if (path == nullptr) return kSettingsFileError;
  // Nothing can be kept on such a system, so there is no repository and nothing wrong.
  if (IsReadOnlyFS() != 0) return kSettingsDone;
  SettingText repository{};
  int status = ReadSetting(
      "RepositoryDir", PathVariable(REP_DIR_DEFAULT),
      {"getRepository: call to getKeyValue failed\n", "getRepository: call to setKeyValue failed\n"},
      repository);
  if (status != kSettingsDone) return status;
  // Nobody asks here for the last directory: it only has to be set.
  SettingText lastDirectory{};
  status = ReadSetting(
      "LastFWDir", TextOf(repository),
      {"getRepository: 2nd call to getKeyValue failed\n", "getRepository: 2nd call to setKeyValue failed\n"},
      lastDirectory);
  if (status != kSettingsDone) return status;
  if (!CreateDirectoryIfMissing(repository.data())) {
    rm_printf("getRepository: call to mkdir failed. repository is <%s>\n", repository.data());
    return kSettingsFileError;
  }
  const std::size_t length = TextOf(repository).size();
  std::copy(repository.begin(), repository.end(), path);
  path[length] = '/';
  path[length + 1] = '\0';
  return kSettingsDone;
}

// The directories and files that the management settings name.
#include "config/unixConfig.h"
#include "rmapi/rmapi.h"

// The names inside the messages are those that readers of the log have always met.

int getLogFilePath(char* path) {
  return CopySetting(
      "LogFilePath", PathVariable(LOG_FILE_PATH_DEFAULT),
      {"getLogFilePath: call to getKeyValue failed\n", "getLogFileName: call to setKeyValue failed\n"}, path);
}

int getInstallDirPath(char* path) {
  return CopySetting("InstallDir", kInstallDirDefault,
                     {"getInstallDirPath: call to getKeyValue INSTALL_DIR_KEY failed\n",
                      "getInstallDirPath: call to setKeyValue INSTALL_DIR_KEY failed\n"},
                     path);
}

int getOptDirPath(char* path) {
  return CopySetting("OptDir", kOptDirDefault,
                     {"getOptDirPath: call to getKeyValue OPT_DIR_KEY failed\n",
                      "getOptDirPath: call to setKeyValue OPT_DIR_KEY failed\n"},
                     path);
}

int getIniFilePath(char* path) {
  return CopySetting(
      "ConfFilePath", kIniFileDefault,
      {"getIniFilePath: call to getKeyValue failed\n", "getIniFileName: call to setKeyValue failed\n"}, path);
}

// The provider's path variables, built from the install and the variable-data directory.
#include <cstdio>
#include <span>

#include "config/unixConfig.h"
#include "rmapi/rmapi.h"
#include "thread/zyl_thread.h"

namespace {

constinit CZylThreadLock gs_DirsLock;

// Read once a process: what initDirPaths builds stays what it was.
constinit SettingText gs_InstallDir GUARDED_BY(gs_DirsLock) = {};
constinit SettingText gs_OptDir GUARDED_BY(gs_DirsLock) = {};

// One variable: the text of `base`, which an earlier row may have filled and cut, then `tail`.
struct Row {
  std::span<char> variable;
  const char* base;
  const char* tail;
};

void FillWhenEmpty(SettingText& directory, int (*getter)(char*), const char* defaultValue) {
  if (directory.front() != '\0') return;
  if (getter(directory.data()) != kSettingsDone) {
    std::snprintf(directory.data(), directory.size(), "%s", defaultValue);
  }
}

}  // namespace

int initDirPaths(void) {
  const LockGuard guard(gs_DirsLock);
  FillWhenEmpty(gs_InstallDir, getInstallDirPath, kInstallDirDefault);
  FillWhenEmpty(gs_OptDir, getOptDirPath, kOptDirDefault);
  const Row rows[] = {
      {DRAXONITE_INSTALL_DIR, gs_InstallDir.data(), "/"},
      {VAR_OPT_PATH, gs_OptDir.data(), ""},
      {DRAXONITE_JRE_DIR, DRAXONITE_INSTALL_DIR, "jre"},
      {DRAXONITE_CONFIG_DIR, DRAXONITE_INSTALL_DIR, "config"},
      {DRAXONITE_MISC_DIR, DRAXONITE_INSTALL_DIR, "misc"},
      {FLOCK_SEMAPHORE_DIRECTORY, DRAXONITE_INSTALL_DIR, "misc/"},
      {START_QUORBENCH_GUI, DRAXONITE_INSTALL_DIR, "quorbench"},
      {DRAXONITE_BIN_DIR, DRAXONITE_INSTALL_DIR, "bin/"},
      {DRAXONITE_SCRIPTS_DIR, DRAXONITE_INSTALL_DIR, "scripts/"},
      {KTDX_SCRIPTS_DIR, DRAXONITE_SCRIPTS_DIR, "ktdx"},
      {START_QUORBENCH, DRAXONITE_SCRIPTS_DIR, "start_quorbench.sh"},
      {STOP_QUORBENCH, DRAXONITE_SCRIPTS_DIR, "stop_quorbench.sh"},
      {START_ZYLDISCOVERYD, DRAXONITE_SCRIPTS_DIR, "start_zyldiscovery.sh"},
      {LOG_DIR_DEFAULT, VAR_OPT_PATH, "/logs"},
      {DUMP_PATH_DEFAULT, VAR_OPT_PATH, "/Dump"},
      {LOG_FILE_PATH_DEFAULT, LOG_DIR_DEFAULT, "/rm.log"},
      {CNABOARDMGMT_FILE_DEFAULT, LOG_DIR_DEFAULT, "/cnaboardmgmt.log"},
      {FEATUREMGMT_FILE_DEFAULT, LOG_DIR_DEFAULT, "/featuremgmt.log"},
      {WWNMGMT_FILE_DEFAULT, LOG_DIR_DEFAULT, "/wwnmgmt.log"},
      {LOCKFILE_SEM, "", "lockFile.sem"},
      {HBAHOST_LOCK_SEM, "", "hbahost_lock.sem"},
      {CONVERT_CONF_FILE_SH, "", "convert_conf_file.sh"},
      {INI_FILE_PATH_ROFS, "", kIniFileDefault},
      {LOG_FILE_PATH_ROFS, LOG_FILE_PATH_DEFAULT, ""},
      {DUMP_PATH_ROFS, DUMP_PATH_DEFAULT, ""},
  };
  for (const Row& row : rows) {
    std::snprintf(row.variable.data(), row.variable.size(), "%s%s", row.base, row.tail);
  }
  return 0;
}

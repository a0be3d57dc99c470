// The path variables as they stand until the settings layer fills them from the settings file: the values that
// follow from the default directories.
#include "provider/Exports.h"

#define INSTALL_DIR "/opt/varnix/quorbench/" /* as the settings file has it, with its separator */ "/"
#define SCRIPTS_DIR INSTALL_DIR "scripts/"
#define VAR_DIR "/var/opt/varnix/quorbench"
#define LOG_DIR VAR_DIR "/logs"
#define LOG_FILE LOG_DIR "/rm.log"
#define DUMP_DIR VAR_DIR "/Dump"

char REP_DIR_DEFAULT[256] = VAR_DIR "/repository";
char DRAXONITE_INSTALL_DIR[256] = INSTALL_DIR;
char VAR_OPT_PATH[256] = VAR_DIR;
char DRAXONITE_JRE_DIR[256] = INSTALL_DIR "jre";
char DRAXONITE_CONFIG_DIR[256] = INSTALL_DIR "config";
char DRAXONITE_MISC_DIR[256] = INSTALL_DIR "misc";
char FLOCK_SEMAPHORE_DIRECTORY[256] = INSTALL_DIR "misc/";
char START_QUORBENCH_GUI[256] = INSTALL_DIR "quorbench";
char DRAXONITE_BIN_DIR[256] = INSTALL_DIR "bin/";
char DRAXONITE_SCRIPTS_DIR[256] = SCRIPTS_DIR;
char KTDX_SCRIPTS_DIR[256] = SCRIPTS_DIR "ktdx";
char START_QUORBENCH[256] = SCRIPTS_DIR "start_quorbench.sh";
char STOP_QUORBENCH[256] = SCRIPTS_DIR "stop_quorbench.sh";
char START_ZYLDISCOVERYD[256] = SCRIPTS_DIR "start_zyldiscovery.sh";
char LOG_DIR_DEFAULT[256] = LOG_DIR;
char DUMP_PATH_DEFAULT[256] = DUMP_DIR;
char LOG_FILE_PATH_DEFAULT[256] = LOG_FILE;
char CNABOARDMGMT_FILE_DEFAULT[256] = LOG_DIR "/cnaboardmgmt.log";
char FEATUREMGMT_FILE_DEFAULT[256] = LOG_DIR "/featuremgmt.log";
char WWNMGMT_FILE_DEFAULT[256] = LOG_DIR "/wwnmgmt.log";
char LOCKFILE_SEM[64] = "lockFile.sem";
char HBAHOST_LOCK_SEM[64] = "hbahost_lock.sem";
char CONVERT_CONF_FILE_SH[64] = "convert_conf_file.sh";
char INI_FILE_PATH_ROFS[256] = "/etc/varnix/quorbench/rm.conf";
char LOG_FILE_PATH_ROFS[256] = LOG_FILE;
char DUMP_PATH_ROFS[256] = DUMP_DIR;

// What the library exports, against its headers; and its path variables.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <sstream>

#include "tests/provider/Boundary.h"

namespace providertest {
namespace {

// A declaration begins its line with a type in small letters.
std::set<std::string> Declared(const std::string& header) {
  std::istringstream lines(ReadFile(PROVIDER_SOURCE_DIR "/" + header));
  std::set<std::string> names;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] < 'a' || line[0] > 'z' || line.starts_with("typedef")) continue;
    const std::size_t end = line.find_first_of("([");
    if (end == std::string::npos) continue;
    const std::size_t begin = line.find_last_of(" *", end) + 1;
    names.insert(line.substr(begin, end - begin));
  }
  return names;
}

std::string OutputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> output(popen(command.c_str(), "r"), pclose);
  std::string text;
  for (int c = fgetc(output.get()); c != EOF; c = fgetc(output.get())) text += static_cast<char>(c);
  return text;
}

TEST(Exports, ExactlyWhatTheHeadersDeclare) {
  std::set<std::string> declared = Declared("rmapi/rmapi.h");
  EXPECT_EQ(declared.size(), 44u + 26u);
  declared.merge(Declared("provider/OpenProvider.h"));
  std::set<std::string> exported;
  std::istringstream lines(OutputOf("nm -D --defined-only --format=posix " PROVIDER_LIBRARY));
  for (std::string name, rest; lines >> name && std::getline(lines, rest);) exported.insert(name);
  EXPECT_EQ(exported, declared);
}

TEST(Exports, Soname) {
  EXPECT_NE(OutputOf("readelf -d " PROVIDER_LIBRARY).find("soname: [librmapi.so]"), std::string::npos);
}

TEST(Exports, PathVariablesHaveTheirDefaults) {
  const std::pair<const char*, const char*> rows[] = {
      {DRAXONITE_INSTALL_DIR, "/opt/varnix/quorbench//"},
      {VAR_OPT_PATH, "/var/opt/varnix/quorbench"},
      {DRAXONITE_JRE_DIR, "/opt/varnix/quorbench//jre"},
      {DRAXONITE_CONFIG_DIR, "/opt/varnix/quorbench//config"},
      {DRAXONITE_MISC_DIR, "/opt/varnix/quorbench//misc"},
      {FLOCK_SEMAPHORE_DIRECTORY, "/opt/varnix/quorbench//misc/"},
      {START_QUORBENCH_GUI, "/opt/varnix/quorbench//quorbench"},
      {DRAXONITE_BIN_DIR, "/opt/varnix/quorbench//bin/"},
      {DRAXONITE_SCRIPTS_DIR, "/opt/varnix/quorbench//scripts/"},
      {KTDX_SCRIPTS_DIR, "/opt/varnix/quorbench//scripts/ktdx"},
      {START_QUORBENCH, "/opt/varnix/quorbench//scripts/start_quorbench.sh"},
      {STOP_QUORBENCH, "/opt/varnix/quorbench//scripts/stop_quorbench.sh"},
      {START_ZYLDISCOVERYD, "/opt/varnix/quorbench//scripts/start_zyldiscovery.sh"},
      {LOG_DIR_DEFAULT, "/var/opt/varnix/quorbench/logs"},
      {DUMP_PATH_DEFAULT, "/var/opt/varnix/quorbench/Dump"},
      {LOG_FILE_PATH_DEFAULT, "/var/opt/varnix/quorbench/logs/rm.log"},
      {CNABOARDMGMT_FILE_DEFAULT, "/var/opt/varnix/quorbench/logs/cnaboardmgmt.log"},
      {FEATUREMGMT_FILE_DEFAULT, "/var/opt/varnix/quorbench/logs/featuremgmt.log"},
      {WWNMGMT_FILE_DEFAULT, "/var/opt/varnix/quorbench/logs/wwnmgmt.log"},
      {LOCKFILE_SEM, "lockFile.sem"},
      {HBAHOST_LOCK_SEM, "hbahost_lock.sem"},
      {CONVERT_CONF_FILE_SH, "convert_conf_file.sh"},
      {INI_FILE_PATH_ROFS, "/etc/varnix/quorbench/rm.conf"},
      {LOG_FILE_PATH_ROFS, "/var/opt/varnix/quorbench/logs/rm.log"},
      {DUMP_PATH_ROFS, "/var/opt/varnix/quorbench/Dump"},
  };
  for (const auto& [value, expected] : rows) EXPECT_STREQ(value, expected);
}

}  // namespace
}  // namespace providertest

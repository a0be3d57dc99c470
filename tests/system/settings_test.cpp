// The settings functions as an application meets them: with the provider's log and path variables.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/system/Fabric.h"

namespace systemtest {
namespace {

TEST(Settings, ReachTheProvidersVariablesAndLog) {
  const Log log(0x3FF, "TcpSocketPortNumber:1023\n");
  const Library library;
  const std::string folder = Scratch("opt");
  std::filesystem::create_directories(folder + "/logs");
  WriteFile("/etc/varnix/quorbench/varnixRMConfig",
            "InstallDir:/opt/here\nOptDir:" + folder + "\nLogFilePath:\n");

  EXPECT_EQ(library.Symbol<decltype(&initDirPaths)>("initDirPaths")(), 0);
  EXPECT_STREQ(library.Symbol<const char*>("DRAXONITE_BIN_DIR"), "/opt/here/bin/");
  std::array<char, 256> path{};
  EXPECT_EQ(library.Symbol<decltype(&getLogFilePath)>("getLogFilePath")(path.data()), 0);
  EXPECT_EQ(path.data(), folder + "/logs/rm.log");

  unsigned short port = 0;
  EXPECT_EQ(library.Symbol<decltype(&getTcpPortNumber)>("getTcpPortNumber")(&port), 107);
  std::ifstream providerLog(path.data());
  EXPECT_THAT(std::string(std::istreambuf_iterator<char>(providerLog), {}),
              testing::HasSubstr("Port number must be greater than 1023 and less than 65536.\n"));
}

// How often the settings file is opened while a process of its own loads the library.
int OpensAtLoad(const std::string& settings) {
  WriteFile(kSettingsPath, settings);
  const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  EXPECT_GE(inotify_add_watch(watch, kSettingsPath, IN_OPEN | IN_CLOSE_NOWRITE), 0);
  const pid_t child = fork();
  if (child == 0) {
    const Library library;
    _exit(0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  std::array<char, 4096> events{};
  const ssize_t length = read(watch, events.data(), events.size());
  close(watch);
  // Each opening and each closing; these take turns, or equal ones would be told as one.
  return length > 0 ? static_cast<int>(length / static_cast<ssize_t>(2 * sizeof(inotify_event))) : 0;
}

TEST(Settings, WithoutALogItsPathIsNotReadAtLoad) {
  const std::string path = "DISCO_LOG_PATH:" + Scratch("log") + "\n";
  const int withLog = OpensAtLoad("DISCO_LOG_MODE:1\n" + path);
  EXPECT_GT(withLog, 1);
  EXPECT_EQ(OpensAtLoad("DISCO_LOG_MODE:0\n" + path), withLog - 1);
}

TEST(Settings, NobodyWaitsForAPipeInTheirPlace) {
  for (const char* path : {kSettingsPath, "/etc/varnix_disc.conf"}) ASSERT_EQ(mkfifo(path, 0600), 0);
  const Library library(Fabric(std::vector<json>{FcBoard("1000000000000001")}).Path());
  const CallBacks callBacks(library, HBADISC_EVENT_EVERY_CYCLE);
  library.StartupEx(3600, 3600, 0);
  EXPECT_EQ(callBacks.Await(1).size(), 1U);
  EXPECT_EQ(library.Ports().size(), 1U);
  library.Terminate();
}

}  // namespace
}  // namespace systemtest

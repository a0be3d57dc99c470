// The settings functions as an application meets them: with the provider's log and path variables.

#include <gmock/gmock.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/Testing.h"
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

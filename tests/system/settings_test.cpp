// The settings functions as an application meets them: with the provider's log and path variables.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/system/Harness.h"

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

}  // namespace
}  // namespace systemtest

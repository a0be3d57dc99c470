// Start and stop, the choice of a source, settings, the log, and calls at the wrong time.
#include <gmock/gmock.h>

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include "provider/OpenProvider.h"
#include "tests/provider/Boundary.h"
#include "tests/support/Testing.h"

namespace providertest {
namespace {

using testing::HasSubstr;

constexpr char kSettings[] = "/etc/varnix/quorbench/";

// The fixed paths are the test's own only where /etc is a copy in memory, as tests/system/in_namespace makes
// it.
bool HasPrivateSettings() {
  struct statfs status {};
  return statfs("/etc", &status) == 0 && status.f_type == TMPFS_MAGIC;
}

// Each case needs a process of its own, as ctest runs it: what RMOpen_SetSource once said stays in force.
class Configured : public testing::Test {
 protected:
  void SetUp() override {
    if (!HasPrivateSettings()) GTEST_SKIP() << "needs tests/system/in_namespace";
    std::snprintf(LOG_FILE_PATH_DEFAULT, 256, "%s", m_Scratch.Path("rm.log").c_str());
    m_Fabric = m_Scratch.Write("f.json", json({{"local", {{"name", "h"}, {"boards", {FcBoard()}}}}}).dump());
  }
  void TearDown() override {
    for (const char* file : {"rm.conf", "varnixRMConfig"})
      std::filesystem::remove(std::string(kSettings) + file);
  }
  static void WriteSettings(const std::string& file, const std::string& text) {
    std::ofstream(kSettings + file, std::ios::trunc) << text;
  }

  Scratch m_Scratch;
  std::string m_Fabric;
};

TEST_F(Configured, SourceOfTheConfiguration) {
  std::filesystem::create_directories(m_Scratch.Path("sys/class"));
  const std::string elsewhere = m_Scratch.Write("other.conf", "FabricFile:" + m_Fabric);
  const struct {
    std::string rmConf;
    std::string rmConfig;
    std::uint32_t boards;
  } rows[] = {
      {"no line of ours\nFabricFile: " + m_Fabric + " \nSysfsRoot:/nowhere\n", "", 1},
      {"FabricFile:/nowhere\n", "ConfFilePath:" + elsewhere + "\n", 1},
      {"SysfsRoot:" + m_Scratch.Path("sys") + "\n", "", 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rmConf + row.rmConfig);
    WriteSettings("rm.conf", row.rmConf);
    WriteSettings("varnixRMConfig", row.rmConfig);
    ASSERT_EQ(RM_InitLib(), RM_STATUS_OK);
    EXPECT_EQ(Instances().status, RM_STATUS_OK);
    EXPECT_EQ(Instances().count, row.boards);
    EXPECT_EQ(RM_ExitLib(), RM_STATUS_OK);
  }
}

TEST_F(Configured, APipeInTheFilesPlaceIsNotWaitedFor) {
  ASSERT_EQ(mkfifo((kSettings + std::string("rm.conf")).c_str(), 0600), 0);
  EXPECT_EQ(RM_InitLib(), RM_STATUS_OK);
  EXPECT_EQ(RM_ExitLib(), RM_STATUS_OK);
}

TEST_F(Configured, WhatTheProcessSaysComesFirst) {
  WriteSettings("rm.conf", "FabricFile:/nowhere\n");
  ASSERT_EQ(SetSource("fabric", m_Fabric), 0);
  ASSERT_EQ(RM_InitLib(), RM_STATUS_OK);
  EXPECT_EQ(Instances().count, 1u);
  std::string reason;
  EXPECT_EQ(SetSource("fabric", m_Fabric, &reason), 1);
  EXPECT_EQ(reason, "expected to be called before RM_InitLib");
  EXPECT_EQ(RM_ExitLib(), RM_STATUS_OK);
}

TEST_F(Configured, WrongFabricFileFailsEveryQuestion) {
  WriteSettings("rm.conf", "FabricFile:" + m_Scratch.Write("bad.json", "{\n\"local\": 1}") + "\n");
  ASSERT_EQ(RM_InitLib(), RM_STATUS_OK);
  EXPECT_EQ(Instances().status, RM_STATUS_FAILED);
  EXPECT_EQ(ReadBoard(0).status, RM_STATUS_FAILED);
  EXPECT_EQ(Nodes(kPort).status, RM_STATUS_FAILED);
  EXPECT_EQ(RM_IsLocalHBA(Name(kPort).wwn), 0);
  EXPECT_THAT(ReadFile(LOG_FILE_PATH_DEFAULT),
              HasSubstr(m_Scratch.Path("bad.json") + ":2: local: expected an object"));
  EXPECT_EQ(RM_ExitLib(), RM_STATUS_OK);
}

TEST(Library, SourceThatIsRefused) {
  const Scratch scratch;
  std::string reason;
  EXPECT_EQ(SetSource("tape", "/sys", &reason), 1);
  EXPECT_EQ(reason, "expected \"fabric\" or \"sysfs\", not \"tape\"");
  EXPECT_EQ(SetSource("sysfs", scratch.Path("none"), &reason), 1);
  EXPECT_EQ(reason, scratch.Path("none") + ": expected the directory of a sysfs");
  char few[6];
  RMOpen_LastError(few, sizeof(few));
  EXPECT_EQ(few, reason.substr(0, 5));
  // Each thread has its own.
  std::thread([] {
    char text[16] = "#";
    RMOpen_LastError(text, sizeof(text));
    EXPECT_STREQ(text, "");
  }).join();
  EXPECT_EQ(RMOpen_SetSource(nullptr, "x"), 1);
  EXPECT_EQ(SetSource("sysfs", scratch.Path("."), &reason), 0);
  EXPECT_EQ(reason, "");
}

TEST(Library, StartsAreCounted) {
  EXPECT_EQ(Instances().status, RM_STATUS_FAILED);
  EXPECT_EQ(RM_ExitLib(), RM_STATUS_FAILED);
  {
    const Fabric fabric(Boards{FcBoard()});
    EXPECT_EQ(RM_InitLib(), RM_STATUS_OK);
    EXPECT_EQ(RM_ExitLib(), RM_STATUS_OK);
    EXPECT_EQ(Instances().count, 1u);
  }
  unsigned int number = 5;
  EXPECT_EQ(Instances().status, RM_STATUS_FAILED);
  EXPECT_EQ(RM_GetSecureMgmtConfig(&number), RM_STATUS_FAILED);
  EXPECT_EQ(number, 5u);
  EXPECT_EQ(AttributesRead(RM_GetDiscoveryAttributes, kPort).status, RM_STATUS_FAILED);
  EXPECT_EQ(RM_IsVarnixPort(Name(kPort).wwn), 0);
}

// Calls that come while the library starts and stops answer the truth or a failure.
TEST(Library, CallsBesideStartAndStop) {
  const Fabric fabric(Boards{FcBoard()});
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&done] {
      while (!done) {
        const auto instances = Instances();
        EXPECT_TRUE(instances.status == RM_STATUS_FAILED || instances.count == 1);
        const int status = AttributesRead(RM_GetDiscoveryAttributes, kPort).status;
        EXPECT_TRUE(status == RM_STATUS_FAILED || status == RM_STATUS_OK);
      }
    });
  }
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(RM_ExitLib(), RM_STATUS_OK);
    EXPECT_EQ(RM_InitLib(), RM_STATUS_OK);
  }
  done = true;
  for (std::thread& thread : threads) thread.join();
}

class Log : public testing::Test {
 protected:
  void SetUp() override { std::snprintf(LOG_FILE_PATH_DEFAULT, 256, "%s", m_Scratch.Path("rm.log").c_str()); }

  Scratch m_Scratch;
};

TEST_F(Log, MessagesAreAppendedLineByLine) {
  rm_printf("first %d\n", 1);
  rm_printf("second %s", "without newline");
  rm_printf("%s", "");
  rm_printf("third \x1b[2J%s", "\x7f");
  const std::string longText(10'000, 'x');
  rm_printf("%s\n", longText.c_str());
  std::istringstream log(ReadFile(LOG_FILE_PATH_DEFAULT));
  const std::string stamp = R"([0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8} \[[0-9]+\] )";
  std::string line;
  for (const std::string& text : {std::string("first 1"), std::string("second without newline"), std::string(),
                                  std::string("third \\?\\[2J\\?"), longText}) {
    ASSERT_TRUE(std::getline(log, line));
    EXPECT_THAT(line, testing::MatchesRegex(stamp + text));
  }
  EXPECT_FALSE(std::getline(log, line));
  struct stat status {};
  ASSERT_EQ(stat(LOG_FILE_PATH_DEFAULT, &status), 0);
  EXPECT_EQ(status.st_mode & 0137u, 0u);
}

}  // namespace
}  // namespace providertest

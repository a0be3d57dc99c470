// A fabric file that changes while the library runs.

#include "tests/provider/Boundary.h"
#include "tests/support/Testing.h"

namespace providertest {
namespace {

class Reload : public testing::Test {
 protected:
  void SetUp() override { std::snprintf(LOG_FILE_PATH_DEFAULT, 256, "%s", m_LogPath.c_str()); }

  std::string Log() const { return ReadFile(m_LogPath); }

  Fabric m_Fabric{Boards{FcBoard()}};
  const std::string m_LogPath = m_Fabric.Folder().Path("rm.log");
};

// Written in place, to the same size, right after the last time.
TEST_F(Reload, ContentOfTheSameSizeInTheSameFile) {
  for (const unsigned int link : {3u, 4u, 5u, 6u}) {
    m_Fabric.Local()["boards"][0]["link"] = link;
    m_Fabric.RewriteInPlace();
    EXPECT_TRUE(Eventually([&] { return ReadBoard(0).board.linkStatus == link; }));
  }
}

TEST_F(Reload, WrongContentIsLoggedOnceAndTheOldStays) {
  const auto eventuallyLogged = [this](const std::string& text, int lines) {
    return Eventually([&] {
      Instances();
      const std::string log = Log();
      return std::count(log.begin(), log.end(), '\n') == lines && log.find(text) != std::string::npos;
    });
  };
  const std::string wrong = m_Fabric.Path() + ":3: local.name: expected a text";
  m_Fabric.Folder().Write("fabric.json", "{\n \"local\": {\n  \"name\": 5\n }\n}\n");
  ASSERT_TRUE(eventuallyLogged(wrong, 1)) << Log();
  m_Fabric.Folder().Write("fabric.json", "{\n \"local\": {\n  \"name\": 6\n }\n}\n");
  ASSERT_TRUE(eventuallyLogged(wrong, 2)) << Log();
  std::filesystem::remove(m_Fabric.Path());
  ASSERT_TRUE(eventuallyLogged("No such file", 3)) << Log();
  EXPECT_EQ(Instances().count, 1u);

  m_Fabric.Local()["boards"].push_back(FcBoard(kOtherPort));
  m_Fabric.Rewrite();
  EXPECT_TRUE(Eventually([] { return Instances().count == 2; }));
  const std::string log = Log();
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 3);  // each wrong state once
}

}  // namespace
}  // namespace providertest

// The host files: what is kept, what is refused, and what the host lists read from them.
#include "oob/HostFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "oob/HostList.h"
#include "tests/oob/remote_provider.h"
#include "tests/support/Testing.h"

namespace {

constexpr char kFile[] = "hbahosts.lst";
constexpr char kTemporary[] = "hbahosts.tmp";

class HostFiles : public testing::Test {
 protected:
  HostFile::Added Add(const std::string& host) { return m_File.AddLine(host, host + "\n"); }
  std::string Content() const { return m_Provider.HostsFile(); }
  std::filesystem::path Path() const { return m_Provider.folder / kFile; }

  // Calls on something else in the file's place, which must neither wait nor change it.
  void ExpectRefused() {
    EXPECT_EQ(Add("10.0.0.1"), HostFile::Added::kFailed);
    EXPECT_FALSE(m_File.RemoveHost("10.0.0.1"));
    EXPECT_FALSE(m_File.Read([] { return false; }));
    std::uint32_t list[2] = {};
    EXPECT_EQ(GetOOBHostList(list), 0);
    EXPECT_EQ(list[0], 0U);
  }

  RemoteProvider m_Provider;
  HostFile m_File{kOobHostsFile};
};

TEST_F(HostFiles, AddsOnceAndRepairsTheLastLine) {
  EXPECT_EQ(Add("10.0.0.1"), HostFile::Added::kDone);
  EXPECT_EQ(Content(), "10.0.0.1\n");
  EXPECT_EQ(Add("10.0.0.1"), HostFile::Added::kDuplicate);
  m_Provider.Write(kFile, "10.0.0.11\n 10.0.0.1:2000 # x");
  EXPECT_EQ(Add("10.0.0.1"), HostFile::Added::kDuplicate);
  EXPECT_EQ(Content(), "10.0.0.11\n 10.0.0.1:2000 # x\n");
  m_Provider.Write(kFile, "# 10.0.0.1");
  EXPECT_EQ(Add("10.0.0.1"), HostFile::Added::kDone);
  EXPECT_EQ(Content(), "# 10.0.0.1\n10.0.0.1\n");
  m_Provider.Write(kFile, "");
  EXPECT_FALSE(m_File.HasHost("10.0.0.1"));
  EXPECT_EQ(Content(), "");
}

TEST_F(HostFiles, RemovesEveryLineOfAHostAndKeepsTheRest) {
  using namespace std::string_literals;
  const std::string garbage =
      "\0\0 10.0.0.1\n"s + "# 10.0.0.1\n\n" + std::string(3000, 'x') + "\n\xff\xfe 10.0.0.1\n";
  m_Provider.Write(kFile, garbage + "10.0.0.1:2000 # a\n" + "10.0.0.1\0tail\n"s + "10.0.0.12\n  10.0.0.1");
  m_Provider.Write(kTemporary, "left by a crash");
  ASSERT_EQ(chmod(Path().c_str(), 0640), 0);
  EXPECT_TRUE(m_File.RemoveHost("10.0.0.1"));
  EXPECT_EQ(Content(), garbage + "10.0.0.12\n");
  struct stat status {};
  ASSERT_EQ(stat(Path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);

  m_Provider.Write(kTemporary, "left by a crash");
  EXPECT_FALSE(m_File.RemoveHost("10.0.0.1"));
  EXPECT_FALSE(m_File.RemoveHost(""));
  EXPECT_FALSE(m_Provider.Exists(kTemporary));
  EXPECT_EQ(Content(), garbage + "10.0.0.12\n");
}

TEST_F(HostFiles, WhatIsNoRegularFileIsRefused) {
  ASSERT_EQ(mkdir(Path().c_str(), 0700), 0);
  ExpectRefused();
  ASSERT_EQ(rmdir(Path().c_str()), 0);
  ASSERT_EQ(mkfifo(Path().c_str(), 0600), 0);
  ExpectRefused();
  ASSERT_EQ(unlink(Path().c_str()), 0);
  m_Provider.hasFolder = false;
  ExpectRefused();
}

// Run by root, no mode stops a write; a link does, and a folder in the temporary file's place.
TEST_F(HostFiles, ARewriteThatFailsLeavesTheFile) {
  const std::string content = "10.0.0.1\n10.0.0.2\n";
  m_Provider.Write(kFile, content);
  m_Provider.Write("elsewhere", "precious");
  std::filesystem::create_symlink(m_Provider.folder / "elsewhere", m_Provider.folder / kTemporary);
  EXPECT_FALSE(m_File.RemoveHost("10.0.0.1"));
  EXPECT_EQ(m_Provider.Read("elsewhere"), "precious");
  unlink((m_Provider.folder / kTemporary).c_str());
  ASSERT_EQ(mkdir((m_Provider.folder / kTemporary).c_str(), 0700), 0);
  EXPECT_FALSE(m_File.RemoveHost("10.0.0.1"));
  EXPECT_EQ(Content(), content);
}

TEST_F(HostFiles, CimHostsAreFoundByTheirAddress) {
  HostFile file(kCimHostsFile);
  m_Provider.Write("zylhbacimhosts.so", "10. 0.0.1,5989,a\n# 10.0.0.1\n10.0.0.2");
  EXPECT_TRUE(file.HasHost("10.0.0.1"));
  EXPECT_TRUE(file.RemoveHost("10.0.0.1"));
  EXPECT_EQ(m_Provider.Read("zylhbacimhosts.so"), "# 10.0.0.1\n10.0.0.2\n");
}

TEST_F(HostFiles, UpdateCimEntriesRefillsTheTable) {
  m_Provider.cimTable["10.9.9.9"] = CIMCredentials{};
  EXPECT_EQ(UpdateCimEntries(), 0);
  EXPECT_EQ(m_Provider.cimTable.size(), 1U);  // nothing to put there: it stays
  std::string content = "10.0.0.1,1,a\n10.0.0.1,2,b\n";
  for (int i = 0; i < 1100; ++i)
    content += "10.1." + std::to_string(i / 100) + '.' + std::to_string(i % 100) + "\n";
  m_Provider.Write("zylhbacimhosts.so", content);
  EXPECT_EQ(UpdateCimEntries(), 0);
  EXPECT_EQ(m_Provider.cimTable.size(), 999U);
  EXPECT_EQ(m_Provider.cimTable["10.0.0.1"].port, 2U);
  m_Provider.scripted.Script("add CIM host", {{RM_STATUS_FAILED}});
  EXPECT_EQ(UpdateCimEntries(), 1);
  EXPECT_EQ(m_Provider.cimTable.size(), 999U);  // the rest is done all the same
}

}  // namespace

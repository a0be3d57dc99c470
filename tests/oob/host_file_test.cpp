// The host files: what is kept, what is refused, and what the host lists read from them.
#include "oob/HostFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <string>
#include <thread>

#include "oob/HostList.h"
#include "tests/oob/remote_provider.h"

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

// A line longer than a piece counts as several, each of which may be a host.
TEST_F(HostFiles, LongLines) {
  const std::string padding(300 * HostFilePieces::kMaxPiece, ' ');
  const std::string host = "10.0.0.1" + std::string(HostFilePieces::kMaxPiece - 8, ' ');
  m_Provider.Write(kFile, padding + host + "10.0.0.2\n10.0.0.3\n");
  EXPECT_TRUE(m_File.RemoveHost("10.0.0.1"));
  EXPECT_TRUE(Content() == padding + "10.0.0.2\n10.0.0.3\n");
  EXPECT_EQ(Add("10.0.0.2"), HostFile::Added::kDuplicate);

  // The text everywhere, its line nowhere.
  std::string near;
  while (near.size() < 10000000) near += "10.0.0.1";
  m_Provider.Write(kFile, near);
  EXPECT_FALSE(m_File.RemoveHost("10.0.0.1"));
  EXPECT_EQ(Add("10.0.0.1"), HostFile::Added::kDone);
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

TEST(HostFileLocks, WithoutOneBetweenProcesses) {
  RemoteProvider provider;
  provider.hasLocks = false;
  HostFile file(kOobHostsFile);
  EXPECT_EQ(file.AddLine("10.0.0.1", "10.0.0.1\n"), HostFile::Added::kDone);
  EXPECT_TRUE(file.RemoveHost("10.0.0.1"));
}

// Another thread of this process may have it for as long as another process does.
TEST_F(HostFiles, ReadingGivesUpWaitingWhenStopped) {
  m_Provider.Write(kFile, "10.0.0.1\n");
  m_File.Lock();
  int looks = 0;
  std::thread([&] { EXPECT_FALSE(m_File.Read([&looks] { return ++looks == 2; })); }).join();
  m_File.Unlock();
  EXPECT_TRUE(m_File.Read([] { return true; })) << "it was free";
}

// The tenth addition queries a host too, over a network; here it is the file alone, so a fixed allowance stands
// for that.
TEST_F(HostFiles, AddingToALongFileIsCheap) {
  std::string content;
  for (int i = 0; i < 10000; ++i) {
    std::string line = "10.1." + std::to_string(i / 100) + '.' + std::to_string(i % 100);
    line.resize(48, ' ');
    content += line + "# host\n";
  }
  m_Provider.Write(kFile, content);
  // Processor time, which other tests do not take; a fraction of a millisecond each without a sanitizer.
  const std::clock_t begin = std::clock();
  for (int i = 0; i < 21; ++i) EXPECT_EQ(Add("10.2.0." + std::to_string(i)), HostFile::Added::kDone);
  EXPECT_LT((std::clock() - begin) / 21, CLOCKS_PER_SEC / 20);
}

TEST_F(HostFiles, CimHostsAreFoundByTheirAddress) {
  HostFile file(kCimHostsFile);
  m_Provider.Write("zylhbacimhosts.so", "10. 0.0.1,5989,a\n# 10.0.0.1\n10.0.0.2");
  EXPECT_TRUE(file.HasHost("10.0.0.1"));
  EXPECT_TRUE(file.RemoveHost("10.0.0.1"));
  EXPECT_EQ(m_Provider.Read("zylhbacimhosts.so"), "# 10.0.0.1\n10.0.0.2\n");
}

TEST_F(HostFiles, HostListCountsWhatDoesNotFit) {
  m_Provider.Write(kFile, "10.0.0.1:2000 # one\n# no host\nserver7\n[fe80::1]:" + std::string(60, '1') + " # " +
                              std::string(40, 'n') + "\n");
  struct {
    std::uint32_t count = 1;
    std::uint32_t padding = 0;
    OobHostRecord records[2] = {};
  } list;
  std::memset(list.records, 0xAA, sizeof(list.records));
  EXPECT_EQ(GetOOBHostList(&list), 1);
  EXPECT_EQ(list.count, 2U);
  EXPECT_STREQ(list.records[0].name, "one");
  EXPECT_EQ(list.records[1].host[0], '\xAA');
  EXPECT_EQ(GetOOBHostList(&list), 0);
  EXPECT_EQ(std::strlen(list.records[1].host), 47U);
  EXPECT_EQ(std::strlen(list.records[1].name), 31U);
  EXPECT_EQ(GetOOBHostList(nullptr), 1);
}

TEST_F(HostFiles, CimEntries) {
  unsigned int count = 9;
  EXPECT_EQ(GetCimCount(nullptr), 1);
  EXPECT_EQ(GetCimCount(&count), 0);
  EXPECT_EQ(count, 0U);
  CIMCredentials records[1] = {};
  CIMCredentials* entries[] = {&records[0], nullptr};
  EXPECT_EQ(GetCimEntries(2, entries), 0);  // a missing file comes first
  m_Provider.Write("zylhbacimhosts.so", "10.0.0.1,5989,a\n# x\n10.0.0.2\n");
  EXPECT_EQ(GetCimEntries(1, entries), 0);
  EXPECT_STREQ(records[0].hostAddress, "10.0.0.1");
  EXPECT_EQ(GetCimEntries(2, entries), 1);  // the null record's turn
  EXPECT_EQ(GetCimEntries(0, entries), 1);
  EXPECT_EQ(GetCimEntries(1, nullptr), 1);
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

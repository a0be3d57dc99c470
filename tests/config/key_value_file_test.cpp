#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/SettingsFolder.h"

namespace {

using namespace std::string_literals;

class KeyValueFile : public SettingsFolder {};

TEST_F(KeyValueFile, LookUp) {
  struct Row {
    const char* what;
    std::string text;
    const char* key;
    int status;
    std::string value;
  };
  const std::string piece(250, 'v');
  const Row rows[] = {
      {"exact key", "A:1\nB:2\n", "B", 0, "2"},
      {"a shorter key of the line answers", "Repo:/a\n", "RepositoryDir", 0, "/a"},
      {"a longer key of the line does not", "RepositoryDir:/a\n", "Repo", 199, ""},
      {"the first answer wins", "Repo:/a\nRepositoryDir:/b\n", "RepositoryDir", 0, "/a"},
      {"an empty key answers for everything", ":x\nA:1\n", "A", 0, "x"},
      {"the value keeps colons and blanks", "A: b:c \n", "A", 0, " b:c "},
      {"blanks belong to the key", "A :1\n", "A", 199, ""},
      {"an empty value is found", "A:\nA:2\n", "A", 0, ""},
      {"a carriage return stays", "A:1\r\n", "A", 0, "1\r"},
      {"no newline at the end", "A:1", "A", 0, "1"},
      {"a line without colon says nothing", "A\n\n# A\nA:1\n", "A", 0, "1"},
      {"no such key", "A:1\n", "B", 199, ""},
      {"empty file", "", "A", 199, ""},
      // 254 characters are one piece: "key:" and 250 more.
      {"a piece's worth", "key:" + piece + "\n", "key", 0, piece},
      {"a longer value is cut at the piece", "key:" + piece + "tail\n", "key", 0, piece},
      {"the rest of a long line is a line", "key:" + piece + "B:2\n", "B", 0, "2"},
      {"a value ends at its NUL", "A:1\0:2\n"s, "A", 0, "1"},
      {"a NUL hides nothing behind it", "\0A:0\nB\0:0\n\0\nB:2\n"s, "B", 0, "2"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Write(row.text);
    std::array<char, 512> value;
    value.fill('#');
    EXPECT_EQ(getKeyValue(Path(), row.key, value.data(), static_cast<int>(value.size())), row.status);
    EXPECT_STREQ(value.data(), row.value.c_str());
  }
}

TEST_F(KeyValueFile, ValueIsCutToTheBufferAndFillsIt) {
  Write("A:12345\n");
  for (const auto& [size, expected] : {std::pair{1, ""}, {2, "1"}, {5, "1234"}, {6, "12345"}, {7, "12345"}}) {
    std::array<char, 9> value;
    value.fill('#');
    EXPECT_EQ(getKeyValue(Path(), "A", value.data(), size), 0);
    std::string whole(expected);
    whole.resize(static_cast<std::size_t>(size), '\0');
    whole.resize(value.size(), '#');
    EXPECT_EQ(std::string(value.data(), value.size()), whole) << size;
  }
}

TEST_F(KeyValueFile, SetAppendsWhateverIsThere) {
  EXPECT_EQ(setKeyValue(Path(), "A", "1"), 0);
  EXPECT_EQ(setKeyValue(Path(), "A", "2"), 0);
  EXPECT_EQ(Read(), "A:1\nA:2\n");
  Write("A:1");
  EXPECT_EQ(setKeyValue(Path(), "B", "2"), 0);
  EXPECT_EQ(Read(), "A:1\nB:2\n") << "lines are not glued together";
}

TEST_F(KeyValueFile, Replace) {
  struct Row {
    const char* what;
    std::string before;
    std::string after;
  };
  const std::string piece(250, 'v');
  const Row rows[] = {
      {"in place", "A:1\nKey:old\nB:2\n", "A:1\nKey:new\nB:2\n"},
      {"every line", "Key:1\nA:1\nKey:2\n", "Key:new\nA:1\nKey:new\n"},
      {"prefixes too, under the whole key", "K:1\nKeyLonger:2\n", "Key:new\nKeyLonger:2\n"},
      {"appended", "A:1\n# note\n", "A:1\n# note\nKey:new\n"},
      {"appended after an unfinished line", "A:1", "A:1\nKey:new\n"},
      {"an unfinished line", "Key:1", "Key:new\n"},
      {"empty file", "", "Key:new\n"},
      {"first piece of a long line", "Key:" + piece + "tail\nA:1\n", "Key:new\ntail\nA:1\n"},
      {"what NULs are in", "\0A:1\nKey:\0old\nB:\0\0"s, "\0A:1\nKey:new\nB:\0\0"s},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Write(row.before);
    EXPECT_EQ(replaceKeyValue(Path(), "Key", "new"), 0);
    EXPECT_EQ(Read(), row.after);
    EXPECT_FALSE(exists(m_TemporaryPath));
  }
}

// Makes something that is no file. A link leads to `target`.
int Make(mode_t type, const char* path, const char* target) {
  if (type == S_IFDIR) return mkdir(path, 0700);
  return type == S_IFLNK ? symlink(target, path) : mknod(path, type | 0600, 0);
}

constexpr mode_t kTypes[] = {S_IFIFO, S_IFSOCK, S_IFDIR, S_IFLNK};

TEST_F(KeyValueFile, WhatIsNoFileIsNeitherReadNorWrittenNorWaitedFor) {
  alarm(60);  // a pipe is opened for ever
  for (const mode_t type : kTypes) {
    SCOPED_TRACE(type);
    ASSERT_EQ(Make(type, Path(), "/dev/zero"), 0);
    char value[4] = "old";
    EXPECT_EQ(getKeyValue(Path(), "A", value, sizeof value), 200);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(setKeyValue(Path(), "A", "1"), 200);
    EXPECT_EQ(replaceKeyValue(Path(), "A", "1"), 200);
    EXPECT_FALSE(exists(m_TemporaryPath));
    std::filesystem::remove(m_Path);
  }
}

TEST_F(KeyValueFile, WhatIsInThePlaceOfTheTemporaryFileGivesWay) {
  alarm(60);
  const auto elsewhere = m_Folder / "elsewhere";
  std::ofstream(elsewhere) << "precious";
  for (const mode_t type : kTypes) {
    SCOPED_TRACE(type);
    const bool stays = type == S_IFDIR;  // it may hold something
    Write("A:1\n");
    ASSERT_EQ(Make(type, m_TemporaryPath.c_str(), elsewhere.c_str()), 0);
    EXPECT_EQ(replaceKeyValue(Path(), "A", "2"), stays ? 200 : 0);
    EXPECT_EQ(Read(), stays ? "A:1\n" : "A:2\n");
    EXPECT_EQ(exists(symlink_status(m_TemporaryPath)), stays);
    std::filesystem::remove(m_TemporaryPath);
  }
  EXPECT_EQ(Read(elsewhere), "precious");
}

TEST_F(KeyValueFile, FailedWritesLeaveTheOldFile) {
  EXPECT_EQ(setKeyValue("/dev/full", "A", "1"), 200);
  EXPECT_EQ(setKeyValue((m_Folder / "none" / "file").c_str(), "A", "1"), 200);
  EXPECT_EQ(replaceKeyValue((m_Folder / "none" / "file").c_str(), "A", "1"), 200);

  // No room: files cannot grow beyond ten bytes.
  Write("A:1\nB:2");
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit tiny{10, before.rlim_max};
  signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &tiny);
  const int replaced = replaceKeyValue(Path(), "A", "12345");
  const int appended = setKeyValue(Path(), "C", "12345");
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(replaced, 200);
  EXPECT_EQ(appended, 200);
  EXPECT_EQ(Read(), "A:1\nB:2");
  EXPECT_FALSE(exists(m_TemporaryPath));
}

}  // namespace

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/Rows.h"
#include "tests/support/SettingsFolder.h"

namespace {

using namespace std::string_literals;

class KeyValueFile : public SettingsFolder {};

const std::string kLines = CONFIG_TESTS "/key_value_lines.txt";

std::string WithPieces(std::string text) {
  for (std::size_t at; (at = text.find("PIECE")) != std::string::npos;) text.replace(at, 5, 250, 'v');
  return text;
}

TEST_F(KeyValueFile, LookUp) {
  const auto expect = [this](const std::string& text, const std::string& key, const std::string& expected) {
    Write(text);
    std::array<char, 512> value;
    value.fill('#');
    const int status = getKeyValue(Path(), key.c_str(), value.data(), static_cast<int>(value.size()));
    EXPECT_EQ(std::to_string(status) + ' ' + value.data(), expected) << text;
  };
  for (const auto& [input, expected] : Rows(kLines, "look up")) {
    const std::size_t bar = input.rfind(" | ");
    expect(WithPieces(input.substr(0, bar)), input.substr(bar + 3), WithPieces(expected));
  }
  expect("A:1\0:2\n"s, "A", "0 1");                // a value ends at its NUL
  expect("\0A:0\nB\0:0\n\0\nB:2\n"s, "B", "0 2");  // which hides nothing behind it
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

TEST_F(KeyValueFile, RefusesInThisOrder) {
  char value[4] = "old";
  EXPECT_EQ(getKeyValue(nullptr, nullptr, nullptr, 4), 193);
  EXPECT_EQ(getKeyValue(Path(), "A", value, 0), 193);
  EXPECT_STREQ(value, "old");
  EXPECT_EQ(getKeyValue(Path(), nullptr, value, 4), 200) << "no file";
  EXPECT_STREQ(value, "");
  const mode_t mask = umask(002);
  EXPECT_EQ(replaceKeyValue(Path(), "A", "1"), 0) << "makes the file";
  umask(mask);
  EXPECT_EQ(std::filesystem::status(m_Path).permissions(), std::filesystem::perms(0660));
  EXPECT_EQ(getKeyValue(Path(), nullptr, value, 4), 199);
  EXPECT_EQ(setKeyValue(Path(), nullptr, "1"), 199);
  EXPECT_EQ(replaceKeyValue(Path(), "A", nullptr), 193);
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
  auto rows = Rows(kLines, "replace");
  rows.emplace_back("\0A:1\nKey:\0old\nB:\0\0"s, "\0A:1\nKey:new\nB:\0\0"s);
  for (const auto& [before, after] : rows) {
    Write(WithPieces(before));
    EXPECT_EQ(replaceKeyValue(Path(), "Key", "new"), 0);
    EXPECT_EQ(Read(), after);
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

// Several writers at once, on a full disk too, and writers that die or stand still: what is read is always the
// old or the new content.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/SettingsFolder.h"
#include "tests/support/Testing.h"

namespace {

class KeyValueWriters : public SettingsFolder {
 protected:
  template <typename Child>
  static pid_t Fork(Child child) {
    const pid_t pid = fork();
    if (pid == 0) {
      child();
      _exit(0);
    }
    return pid;
  }

  // Replaces one key again and again; false when a value of its own got lost.
  bool ReplaceOften(const char* key, int rounds) const {
    for (int round = 1; round <= rounds; ++round) {
      const std::string value = std::to_string(round);
      if (replaceKeyValue(Path(), key, value.c_str()) != 0 || ValueOf(key) != value) return false;
    }
    return true;
  }
};

TEST_F(KeyValueWriters, ProcessesLoseNothingToEachOther) {
  constexpr int kRounds = 100;
  const std::vector<const char*> keys = {"First", "Second", "Third"};
  Write("First:0\nSecond:0\nThird:0\n");
  std::vector<pid_t> children;
  children.reserve(keys.size() + 1);
  for (const char* key : keys) {
    children.push_back(Fork([&] { _exit(ReplaceOften(key, kRounds) ? 0 : 1); }));
  }
  std::string appended;
  children.push_back(Fork([&] {
    for (int i = 0; i < kRounds; ++i) {
      if (setKeyValue(Path(), "Fourth", "x") != 0) _exit(1);
    }
  }));
  for (int i = 0; i < kRounds; ++i) appended += "Fourth:x\n";
  std::size_t running = children.size();
  while (running > 0) {
    for (const char* key : keys) ASSERT_NE(ValueOf(key), "") << "a file without " << key << " was seen";
    int status = 0;
    if (waitpid(-1, &status, WNOHANG) > 0) {
      --running;
      EXPECT_EQ(status, 0) << "a writer lost a value of its own";
    }
  }
  EXPECT_EQ(Read(), "First:100\nSecond:100\nThird:100\n" + appended);
  EXPECT_FALSE(exists(m_TemporaryPath));
}

TEST_F(KeyValueWriters, AKilledWriterLeavesAWholeFileAndNoLock) {
  const std::string odd(200, '1');
  const std::string even(200, '2');
  Write("A:" + odd + "\nB:rest\n");
  for (int round = 0; round < 20; ++round) {
    int started[2];
    ASSERT_EQ(pipe(started), 0);
    const pid_t child = Fork([&] {
      for (int i = 0;; ++i) {
        replaceKeyValue(Path(), "A", (i % 2 == 0 ? even : odd).c_str());
        if (i == 0) static_cast<void>(!write(started[1], "x", 1));
      }
    });
    char byte = 0;
    ASSERT_EQ(read(started[0], &byte, 1), 1);
    usleep(static_cast<unsigned int>(round) * 97);  // another moment of the writer's work each time
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(started[0]);
    close(started[1]);
    const std::string text = Read();
    ASSERT_TRUE(text == "A:" + odd + "\nB:rest\n" || text == "A:" + even + "\nB:rest\n") << text;
  }
  EXPECT_EQ(replaceKeyValue(Path(), "B", "changed"), 0);
  EXPECT_EQ(ValueOf("B"), "changed");
  EXPECT_FALSE(exists(m_TemporaryPath));
}

}  // namespace

// Many processes change the hosts file at once, and some are killed while they do.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "oob/HostFile.h"
#include "tests/oob/remote_provider.h"
#include "tests/support/Testing.h"

namespace {

std::string Host(int process, int number) {
  return "10." + std::to_string(process) + ".0." + std::to_string(number);
}

// A line with its host twice, so that half of one is noticed.
std::string Line(const std::string& host) {
  std::string line = host;
  line.resize(48, ' ');
  return line + "# name-of-" + host + "\n";
}

// Every line is whole, and the first one is there.
void ExpectWholeFile(const std::string& content) {
  ASSERT_TRUE(content.starts_with("# kept\n"));
  HostFilePieces pieces(content);
  pieces.Next();
  while (const auto piece = pieces.Next())
    EXPECT_EQ(*piece, Line(std::string(piece->substr(0, piece->find(' ')))));
}

pid_t Fork(const std::function<void()>& work) {
  const pid_t child = fork();
  if (child != 0) return child;
  work();
  _exit(0);
}

TEST(HostFileProcesses, NoLineIsLostAndNoLockStays) {
  constexpr int kProcesses = 50;
  constexpr int kHosts = 8;
  RemoteProvider provider;
  provider.Write("hbahosts.lst", "# kept\n");

  std::vector<pid_t> steady;
  std::vector<pid_t> doomed;
  for (int process = 0; process < kProcesses; ++process) {
    // Adds its hosts and takes every second one out again.
    steady.push_back(Fork([process] {
      HostFile file(kOobHostsFile);
      for (int i = 0; i < kHosts; ++i) {
        const std::string host = Host(process, i);
        if (file.AddLine(host, Line(host)) != HostFile::Added::kDone) _exit(1);
        if (i % 2 != 0 && !file.RemoveHost(host)) _exit(2);
      }
    }));
    // Changes its line over and over until it is killed.
    doomed.push_back(Fork([process] {
      const std::string host = Host(100 + process, 0);
      for (;;) {
        HostFile file(kOobHostsFile);
        file.AddLine(host, Line(host));
        file.RemoveHost(host);
      }
    }));
  }

  std::mt19937 random(1);
  for (const pid_t child : doomed) {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
    ASSERT_EQ(kill(child, SIGKILL), 0);
    // Read without the lock, as the host list is: an append may be under way, a rewrite is never seen half
    // done.
    ASSERT_TRUE(provider.HostsFile().starts_with("# kept\n"));
  }
  for (const pid_t child : doomed) ASSERT_EQ(waitpid(child, nullptr, 0), child);
  for (const pid_t child : steady) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }

  HostFile file(kOobHostsFile);  // the lock is free again
  const std::string content = file.Read([] { return false; }).value_or("");
  ExpectWholeFile(content);
  for (int process = 0; process < kProcesses; ++process) {
    for (int i = 0; i < kHosts; ++i) {
      EXPECT_EQ(content.find('\n' + Line(Host(process, i))) != std::string::npos, i % 2 == 0)
          << process << ' ' << i;
    }
  }
}

}  // namespace

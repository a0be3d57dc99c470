#include "discovery/DiscoveryLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

constexpr int kClosed = -1;
constexpr std::size_t kLineSize = 512;  // with its NUL; longer lines are cut
constexpr int kVersion[] = {14, 0, 326, 24};

// Both constinit: the log is used while other globals are still being constructed.
constinit std::atomic<unsigned int> gs_LogMode{0};
constinit std::atomic<int> gs_LogFile{kClosed};

const char* FormatNow(const char* format, char* text, std::size_t size) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  if (localtime_r(&now, &local) == nullptr || std::strftime(text, size, format, &local) == 0) text[0] = '\0';
  return text;
}

// Length of the text that snprintf left in `room` bytes, given its result.
std::size_t Written(int result, std::size_t room) {
  if (result < 0) return 0;
  const auto wanted = static_cast<std::size_t>(result);
  return wanted < room ? wanted : room - 1;
}

void WriteAll(int file, const char* text, std::size_t length) {
  while (length > 0) {
    const ssize_t n = write(file, text, length);
    if (n < 0) {
      if (errno == EINTR) continue;
      return;
    }
    text += n;
    length -= static_cast<std::size_t>(n);
  }
}

}  // namespace

const char* disco_timestr() {
  thread_local char text[32];
  return FormatNow("%H:%M:%S", text, sizeof text);
}

const char* disco_datestr() {
  thread_local char text[32];
  return FormatNow("%m/%d/%y", text, sizeof text);
}

void SetDiscoveryLogMode(unsigned int mode) {
  gs_LogMode.store(mode);
}

void OpenDiscoveryLog(const char* path) {
  if (gs_LogFile.load() != kClosed || gs_LogMode.load() == 0 || path == nullptr || path[0] == '\0') return;
  // Not blocking: a pipe that nobody reads must not stop the program that loads the library.
  const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666);
  if (file < 0) return;
  char banner[128];
  const int length =
      std::snprintf(banner, sizeof banner, "\n[ %s %s: DRAXONITE DISCOVERY VERSION %d.%d.%d.%d ]\n\n",
                    disco_datestr(), disco_timestr(), kVersion[0], kVersion[1], kVersion[2], kVersion[3]);
  WriteAll(file, banner, Written(length, sizeof banner));
  int none = kClosed;
  if (!gs_LogFile.compare_exchange_strong(none, file)) close(file);
}

void disco_printf(unsigned int mask, const unsigned char* wwn, const char* format, ...) {
  const int file = gs_LogFile.load();
  if ((gs_LogMode.load() & mask) == 0 || file == kClosed) return;

  char line[kLineSize];
  char now[32];
  std::size_t length =
      Written(std::snprintf(line, sizeof line, "%s: ", FormatNow("%H:%M:%S", now, sizeof now)), sizeof line);
  if (wwn != nullptr) {
    length += Written(
        std::snprintf(line + length, sizeof line - length, " HBA %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x -  ",
                      wwn[0], wwn[1], wwn[2], wwn[3], wwn[4], wwn[5], wwn[6], wwn[7]),
        sizeof line - length);
  }
  std::va_list arguments;
  va_start(arguments, format);
  const int wanted = std::vsnprintf(line + length, sizeof line - length, format, arguments);
  va_end(arguments);
  length += Written(wanted, sizeof line - length);

  if (line[length - 1] != '\n') {
    if (length > kLineSize - 2) length = kLineSize - 2;
    line[length++] = '\n';
  }
  WriteAll(file, line, length);
}

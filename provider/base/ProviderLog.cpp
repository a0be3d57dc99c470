#include "provider/Exports.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <string>

#include "provider/base/FileDescriptor.h"
#include "provider/base/ProviderLog.h"

namespace provider {

namespace {

constexpr std::size_t kLongestMessage = 65'536;

// Opened anew for each message, so that the file may be moved away at any time. Not blocking: what stands under
// the name may be a pipe that nobody reads.
FileDescriptor OpenLog() {
  FileDescriptor log(open(LOG_FILE_PATH_DEFAULT,
                          O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                          S_IRUSR | S_IWUSR | S_IRGRP));
  struct stat status {};
  if (log.IsOpen() && (fstat(log.Get(), &status) != 0 || !S_ISREG(status.st_mode))) return FileDescriptor();
  return log;
}

// Set once, before there are other threads: what a message to standard error begins with. Empty: the log file.
std::string& ProgramName() {
  static std::string& name = *new std::string;
  return name;
}

// Names come from adapters, hosts and files: none acts on the terminal that the log is read on.
void ReplaceControls(std::string& line) {
  std::replace_if(
      line.begin(), line.end(),
      [](char c) { return (c >= 0 && c < ' ' && c != '\n' && c != '\t') || c == 0x7F; }, '?');
}

std::string Stamp() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  std::array<char, 32> text{};
  if (localtime_r(&now, &local) != nullptr) std::strftime(text.data(), text.size(), "%F %T", &local);
  return std::string(text.data()) + " [" + std::to_string(getpid()) + "] ";
}

}  // namespace

void LogToStandardError(std::string_view program) noexcept {
  try {
    ProgramName() = std::string(program) + ": ";
  } catch (...) {
    // Out of memory: messages go to the log file.
  }
}

void LogLine(std::string_view text) noexcept {
  try {
    const bool isToFile = ProgramName().empty();
    const FileDescriptor log = isToFile ? OpenLog() : FileDescriptor();
    if (isToFile && !log.IsOpen()) return;
    std::string line = (isToFile ? Stamp() : ProgramName()).append(text);
    if (!line.ends_with('\n')) line += '\n';
    ReplaceControls(line);
    // A log that cannot be written to has nobody to tell.
    [[maybe_unused]] const ssize_t written =
        write(isToFile ? log.Get() : STDERR_FILENO, line.data(), line.size());
  } catch (...) {
    // Out of memory: the message is lost.
  }
}

void LogFormatted(const char* format, std::va_list arguments) noexcept {
  try {
    std::va_list again;
    va_copy(again, arguments);
    std::array<char, 1024> shortText;
    const int length = std::vsnprintf(shortText.data(), shortText.size(), format, arguments);
    if (length >= 0 && static_cast<std::size_t>(length) < shortText.size()) {
      LogLine(shortText.data());
    } else if (length >= 0) {
      std::string text(std::min<std::size_t>(static_cast<std::size_t>(length), kLongestMessage), '\0');
      std::vsnprintf(text.data(), text.size() + 1, format, again);
      LogLine(text);
    }
    va_end(again);
  } catch (...) {
    // Out of memory: the message is lost.
  }
}

}  // namespace provider

void rm_printf(const char* format, ...) {
  if (format == nullptr) return;
  std::va_list arguments;
  va_start(arguments, format);
  provider::LogFormatted(format, arguments);
  va_end(arguments);
}

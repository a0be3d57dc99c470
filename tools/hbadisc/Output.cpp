#include "tools/hbadisc/Output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <system_error>

#include "tools/hbadisc/StopSignal.h"
#include "tools/hbadisc/Text.h"

namespace hbadisc {

namespace {

constexpr std::string_view kClearLine = "\r\x1b[K";

bool IsTerminal(int descriptor) {
  return IsInherited(descriptor) && isatty(descriptor) == 1;
}

bool TerminalUnderstandsEscapes() {
  const char* term = std::getenv("TERM");
  return term && *term && std::string_view(term) != "dumb";
}

// See no-color.org: set and not empty.
bool ColourIsUnwanted() {
  const char* noColor = std::getenv("NO_COLOR");
  return noColor && *noColor;
}

[[noreturn]] void FailWrite(int error) {
  if (error == EPIPE || error == EINTR) throw OutputError("");
  throw OutputError("cannot write: " + std::generic_category().message(error));
}

void WaitUntilWritable(int descriptor) {
  pollfd wanted{descriptor, POLLOUT, 0};
  if (poll(&wanted, 1, -1) < 0 && StopSignal::Requested()) FailWrite(EINTR);
}

}  // namespace

bool IsInherited(int descriptor) {
  const int flags = fcntl(descriptor, F_GETFD);
  return flags >= 0 && (flags & FD_CLOEXEC) == 0;
}

int ClaimStandardOutput() {
  if (!IsInherited(STDOUT_FILENO)) return -1;
  const int data = fcntl(STDOUT_FILENO, F_DUPFD, STDERR_FILENO + 1);
  if (data < 0) return STDOUT_FILENO;
  // Not just closed: the next file to be opened would be standard output then.
  const int words = IsInherited(STDERR_FILENO) ? STDERR_FILENO : open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (words >= 0) dup2(words, STDOUT_FILENO);
  return data;
}

Output::Output(int descriptor)
    : m_Descriptor(descriptor),
      m_Colour(IsTerminal(descriptor) && TerminalUnderstandsEscapes() && !ColourIsUnwanted()) {}

void Output::Write(std::string_view text) {
  if (!IsInherited(m_Descriptor)) FailWrite(EBADF);
  while (!text.empty()) {
    const ssize_t written = write(m_Descriptor, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      WaitUntilWritable(m_Descriptor);
    } else if (errno != EINTR || StopSignal::Requested()) {
      FailWrite(errno);
    }
  }
}

bool Output::HasReader() const {
  pollfd state{m_Descriptor, 0, 0};
  return IsInherited(m_Descriptor) && poll(&state, 1, 0) <= 0;
}

Messages::Messages(int descriptor)
    : m_Descriptor(descriptor), m_ShowsProgress(IsTerminal(descriptor) && TerminalUnderstandsEscapes()) {}

void Messages::Say(std::string_view text) {
  ClearProgress();
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) Write("hbadisc: " + Printable(line) + '\n');
}

void Messages::Detail(std::string_view text) {
  if (m_Verbose) Say(text);
}

void Messages::Progress(std::string_view text) {
  if (!m_ShowsProgress || m_Verbose) return;
  Write(std::string(kClearLine) + Printable(text));
  m_ProgressVisible = true;
}

void Messages::ClearProgress() {
  if (m_ProgressVisible) Write(kClearLine);
  m_ProgressVisible = false;
}

// Nothing is left to tell of a failure to.
void Messages::Write(std::string_view text) {
  if (!IsInherited(m_Descriptor)) return;
  while (!text.empty()) {
    const ssize_t written = write(m_Descriptor, text.data(), text.size());
    if (written < 0 && errno != EINTR) return;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace hbadisc

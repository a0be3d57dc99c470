#include "log/DiscoveryLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

namespace {

constexpr int kClosed = -1;
constexpr std::size_t kLineSize = 512;  // with its NUL; longer lines are cut
constexpr int kVersion[] = {14, 0, 326, 24};

// Both constinit: the log is used while other globals are still being constructed.
constinit std::atomic<unsigned int> gs_LogMode{0};
constinit std::atomic<int> gs_LogFile{kClosed};

// Never freed: another thread may be about to call it. They form a chain, so that none is out of reach.
struct Listener {
  DiscoveryLogListener function;
  unsigned int mask;
  void* context;
  const Listener* before;
};
constinit std::atomic<const Listener*> gs_AllListeners{nullptr};
constinit std::atomic<const Listener*> gs_Listener{nullptr};  // of these
// The listener runs on this thread: what it logs itself is not told to it.
constinit thread_local bool t_Telling = false;

const Listener* ListenerFor(unsigned int mask) {
  const Listener* listener = t_Telling ? nullptr : gs_Listener.load();
  return listener != nullptr && (listener->mask & mask) != 0 ? listener : nullptr;
}

// Lines are told from the middle of everything: what the listener throws must not come through there.
void Tell(const Listener& listener, unsigned int mask, const char* line) {
  t_Telling = true;
  try {
    listener.function(mask, line, listener.context);
  } catch (...) {
  }
  t_Telling = false;
}

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

// Length of the UTF-8 character that `text` begins with; 0 when it is no character of more than one byte, or is
// one that controls a terminal.
std::size_t CharacterLength(std::string_view text) {
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned char lead = byte(0);
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
  // Where not every second byte goes: 0x80 to 0x9f are controls, longer forms than needed may hide one.
  const unsigned char least = lead == 0xC2 || lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned char most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < least || byte(1) > most) return 0;
  for (std::size_t at = 2; at < length; ++at) {
    if ((byte(at) & 0xC0) != 0x80) return 0;
  }
  return length;
}

// Also the bytes from 0x80 on that are controls to a terminal of 8 bits, though not within a UTF-8 character.
bool IsControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < ' ' || (byte >= 0x7F && byte < 0xA0);
}

// Makes every control byte of a message a question mark, except the newlines of its format. Names come from
// adapters, hosts and files: one must not forge a line of the log, nor act on the terminal that it is read on.
//
// `twin` is the same message with other bytes for those newlines: no argument can make the two differ.
void ReplaceControls(char* message, std::size_t length, std::string_view twin) {
  std::size_t at = 0;
  while (at < length) {
    if (const std::size_t character = CharacterLength({message + at, length - at}); character != 0) {
      at += character;
      continue;
    }
    const bool isOfFormat = message[at] == '\n' && at < twin.size() && twin[at] != '\n';
    if (IsControl(message[at]) && !isOfFormat) message[at] = '?';
    ++at;
  }
}

// The twin's length; 0 without a newline in the format, which then needs none.
__attribute__((format(printf, 3, 0))) std::size_t FormatTwin(char* twin, std::size_t room, const char* format,
                                                             std::va_list arguments) {
  char otherFormat[kLineSize];
  const std::size_t length = std::min(std::strlen(format), sizeof otherFormat - 1);
  std::replace_copy(format, format + length, otherFormat, '\n', '\r');
  otherFormat[length] = '\0';
  if (std::strchr(otherFormat, '\r') == nullptr) return 0;
  return Written(std::vsnprintf(twin, room, otherFormat, arguments), room);
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

void SetDiscoveryLogListener(DiscoveryLogListener function, unsigned int mask, void* context) {
  const Listener wanted{function, function == nullptr ? 0 : mask, context, nullptr};
  const auto same = [&wanted](const Listener& known) {
    return known.function == wanted.function && known.mask == wanted.mask && known.context == wanted.context;
  };
  // One that was there before serves again, so that turning it on and off costs no memory.
  for (const Listener* known = gs_AllListeners.load(); known != nullptr; known = known->before) {
    if (!same(*known)) continue;
    gs_Listener = known;
    return;
  }
  auto* listener = new Listener(wanted);
  listener->before = gs_AllListeners.load();
  while (!gs_AllListeners.compare_exchange_weak(listener->before, listener)) {
  }
  gs_Listener = listener;
}

void disco_printf(unsigned int mask, const unsigned char* wwn, const char* format, ...) {
  const int file = gs_LogFile.load();
  const bool isWritten = (gs_LogMode.load() & mask) != 0 && file != kClosed;
  const Listener* const listener = ListenerFor(mask);
  if (!isWritten && listener == nullptr) return;

  char line[kLineSize];
  char now[32];
  std::size_t length =
      Written(std::snprintf(line, sizeof line, "%s: ", FormatNow("%H:%M:%S", now, sizeof now)), sizeof line);
  const std::size_t timeLength = length;
  if (wwn != nullptr) {
    length += Written(
        std::snprintf(line + length, sizeof line - length, " HBA %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x -  ",
                      wwn[0], wwn[1], wwn[2], wwn[3], wwn[4], wwn[5], wwn[6], wwn[7]),
        sizeof line - length);
  }
  const std::size_t room = sizeof line - length;
  char twin[kLineSize];
  std::va_list arguments;
  va_start(arguments, format);
  const int wanted = std::vsnprintf(line + length, room, format, arguments);
  va_end(arguments);
  va_start(arguments, format);
  const std::size_t twinLength = FormatTwin(twin, room, format, arguments);
  va_end(arguments);
  const std::size_t written = Written(wanted, room);
  ReplaceControls(line + length, written, {twin, twinLength});
  length += written;

  if (line[length - 1] != '\n') {
    if (length > kLineSize - 2) length = kLineSize - 2;
    line[length++] = '\n';
  }
  if (isWritten) WriteAll(file, line, length);
  if (listener == nullptr) return;
  while (length > timeLength && line[length - 1] == '\n') --length;
  line[length] = '\0';
  Tell(*listener, mask, line + timeLength);
}

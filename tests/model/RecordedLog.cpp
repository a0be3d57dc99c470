#include "tests/model/RecordedLog.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

#include "discovery/DiscoveryLog.h"

namespace {

std::mutex linesMutex;
std::vector<LogLine> lines;

}  // namespace

void disco_printf(unsigned int mask, const unsigned char* wwn, const char* format, ...) {
  std::array<char, 512> text;
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  const std::lock_guard lock(linesMutex);
  const unsigned int port = wwn == nullptr ? 0 : wwn[6] * 256U + wwn[7];
  lines.push_back({mask, port, text.data()});
}

std::vector<LogLine> TakeLogLines() {
  const std::lock_guard lock(linesMutex);
  return std::exchange(lines, {});
}

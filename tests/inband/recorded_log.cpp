#include "tests/inband/recorded_log.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

#include "discovery/DiscoveryLog.h"
#include "discovery/HbaDiscoveryListKey.h"

RecordedLog* RecordedLog::s_Current = nullptr;

void RecordedLog::Add(Line line) {
  const std::lock_guard guard(m_Lock);
  m_Lines.push_back(std::move(line));
}

std::vector<RecordedLog::Line> RecordedLog::Lines() const {
  const std::lock_guard guard(m_Lock);
  return m_Lines;
}

int RecordedLog::Count(const std::string& text) const {
  int count = 0;
  for (const Line& line : Lines()) count += line.text == text ? 1 : 0;
  return count;
}

RecordedLog::Line RecordedLog::Find(const std::string& beginning) const {
  for (Line& line : Lines()) {
    if (line.text.starts_with(beginning)) return line;
  }
  return {0, 0, ""};
}

void disco_printf(unsigned int mask, const unsigned char* wwn, const char* format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  if (RecordedLog::s_Current == nullptr) return;
  RecordedLog::s_Current->Add({mask, wwn == nullptr ? 0 : WwpnKey(wwn), text});
}

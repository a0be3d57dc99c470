#include "tests/support/RecordedLog.h"

#include <cstdarg>
#include <cstdio>

#include "log/DiscoveryLog.h"
#include "model/WwpnKey.h"

void disco_printf(unsigned int mask, const unsigned char* wwn, const char* format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  RecordedLog* const log = RecordedLog::s_Current;
  if (log == nullptr) return;
  log->Add({mask, wwn == nullptr ? 0 : WwpnKey(wwn), text});
}

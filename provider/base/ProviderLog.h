// The provider's log: one file, found through LOG_FILE_PATH_DEFAULT, quietly nothing when it cannot be opened.
//
// Thread safety: may be called from any thread and process; a message is written in one piece.
#ifndef PROVIDER_BASE_PROVIDERLOG_H_
#define PROVIDER_BASE_PROVIDERLOG_H_

#include <cstdarg>
#include <string_view>

namespace provider {

// For a process of the provider's own: from now on messages go to standard error, without time and process id.
void LogToStandardError(std::string_view program) noexcept;

// Appends time, process id and `text`, and a newline unless the text ends in one.
void LogLine(std::string_view text) noexcept;

// The same with a printf format. A message of more than 64 KiB is cut.
void LogFormatted(const char* format, std::va_list arguments) noexcept;

}  // namespace provider

#endif  // PROVIDER_BASE_PROVIDERLOG_H_

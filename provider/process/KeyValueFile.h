// Reads the settings files' lines of key, colon and value.
#ifndef PROVIDER_PROCESS_KEYVALUEFILE_H_
#define PROVIDER_PROCESS_KEYVALUEFILE_H_

#include <optional>
#include <string>
#include <string_view>

namespace provider {

inline constexpr const char* kManagementSettings = "/etc/varnix/quorbench/varnixRMConfig";

// The value of the first line that answers to `key`, by the rule of every reader of these files: a line's key
// may be shorter than the key asked for, it only has to agree with its beginning. Nothing when there is no such
// line or the file cannot be read.
std::optional<std::string> ReadKeyValue(const std::string& path, std::string_view key);

}  // namespace provider

#endif  // PROVIDER_PROCESS_KEYVALUEFILE_H_

// The management settings file: where things are installed, and which host manages this one. Its functions are
// part of the exported interface, a file each for the directories (unixConfigPaths), the path variables built
// from them (unixConfigDirs), the management host (unixConfigHosts), the port of remote hosts (unixConfigPort),
// the system itself (unixConfigSystem) and the firmware repository (rmurepo). Here is how all of them read and
// write a setting.
//
// Thread safety: any thread, but for initDirPaths, which writes the provider's variables. The file is shared
// with other processes and read without a lock: a rewrite replaces it in one step.
#ifndef CONFIG_UNIXCONFIG_H_
#define CONFIG_UNIXCONFIG_H_

#include <array>
#include <cstddef>
#include <string_view>

#include "config/KeyValueFile.h"

inline constexpr char kManagementConfigPath[] = "/etc/varnix/quorbench/varnixRMConfig";
inline constexpr char kInstallDirDefault[] = "/opt/varnix/quorbench/";
inline constexpr char kOptDirDefault[] = "/var/opt/varnix/quorbench";
inline constexpr char kIniFileDefault[] = "/etc/varnix/quorbench/rm.conf";

// Room for a value; NULs fill what the value leaves.
inline constexpr std::size_t kSettingRoom = 256;
using SettingText = std::array<char, kSettingRoom>;

// What the provider's log is told when a setting cannot be read, or cannot be written.
struct SettingMessages {
  const char* readFailed;
  const char* writeFailed;
};

// Reads a setting into `value`, after creating the file when there is none. A line with nothing behind the
// colon gets the default as a further line at the end, which no reader sees behind the first; a missing line is
// an error. 0, or 200 with a message logged.
int ReadSetting(const char* key, std::string_view defaultValue, const SettingMessages& messages,
                SettingText& value);

// ReadSetting for the buffer of a caller, who gets all kSettingRoom bytes, or keeps what it had.
int CopySetting(const char* key, std::string_view defaultValue, const SettingMessages& messages, char* out);

// Reads a setting without default or message, from the file as it is: the status of getKeyValue.
int FindSetting(const char* key, SettingText& value);

inline std::string_view TextOf(const SettingText& value) {
  return value.data();
}

// One of the provider's path variables, as text: with a NUL or, should it have none, to its end.
std::string_view PathVariable(const char (&variable)[kSettingRoom]);

#endif  // CONFIG_UNIXCONFIG_H_

#include "config/unixConfig.h"

#include <algorithm>
#include <cstring>

#include "rmapi/rmapi.h"

namespace {

void Assign(SettingText& value, std::string_view text) {
  text = text.substr(0, value.size() - 1);
  std::fill(std::copy(text.begin(), text.end(), value.begin()), value.end(), '\0');
}

}  // namespace

int FindSetting(const char* key, SettingText& value) {
  return getKeyValue(kManagementConfigPath, key, value.data(), static_cast<int>(value.size()));
}

int ReadSetting(const char* key, std::string_view defaultValue, const SettingMessages& messages,
                SettingText& value) {
  CreateIfMissing(kManagementConfigPath);  // a failure shows in what follows
  if (FindSetting(key, value) != kSettingsDone) {
    rm_printf("%s", messages.readFailed);
    return kSettingsFileError;
  }
  if (value.front() != '\0') return kSettingsDone;
  Assign(value, defaultValue);
  if (setKeyValue(kManagementConfigPath, key, value.data()) != kSettingsDone) {
    rm_printf("%s", messages.writeFailed);
    return kSettingsFileError;
  }
  return kSettingsDone;
}

int CopySetting(const char* key, std::string_view defaultValue, const SettingMessages& messages, char* out) {
  if (out == nullptr) return kSettingsFileError;
  SettingText value{};
  const int status = ReadSetting(key, defaultValue, messages, value);
  if (status == kSettingsDone) std::copy(value.begin(), value.end(), out);
  return status;
}

std::string_view PathVariable(const char (&variable)[kSettingRoom]) {
  return {variable, strnlen(variable, sizeof variable)};
}

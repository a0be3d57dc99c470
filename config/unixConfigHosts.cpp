// Which host manages this one, and what it may do here.
#include <algorithm>
#include <cstring>

#include "config/unixConfig.h"
#include "rmapi/rmapi.h"

namespace {

constexpr char kServerKey[] = "ServerRemoteOperation";
constexpr char kManagementHostKey[] = "ManagementHost";
constexpr char kAddressKey[] = "MngmtHostIpAddress";
constexpr char kExclusiveKey[] = "ExclusiveHostMgmnt";
constexpr std::size_t kLongestAddress = 256;

// Sets `mode` by `isOn`, which judges the value.
template <typename Judge>
int GetMode(int* mode, const char* key, std::string_view defaultValue, const SettingMessages& messages,
            Judge isOn) {
  if (mode == nullptr) return kSettingsFileError;
  SettingText value{};
  const int status = ReadSetting(key, defaultValue, messages, value);
  if (status == kSettingsDone) *mode = isOn(TextOf(value)) ? 1 : 0;
  return status;
}

struct ChangeMessages {
  const char* readFailed;
  const char* replaceFailed;
  const char* appendFailed;
};

// Changes a setting that has a line; without one nothing is written. A line with an empty value stays, and with
// it what readers see: the new line goes to the end.
int ChangeSetting(const char* key, const char* value, const ChangeMessages& messages) {
  SettingText current{};
  if (FindSetting(key, current) != kSettingsDone) {
    rm_printf("%s", messages.readFailed);
    return kSettingsFileError;
  }
  const bool hasValue = current.front() != '\0';
  const int status = hasValue ? replaceKeyValue(kManagementConfigPath, key, value)
                              : setKeyValue(kManagementConfigPath, key, value);
  if (status == kSettingsDone) return kSettingsDone;
  rm_printf("%s", hasValue ? messages.replaceFailed : messages.appendFailed);
  return kSettingsFileError;
}

const char* TrueOrFalse(int value) {
  return value != 0 ? "true" : "false";
}

}  // namespace

int getServerOperatingMode(int* mode) {
  return GetMode(mode, kServerKey, "disabled",
                 {"getServerOperatingMode: call to getKeyValue failed\n",
                  "getServerOperatingMode: call to setKeyValue failed\n"},
                 [](std::string_view value) { return value == "enabled"; });
}

int getManagementHostMode(int* mode) {
  return GetMode(mode, kManagementHostKey, "false",
                 {"getManagementHostMode: call to getKeyValue failed for 'management_host' key\n",
                  "getManagementHostMode: call to setKeyValue failed\n"},
                 [](std::string_view value) { return value != "false"; });
}

int getExclusiveHostMgmnt(int* exclusive) {
  return GetMode(exclusive, kExclusiveKey, "false",
                 {"getExclusiveHostMgmnt: call to getKeyValue failed for 'exclusive' key\n",
                  "getExclusiveHostMgmnt: call to setKeyValue failed\n"},
                 [](std::string_view value) { return value == "true"; });
}

// There is no default address: an empty one is an answer, and nothing is written.
int getMgmntHostIpAddress(char* address) {
  if (address == nullptr) return kSettingsFileError;
  address[0] = '\0';
  CreateIfMissing(kManagementConfigPath);
  SettingText value{};
  if (FindSetting(kAddressKey, value) != kSettingsDone) {
    rm_printf("getMgmntHostIpAddress: call to getKeyValue failed for MngmtHostIpAddress key\n");
    return kSettingsFileError;
  }
  std::copy(value.begin(), value.end(), address);
  return kSettingsDone;
}

// The setters' parameters are not const: the interface is fixed.

int setManagementHostMode(int* mode) {  // NOLINT(readability-non-const-parameter)
  if (mode == nullptr) return kSettingsFileError;
  return ChangeSetting(kManagementHostKey, TrueOrFalse(*mode),
                       {"setManagementHostMode: call to getKeyValue failed for 'management host' key\n",
                        "setManagementHostMode: call to replaceKeyValue failed\n",
                        "setManagementHostMode: call to setKeyValue failed\n"});
}

int setExclusiveHostMgmnt(int* exclusive) {  // NOLINT(readability-non-const-parameter)
  if (exclusive == nullptr) return kSettingsFileError;
  return ChangeSetting(kExclusiveKey, TrueOrFalse(*exclusive),
                       {"setExclusiveHostMgmnt: call to getKeyValue failed for 'exclusive' key\n",
                        "setExclusiveHostMgmnt: call to replaceKeyValue failed\n",
                        "setExclusiveHostMgmnt: call to setKeyValue failed\n"});
}

int setMgmntHostIpAddress(char* address) {  // NOLINT(readability-non-const-parameter)
  if (address == nullptr) return kSettingsFileError;
  if (std::strlen(address) > kLongestAddress) {
    rm_printf("setMgmntHostIpAddress: ip address passed in = %s is too long.\n", address);
    return kSettingsFileError;
  }
  return ChangeSetting(kAddressKey, address,
                       {"setMgmntHostIpAddress: call to getKeyValue failed for MngmtHostIpAddress key\n",
                        "setMgmntHostIpAddress: call to replaceKeyValue failed\n",
                        "setMgmntHostIpAddress: call to setKeyValue failed\n"});
}

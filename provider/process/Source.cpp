#include "provider/process/Source.h"

#include <charconv>
#include <filesystem>
#include <stdexcept>

#include "provider/base/ProviderLog.h"
#include "provider/fabric/FabricHost.h"
#include "provider/process/KeyValueFile.h"
#include "provider/process/UnusableHost.h"
#include "provider/remote/RemoteHost.h"
#include "provider/sysfs/SysfsHost.h"

namespace provider {

namespace {

constexpr const char* kDefaultConfiguration = "/etc/varnix/quorbench/rm.conf";
constexpr const char* kDefaultSysfsRoot = "/sys";

// A value as a person writes it: a blank after the colon does not belong to it.
std::string Trimmed(const std::string& text) {
  constexpr const char* kBlanks = " \t\r";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string ConfiguredText(const std::string& file, const char* key) {
  return Trimmed(ReadKeyValue(file, key).value_or(""));
}

std::string ConfigurationFile() {
  std::string file = ConfiguredText(kManagementSettings, "ConfFilePath");
  return file.empty() ? kDefaultConfiguration : file;
}

std::chrono::milliseconds ConfiguredConnectLimit() {
  constexpr const char* kKey = "ConnectTimeoutMs";
  constexpr long kLeast = 100;
  constexpr long kMost = 60'000;
  const std::string file = ConfigurationFile();
  const std::string text = ConfiguredText(file, kKey);
  if (text.empty()) return kDefaultRemoteConnectLimit;
  long limit = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), limit);
  if (error == std::errc() && end == text.data() + text.size() && limit >= kLeast && limit <= kMost) {
    return std::chrono::milliseconds(limit);
  }
  LogLine(file + ": " + kKey + ": expected a number of milliseconds from " + std::to_string(kLeast) + " to " +
          std::to_string(kMost) + ", not " + text);
  return kDefaultRemoteConnectLimit;
}

}  // namespace

Source& Source::Get() {
  static Source& source = *new Source;
  return source;
}

Source::Choice Source::Configured() {
  const std::string file = ConfigurationFile();
  if (std::string fabric = ConfiguredText(file, "FabricFile"); !fabric.empty()) return {true, fabric};
  std::string root = ConfiguredText(file, "SysfsRoot");
  return {false, root.empty() ? kDefaultSysfsRoot : root};
}

std::unique_ptr<Host> Source::Open(const Choice& choice) {
  if (choice.isFabric) return MakeFabricHost(choice.path);
  std::error_code ignored;
  if (!std::filesystem::is_directory(choice.path, ignored)) {
    throw std::runtime_error(choice.path + ": expected the directory of a sysfs");
  }
  return MakeSysfsHost(choice.path);
}

void Source::Choose(const std::string& kind, const std::string& path) {
  if (kind != "fabric" && kind != "sysfs") {
    throw std::runtime_error("expected \"fabric\" or \"sysfs\", not \"" + kind + "\"");
  }
  const Choice choice{kind == "fabric", path};
  const MutexLock held(m_ChoiceMutex);
  if (m_Starts > 0) throw std::runtime_error("expected to be called before RM_InitLib");
  // Only to see whether it can be used: its clock is to start with RM_InitLib.
  Open(choice);
  m_Choice = choice;
}

void Source::Start() {
  const MutexLock held(m_ChoiceMutex);
  if (m_Starts > 0) {
    ++m_Starts;
    return;
  }
  SetRemoteConnectLimit(ConfiguredConnectLimit());
  std::shared_ptr<Host> host;
  std::string trouble;
  try {
    host = Open(m_Choice.has_value() ? *m_Choice : Configured());
  } catch (const std::runtime_error& error) {
    trouble = error.what();
    LogLine(trouble);
    host = MakeUnusableHost();
  }
  const MutexLock hostHeld(m_HostMutex);
  m_Host = std::move(host);
  m_Trouble = std::move(trouble);
  ++m_Starts;
}

bool Source::Stop() {
  std::shared_ptr<Host> last;  // ends outside the locks
  const MutexLock held(m_ChoiceMutex);
  if (m_Starts == 0) return false;
  if (--m_Starts > 0) return true;
  const MutexLock hostHeld(m_HostMutex);
  last.swap(m_Host);
  return true;
}

std::shared_ptr<Host> Source::Local() {
  const MutexLock held(m_HostMutex);
  return m_Host;
}

std::string Source::Trouble() {
  const MutexLock held(m_HostMutex);
  return m_Trouble;
}

}  // namespace provider

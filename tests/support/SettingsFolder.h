#ifndef TESTS_SUPPORT_SETTINGSFOLDER_H_
#define TESTS_SUPPORT_SETTINGSFOLDER_H_

#include "config/KeyValueFile.h"
#include "tests/support/Files.h"
#include "tests/support/Testing.h"

// A test with a settings file in a folder of its own.
class SettingsFolder : public testing::Test {
 protected:
  const char* Path() const { return m_Path.c_str(); }
  void Write(const std::string& text) const { std::ofstream(m_Path, std::ios::binary) << text; }
  static std::string Read(const std::filesystem::path& path) { return ReadFile(path); }
  std::string Read() const { return Read(m_Path); }
  std::string ValueOf(const char* key) const {
    std::array<char, 4096> value{};
    getKeyValue(Path(), key, value.data(), static_cast<int>(value.size()));
    return value.data();
  }

  const Scratch m_Scratch;
  const std::filesystem::path m_Path = m_Scratch.Path("file");
  const std::filesystem::path m_Folder = m_Path.parent_path();
  const std::filesystem::path m_TemporaryPath = m_Path.string() + ".%";
};

#endif  // TESTS_SUPPORT_SETTINGSFOLDER_H_

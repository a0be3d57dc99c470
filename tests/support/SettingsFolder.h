#ifndef TESTS_SUPPORT_SETTINGSFOLDER_H_
#define TESTS_SUPPORT_SETTINGSFOLDER_H_

#include <stdlib.h>

#include "config/KeyValueFile.h"
#include "tests/support/Testing.h"

// A test with a settings file in a folder of its own.
class SettingsFolder : public testing::Test {
 protected:
  SettingsFolder() {
    std::string name = testing::TempDir() + "settings-XXXXXX";
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    m_Folder = name;
    m_Path = m_Folder / "file";
    m_TemporaryPath = m_Path.string() + ".%";
  }
  ~SettingsFolder() override { std::filesystem::remove_all(m_Folder); }

  const char* Path() const { return m_Path.c_str(); }

  void Write(const std::string& text) const { std::ofstream(m_Path, std::ios::binary) << text; }

  static std::string Read(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string Read() const { return Read(m_Path); }

  std::string ValueOf(const char* key) const {
    std::array<char, 4096> value{};
    getKeyValue(Path(), key, value.data(), static_cast<int>(value.size()));
    return value.data();
  }

  std::filesystem::path m_Folder;
  std::filesystem::path m_Path;
  std::filesystem::path m_TemporaryPath;
};

#endif  // TESTS_SUPPORT_SETTINGSFOLDER_H_

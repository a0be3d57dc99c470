// Files and folders of a test's own.
#ifndef TESTS_SUPPORT_FILES_H_
#define TESTS_SUPPORT_FILES_H_

#include <stdlib.h>

#include "tests/support/Testing.h"

inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// A folder that goes with the object.
class Scratch {
 public:
  Scratch() {
    std::string pattern = std::filesystem::temp_directory_path() / "test-XXXXXX";
    m_Folder = mkdtemp(pattern.data());
  }
  ~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Folder, ignored);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  std::string Path(const std::string& name) const { return m_Folder + "/" + name; }
  // The file's path; replaced in one step when it is there already.
  std::string Write(const std::string& name, const std::string& text) const {
    std::ofstream(Path(name + ".new"), std::ios::binary) << text;
    std::filesystem::rename(Path(name + ".new"), Path(name));
    return Path(name);
  }

 private:
  std::string m_Folder;
};

#endif  // TESTS_SUPPORT_FILES_H_

#include "tests/sysfs/Tree.h"
#include "tests/support/Testing.h"

#include <sys/stat.h>
#include <unistd.h>

namespace sysfs_test {

namespace {

namespace fs = std::filesystem;

// A tree is thousands of small files: seconds to create on a disk, none in memory, if there is enough of it.
fs::path TemporaryPlace() {
  constexpr std::uintmax_t kEnough = std::uintmax_t{256} << 20;
  const fs::path memory = "/dev/shm";
  std::error_code error;
  const fs::space_info space = fs::space(memory, error);
  return !error && space.available >= kEnough ? memory : fs::temp_directory_path();
}

fs::path TemporaryFolder() {
  std::string folder = (TemporaryPlace() / "sysfs_test.XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("mkdtemp");
  return folder;
}

fs::path Archive(const std::string& name) {
  const fs::path own = fs::path(SYSFS_TREES) / (name + ".tar.gz");
  return fs::exists(own) ? own : fs::path(SYSFS_EXAMPLES) / (name + ".tar.gz");
}

void Unpack(const fs::path& archive, const fs::path& folder) {
  const std::string command = "tar -xzf '" + archive.string() + "' -C '" + folder.string() + "'";
  if (std::system(command.c_str()) != 0) throw std::runtime_error(command);
}

}  // namespace

Tree::Tree() : m_Folder(TemporaryFolder()) {
  fs::create_directories(Path("."));
}

Tree::Tree(const std::string& name) : m_Folder(TemporaryFolder()) {
  Unpack(Archive(name), m_Folder);
}

Tree::~Tree() {
  std::error_code ignored;
  fs::remove_all(m_Folder, ignored);
}

void Tree::Write(const std::string& path, const std::string& content) {
  Remove(path);
  std::ofstream file(Path(path), std::ios::binary);
  file << content;
}

void Tree::Link(const std::string& path, const std::string& target) {
  Remove(path);
  fs::create_symlink(target, Path(path));
}

void Tree::MakeFolder(const std::string& path) {
  Remove(path);
  fs::create_directories(Path(path));
}

void Tree::MakePipe(const std::string& path) {
  Remove(path);
  if (mkfifo(Path(path).c_str(), 0600) != 0) throw std::runtime_error("mkfifo");
}

void Tree::RemoveAll() {
  fs::remove_all(m_Folder / "sys");
}

void Tree::Remove(const std::string& path) {
  fs::remove_all(Path(path));
  fs::create_directories(Path(path).parent_path());
}

}  // namespace sysfs_test

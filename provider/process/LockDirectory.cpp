#include "provider/process/LockDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace provider {

namespace {

constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kFileMode = 0660;

// Anybody who may write into the directory could exchange a file and split its users in two, and anybody who
// owns it could let others in.
bool IsTrusted(const struct stat& status) {
  return (status.st_uid == 0 || status.st_uid == geteuid()) && (status.st_mode & S_IWOTH) == 0;
}

FileDescriptor OpenDirectory(const std::string& path) {
  FileDescriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!directory.IsOpen() || fstat(directory.Get(), &status) != 0 || !IsTrusted(status))
    return FileDescriptor();
  return directory;
}

FileDescriptor OpenIn(const std::string& path, const std::string& file) {
  const FileDescriptor directory = OpenDirectory(path);
  if (!directory.IsOpen()) return FileDescriptor();
  FileDescriptor descriptor(openat(directory.Get(), file.c_str(),
                                   O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                                   kFileMode));
  struct stat status {};
  if (!descriptor.IsOpen() || fstat(descriptor.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return FileDescriptor();
  }
  return descriptor;
}

// Made for the directory's own users only: one that somebody else has made would be refused by all others.
void MakeDirectory(const std::string& path) {
  mkdir(path.c_str(), kDirectoryMode);
}

}  // namespace

// The first directory is where lock files belong, but anybody may have made it before root did; the second only
// root can make. Who is not root shares a lock with root where root lets him, else with himself.
FileDescriptor OpenLockFile(const std::string& file) {
  for (const char* directory : {"/run/lock/varnix", "/run/varnix"}) {
    if (geteuid() == 0) MakeDirectory(directory);
    if (FileDescriptor descriptor = OpenIn(directory, file); descriptor.IsOpen()) return descriptor;
  }
  const std::string users = "/tmp/varnix-locks-" + std::to_string(geteuid());
  MakeDirectory(users);
  return OpenIn(users, file);
}

bool IsCurrentLockFile(const FileDescriptor& descriptor, const std::string& file) {
  const FileDescriptor current = OpenLockFile(file);
  struct stat mine {};
  struct stat theirs {};
  return current.IsOpen() && fstat(descriptor.Get(), &mine) == 0 && fstat(current.Get(), &theirs) == 0 &&
         mine.st_dev == theirs.st_dev && mine.st_ino == theirs.st_ino;
}

}  // namespace provider

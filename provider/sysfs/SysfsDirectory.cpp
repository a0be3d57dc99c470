#include "provider/sysfs/SysfsDirectory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <string_view>

namespace provider {

namespace {

bool IsShortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM;
}

// Without O_NONBLOCK the opening of a named pipe would wait for a writer.
int OpenFor(int parent, const std::string& path, int flags, ReadTrouble& trouble, int& error) {
  int descriptor = -1;
  do {
    descriptor = openat(parent, path.c_str(), flags | O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  } while (descriptor < 0 && errno == EINTR);
  error = descriptor < 0 ? errno : 0;
  if (IsShortage(error)) trouble.met = true;
  return descriptor;
}

bool IsRegularFile(int descriptor) {
  struct stat status;
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

bool IsAbsent(int error) {
  return error == ENOENT || error == ENODEV || error == ENXIO || error == ENOTDIR || error == ELOOP;
}

std::string PrintableText(std::string text) {
  const auto isHidden = [](char letter) { return letter < ' ' || letter > '~'; };
  std::replace_if(text.begin(), text.end(), isHidden, '?');
  return text;
}

std::string FirstLine(const std::string& content) {
  constexpr std::string_view kLineEnds("\n\0", 2);
  constexpr std::string_view kBlanks(" \t\r");
  std::string_view line = content;
  line = line.substr(0, line.find_first_of(kLineEnds));
  const std::size_t last = line.find_last_not_of(kBlanks);
  if (last == std::string_view::npos) return {};
  line = line.substr(0, last + 1);
  line.remove_prefix(line.find_first_not_of(kBlanks));
  return PrintableText(std::string(line));
}

SysfsDirectory::SysfsDirectory(const std::string& path, ReadTrouble& trouble)
    : SysfsDirectory(AT_FDCWD, path, trouble) {}

SysfsDirectory::SysfsDirectory(int parent, const std::string& path, ReadTrouble& trouble)
    : m_Trouble(&trouble), m_Descriptor(OpenFor(parent, path, O_DIRECTORY, trouble, m_Error)) {}

int SysfsDirectory::OpenAt(const std::string& path, int flags, int& error) const {
  if (IsOpen()) return OpenFor(m_Descriptor.Get(), path, flags, *m_Trouble, error);
  error = m_Error;
  return -1;
}

SysfsDirectory SysfsDirectory::Open(const std::string& path) const {
  // A descriptor of -1 refuses relative paths by itself, with EBADF; the first reason is the better one.
  SysfsDirectory opened(m_Descriptor.Get(), path, *m_Trouble);
  if (!IsOpen()) opened.m_Error = m_Error;
  return opened;
}

SysfsReading SysfsDirectory::Read(const std::string& path) const {
  SysfsReading reading;
  const FileDescriptor file(OpenAt(path, 0, reading.error));
  if (!file.IsOpen()) return reading;
  if (!IsRegularFile(file.Get())) {
    reading.error = EINVAL;
    return reading;
  }
  std::array<char, kMaxAttributeSize> buffer;
  std::size_t filled = 0;
  while (filled < buffer.size()) {
    const ssize_t count = read(file.Get(), buffer.data() + filled, buffer.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      reading.error = errno;
      if (IsShortage(reading.error)) m_Trouble->met = true;
      return reading;
    }
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  reading.content.assign(buffer.data(), filled);
  return reading;
}

std::string SysfsDirectory::Text(const std::string& path) const {
  return FirstLine(Read(path).content);
}

std::string SysfsDirectory::LinkText(const std::string& path) const {
  std::array<char, PATH_MAX> buffer;
  if (!IsOpen()) return {};
  const ssize_t length = readlinkat(m_Descriptor.Get(), path.c_str(), buffer.data(), buffer.size());
  return length < 0 ? std::string() : std::string(buffer.data(), static_cast<std::size_t>(length));
}

std::vector<std::string> SysfsDirectory::Names() const {
  std::vector<std::string> names;
  int error = 0;
  // A stream of its own: reading moves the position of the descriptor that it is given.
  FileDescriptor again(OpenAt(".", O_DIRECTORY, error));
  const std::unique_ptr<DIR, CloseDirectory> stream(again.IsOpen() ? fdopendir(again.Get()) : nullptr);
  if (stream == nullptr) {
    if (again.IsOpen() || !IsAbsent(error)) m_Trouble->met = true;
    return names;
  }
  again.Release();
  while (names.size() < kMaxEntries) {
    errno = 0;
    // Safe, as no other thread has this stream.
    const dirent* const entry = readdir(stream.get());  // NOLINT(concurrency-mt-unsafe)
    if (entry == nullptr) {
      if (errno != 0 && !IsAbsent(errno)) m_Trouble->met = true;
      break;
    }
    std::string name(entry->d_name);
    if (name != "." && name != "..") names.push_back(std::move(name));
  }
  return names;
}

}  // namespace provider

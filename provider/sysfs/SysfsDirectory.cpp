#include "provider/sysfs/SysfsDirectory.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
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

constexpr std::size_t kListingSize = 32768;  // bytes that are listed at once

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

// One read is all of an attribute: the kernel puts no more into one than a page, and gives that at once. Of
// what is no attribute it gives as little as of an empty one; opened as it is, a pipe does not keep anybody
// waiting.
SysfsReading SysfsDirectory::Read(const std::string& path) const {
  SysfsReading reading;
  const FileDescriptor file(OpenAt(path, 0, reading.error));
  if (!file.IsOpen()) return reading;
  std::array<char, kMaxAttributeSize> buffer;
  ssize_t count = 0;
  do {
    count = read(file.Get(), buffer.data(), buffer.size());
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    reading.error = errno;
    if (IsShortage(reading.error)) m_Trouble->met = true;
    return reading;
  }
  reading.content.assign(buffer.data(), static_cast<std::size_t>(count));
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
  if (!IsOpen()) {
    if (!IsAbsent(m_Error)) m_Trouble->met = true;
    return names;
  }
  // What a stream does, without its second descriptor. Nobody else reads this one meanwhile.
  lseek(m_Descriptor.Get(), 0, SEEK_SET);
  alignas(dirent64) std::array<char, kListingSize> buffer;
  for (;;) {
    const ssize_t filled = getdents64(m_Descriptor.Get(), buffer.data(), buffer.size());
    if (filled < 0 && !IsAbsent(errno)) m_Trouble->met = true;
    if (filled <= 0) return names;
    for (ssize_t at = 0; at < filled;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + at);
      at += entry->d_reclen;
      const std::string_view name = entry->d_name;
      if (name == "." || name == "..") continue;
      if (names.size() >= kMaxEntries) return names;
      names.emplace_back(name);
    }
  }
}

}  // namespace provider

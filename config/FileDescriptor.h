// An open file that closes itself, opening one without waiting, and writing all of a text into it.
//
// Thread safety: a value of one thread. Ownership: the object owns the descriptor.
#ifndef CONFIG_FILEDESCRIPTOR_H_
#define CONFIG_FILEDESCRIPTOR_H_

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : m_Fd(fd) {}
  Descriptor(Descriptor&& other) noexcept : m_Fd(std::exchange(other.m_Fd, -1)) {}
  ~Descriptor() {
    if (m_Fd >= 0) close(m_Fd);
  }
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(m_Fd, other.m_Fd);
    return *this;
  }

  bool IsOpen() const { return m_Fd >= 0; }
  int Get() const { return m_Fd; }
  int Release() { return std::exchange(m_Fd, -1); }

 private:
  int m_Fd;
};

// Opens a regular file, with `mode` when O_CREAT makes it. Anything else under that name stays unopened: nobody
// is waited for who might come to the other end of a pipe.
inline Descriptor OpenFile(const char* path, int flags, mode_t mode = 0) {
  Descriptor file(open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode));
  struct stat status {};
  if (file.IsOpen() && (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode))) return Descriptor();
  return file;
}

using FileStream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// The same for reading; null when it is not open.
inline FileStream OpenForReading(const char* path) {
  Descriptor file = OpenFile(path, O_RDONLY);
  FileStream stream(file.IsOpen() ? fdopen(file.Get(), "r") : nullptr, &std::fclose);
  if (stream != nullptr) file.Release();
  return stream;
}

// False when a part could not be written; what was written before stays.
inline bool WriteAll(const Descriptor& file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(file.Get(), text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

#endif  // CONFIG_FILEDESCRIPTOR_H_

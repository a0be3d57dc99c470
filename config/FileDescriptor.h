// An open file that closes itself, and writing all of a text into it.
//
// Thread safety: a value of one thread. Ownership: the object owns the descriptor.
#ifndef CONFIG_FILEDESCRIPTOR_H_
#define CONFIG_FILEDESCRIPTOR_H_

#include <unistd.h>

#include <cerrno>
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

 private:
  int m_Fd;
};

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

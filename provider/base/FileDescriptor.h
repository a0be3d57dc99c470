// An open file descriptor that closes itself.
//
// Thread safety: the caller's. Ownership: the object owns the descriptor; it moves, it is not copied.
#ifndef PROVIDER_BASE_FILEDESCRIPTOR_H_
#define PROVIDER_BASE_FILEDESCRIPTOR_H_

#include <unistd.h>

#include <utility>

namespace provider {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : m_Descriptor(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : m_Descriptor(std::exchange(other.m_Descriptor, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(m_Descriptor, other.m_Descriptor);
    return *this;
  }
  ~FileDescriptor() {
    if (m_Descriptor >= 0) close(m_Descriptor);
  }

  bool IsOpen() const { return m_Descriptor >= 0; }
  int Get() const { return m_Descriptor; }
  int Release() { return std::exchange(m_Descriptor, -1); }

 private:
  int m_Descriptor = -1;
};

}  // namespace provider

#endif  // PROVIDER_BASE_FILEDESCRIPTOR_H_

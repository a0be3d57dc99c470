// One directory of a sysfs tree, and bounded reads below it.
//
// Whatever lies in the tree, nothing here waits for a pipe or reads without end: at most a page is read of each
// file, which is all that the kernel ever puts into one. What is read through one object
// belongs to one device: when the device goes away its directory's reads fail, they never answer for a
// successor of that name.
//
// Thread safety: one thread with all the directories that share a mark of trouble. Ownership: owns its
// descriptor, borrows the mark.
#ifndef PROVIDER_SYSFS_SYSFSDIRECTORY_H_
#define PROVIDER_SYSFS_SYSFSDIRECTORY_H_

#include <cstddef>
#include <string>
#include <vector>

#include "provider/base/FileDescriptor.h"

namespace provider {

// Set when something could not be read that may well be there: the process was short of descriptors or memory,
// or a directory would not be listed. What was seen is then not the whole.
struct ReadTrouble {
  bool met = false;
};

// The content of a file, or the errno why there is none.
struct SysfsReading {
  int error = 0;
  std::string content;
};

// True when an errno says that the thing is not there (any more), rather than that it could not be read.
bool IsAbsent(int error);

// With '?' for what is not printable ASCII.
std::string PrintableText(std::string text);
// The first line, printable and without blanks around it.
std::string FirstLine(const std::string& content);

class SysfsDirectory {
 public:
  static constexpr std::size_t kMaxAttributeSize = 4096;
  static constexpr std::size_t kMaxEntries = 65536;

  SysfsDirectory(const std::string& path, ReadTrouble& trouble);

  bool IsOpen() const { return m_Descriptor.IsOpen(); }
  // Why it is not open.
  int Error() const { return m_Error; }

  SysfsDirectory Open(const std::string& path) const;
  SysfsReading Read(const std::string& path) const;
  // The first line of what can be read; empty when nothing can.
  std::string Text(const std::string& path) const;
  // What a symbolic link says; empty when it is none.
  std::string LinkText(const std::string& path) const;
  // In no particular order, at most kMaxEntries, "." and ".." left out; none of a directory that is not there.
  std::vector<std::string> Names() const;

 private:
  SysfsDirectory(int parent, const std::string& path, ReadTrouble& trouble);
  int OpenAt(const std::string& path, int flags, int& error) const;

  ReadTrouble* m_Trouble;
  int m_Error = 0;
  FileDescriptor m_Descriptor;
};

}  // namespace provider

#endif  // PROVIDER_SYSFS_SYSFSDIRECTORY_H_

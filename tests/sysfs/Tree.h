// A sysfs tree of a test's own: a kernel-made one unpacked, or an empty one to be filled by hand.
//
// Thread safety: one thread. Ownership: owns its temporary directory.
#ifndef TESTS_SYSFS_TREE_H_
#define TESTS_SYSFS_TREE_H_

#include "tests/support/Testing.h"

namespace sysfs_test {

class Tree {
 public:
  Tree();
  explicit Tree(const std::string& name);
  ~Tree();
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  std::string Root() const { return m_Folder / "sys"; }
  std::filesystem::path Path(const std::string& path) const { return m_Folder / "sys" / path; }

  // Each makes the folders on the way and puts itself in the place of what was there.
  void Write(const std::string& path, const std::string& content);
  void Link(const std::string& path, const std::string& target);
  void MakeFolder(const std::string& path);
  void MakePipe(const std::string& path);
  void Remove(const std::string& path);
  void RemoveAll();

 private:
  std::filesystem::path m_Folder;
};

// Where the kernel has host0 of the trees with a PCI adapter, and the FC port in it.
inline const std::string kEth0 = "devices/pci0000:00/0000:00:03.0/0000:01:00.0/net/eth0/";
inline const std::string kHost0 = kEth0 + "ctlr_0/host0/";
inline const std::string kFcHost0 = kHost0 + "fc_host/host0/";

}  // namespace sysfs_test

#endif  // TESTS_SYSFS_TREE_H_

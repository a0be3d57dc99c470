// The names of the FC ports of a tree, read once for a look: finding a port by its name would else read those
// of all ports, for every question about one.
//
// Thread safety: internally locked; the lock is held for no read. Ownership: what was read is shared and never
// changed.
#ifndef PROVIDER_SYSFS_SYSFSPORTINDEX_H_
#define PROVIDER_SYSFS_SYSFSPORTINDEX_H_

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "provider/base/Mutex.h"
#include "provider/sysfs/SysfsPort.h"

namespace provider {

class SysfsPortIndex {
 public:
  // A look begins: names are read again.
  void BeginLook() EXCLUDES(m_Mutex);

  // The port that has the name now. Names are read again when another port has it than had it before.
  FoundFcPort Find(const SysfsDirectory& root, const Wwn& name) EXCLUDES(m_Mutex);

  // Whether any FC port, virtual or not, has the name.
  bool Has(const SysfsDirectory& root, const Wwn& name) EXCLUDES(m_Mutex);
  // The same without reading; nothing when names would have to be read.
  std::optional<bool> HasInMemory(const Wwn& name) const EXCLUDES(m_Mutex);

 private:
  struct Names {
    std::map<Wwn, unsigned int> ports;  // the numbers of the SCSI hosts, virtual ports' own left out
    std::set<Wwn> all;
    bool locked = false;  // one could not be read
    std::chrono::steady_clock::time_point read;
  };
  // How long a name that was not there is taken for missing.
  static constexpr std::chrono::seconds kFresh{1};

  static std::shared_ptr<const Names> Read(const SysfsDirectory& root);
  static bool IsFresh(const Names& names) { return std::chrono::steady_clock::now() - names.read < kFresh; }
  static FoundFcPort Open(const SysfsDirectory& root, const Names& names, const Wwn& name);
  std::shared_ptr<const Names> Get() const EXCLUDES(m_Mutex);
  std::shared_ptr<const Names> Renew(const SysfsDirectory& root) EXCLUDES(m_Mutex);

  mutable Mutex m_Mutex;
  std::shared_ptr<const Names> m_Names GUARDED_BY(m_Mutex);  // null: to be read
};

}  // namespace provider

#endif  // PROVIDER_SYSFS_SYSFSPORTINDEX_H_

// The hosts that a fabric file describes.
//
// Thread safety: any call from any thread. No lock is held while a call sleeps, so that slow calls run in
// parallel.
#ifndef PROVIDER_FABRIC_FABRICHOST_H_
#define PROVIDER_FABRIC_FABRICHOST_H_

#include <memory>
#include <string>
#include <vector>

#include "provider/host/Host.h"
#include "provider/host/NetAddress.h"

namespace provider {

class FabricReload;

// The file's local host; of the remote ones is only seen to that they are written well.
// Throws std::runtime_error: "file:line: key: what was expected", or the file and why it cannot be read.
std::unique_ptr<Host> MakeFabricHost(const std::string& path);

// All hosts of a file, for an agent that serves them. The file is looked at again as time goes by.
class FabricHosts {
 public:
  // Throws as MakeFabricHost does.
  explicit FabricHosts(const std::string& path);

  std::shared_ptr<Host> Local() const;
  // The remote host of that address, as the file has it now. Null when there is none.
  std::shared_ptr<Host> At(const NetAddress& address) const;
  // Of the remote hosts; sorted.
  std::vector<NetAddress> Addresses() const;
  bool IsUnreachable(const NetAddress& address) const;

  // Ends the calls that hang or are delayed.
  void EndSleeps() const;

 private:
  std::shared_ptr<FabricReload> m_File;
};

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICHOST_H_

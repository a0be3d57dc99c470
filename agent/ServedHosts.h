// Which host answers at which of the agent's addresses.
//
// Thread safety: any call from any thread.
#ifndef AGENT_SERVEDHOSTS_H_
#define AGENT_SERVEDHOSTS_H_

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "provider/fabric/FabricHost.h"
#include "provider/host/Host.h"
#include "provider/host/NetAddress.h"

namespace agent {

class ServedHosts {
 public:
  // The remote hosts of a fabric file, each at its addresses, and the file's local host elsewhere: when
  // `servesLocal`, or when the file has no remote hosts. Throws std::runtime_error.
  static ServedHosts OfFabric(const std::string& path, bool servesLocal);
  // This machine, or a copy of its sysfs, at every address. Throws std::runtime_error.
  static ServedHosts OfSysfs(const std::string& root);

  // Null when nobody is to answer there.
  std::shared_ptr<provider::Host> At(const provider::NetAddress& address) const;

  // Where to listen when nothing else is said: loopback addresses only. Those of hosts that are scripted to be
  // unreachable are left out. May change from call to call.
  std::vector<provider::NetAddress> OwnAddresses() const;

  // Ends the calls that are scripted to hang or to take long, now and from now on.
  void EndCalls() const;

 private:
  ServedHosts() = default;

  std::optional<provider::FabricHosts> m_Fabric;
  std::shared_ptr<provider::Host> m_Elsewhere;  // null: nobody
};

}  // namespace agent

#endif  // AGENT_SERVEDHOSTS_H_

#include "provider/process/UnusableHost.h"

namespace provider {

namespace {

// Becomes whichever kind of answer is asked for.
struct Failure {
  template <class T>
  operator Answer<T>() const {  // NOLINT(google-explicit-constructor): that is its purpose
    return {RM_STATUS_FAILED, {}};
  }
  template <class Record>
  operator ListAnswer<Record>() const {  // NOLINT(google-explicit-constructor)
    return {RM_STATUS_FAILED, {}, {}};
  }
};

class UnusableHost : public Host {
 public:
  ListAnswer<unsigned int> BoardInstances() override { return Failure(); }
  Answer<Board> ReadBoard(unsigned int /*instance*/) override { return Failure(); }
  bool HasPort(const Wwn& /*wwn*/) override { return false; }
  bool IsMakersPort(const Wwn& /*wwn*/) override { return false; }
  Answer<Attributes> DiscoveryAttributes(const Wwn& /*wwn*/) override { return Failure(); }
  Answer<Attributes> HbaAttributes(const Wwn& /*wwn*/) override { return Failure(); }
  Answer<Attributes> PortAttributes(const Wwn& /*wwn*/) override { return Failure(); }
  Answer<Attributes> ServerAttributes(const Wwn& /*wwn*/) override { return Failure(); }
  Answer<std::uint32_t> DriverType(const Wwn& /*wwn*/) override { return Failure(); }
  Answer<std::uint32_t> BindType(const Wwn& /*wwn*/) override { return Failure(); }
  Answer<IscsiNames> InitiatorProperties(const Wwn& /*wwn*/) override { return Failure(); }
  ListAnswer<RM_NodeInfoEntry> Nodes(const Wwn& /*wwn*/) override { return Failure(); }
  ListAnswer<RM_VPortEntry> VirtualPorts(const Wwn& /*wwn*/) override { return Failure(); }
  ListAnswer<RM_VPortTargetEntry> VirtualPortTargets(const Wwn& /*wwn*/, const Wwn& /*vportWwn*/) override {
    return Failure();
  }
  ListAnswer<_RM_ISCSI_TARGET> IscsiTargets(const Wwn& /*wwn*/, bool /*refresh*/) override { return Failure(); }
  ListAnswer<HBA_NAME> VirtualFunctions(const Wwn& /*wwn*/) override { return Failure(); }
  Answer<bool> SecureManagement() override { return Failure(); }
};

}  // namespace

std::unique_ptr<Host> MakeUnusableHost() {
  return std::make_unique<UnusableHost>();
}

}  // namespace provider

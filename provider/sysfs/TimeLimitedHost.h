// A host whose calls come back in time.
//
// A read in sysfs may wait for a driver that waits for its adapter, and nothing can end that wait. So each call
// is made on another thread; when the limit passes the caller gets RM_STATUS_LOCKED (false, where there is
// no status) and the thread is left behind until its read returns. While one is left behind for a port, further
// calls for that port are refused at once: one sick port holds up neither the others nor its caller over and
// over.
//
// Thread safety: every call from any thread. Ownership: shares the host with the threads that are left behind,
// so that it may be destroyed while they last.
#ifndef PROVIDER_SYSFS_TIMELIMITEDHOST_H_
#define PROVIDER_SYSFS_TIMELIMITEDHOST_H_

#include <chrono>
#include <memory>

#include "provider/host/Host.h"
#include "provider/sysfs/CallThreads.h"

namespace provider {

class TimeLimitedHost final : public Host {
 public:
  TimeLimitedHost(std::shared_ptr<Host> host, std::chrono::milliseconds limit);
  ~TimeLimitedHost() override;

  // They read nothing.
  void BeginLook() override { m_Host->BeginLook(); }
  void EndLook() override { m_Host->EndLook(); }

  ListAnswer<unsigned int> BoardInstances() override;
  Answer<Board> ReadBoard(unsigned int instance) override;
  ListAnswer<HBA_NAME> PortNames() override;

  bool HasPort(const Wwn& wwn) override;
  bool IsMakersPort(const Wwn& wwn) override;

  Answer<Attributes> DiscoveryAttributes(const Wwn& wwn) override;
  Answer<Attributes> HbaAttributes(const Wwn& wwn) override;
  Answer<Attributes> PortAttributes(const Wwn& wwn) override;
  Answer<Attributes> ServerAttributes(const Wwn& wwn) override;

  Answer<std::uint32_t> DriverType(const Wwn& wwn) override;
  Answer<std::uint32_t> BindType(const Wwn& wwn) override;
  Answer<IscsiNames> InitiatorProperties(const Wwn& wwn) override;

  ListAnswer<RM_NodeInfoEntry> Nodes(const Wwn& wwn) override;
  ListAnswer<RM_VPortEntry> VirtualPorts(const Wwn& wwn) override;
  ListAnswer<RM_VPortTargetEntry> VirtualPortTargets(const Wwn& wwn, const Wwn& vportWwn) override;
  ListAnswer<_RM_ISCSI_TARGET> IscsiTargets(const Wwn& wwn, bool refresh) override;
  ListAnswer<HBA_NAME> VirtualFunctions(const Wwn& wwn) override;

  Answer<bool> SecureManagement() override;

 private:
  struct Key;
  struct Overdue;
  template <class Result>
  struct Call;

  template <class Result, class Ask>
  Result InTime(const Key& key, const Result& refusal, Ask ask);
  template <class Result, class Ask>
  Result OfPort(const Wwn& wwn, Ask ask);

  const std::shared_ptr<Host> m_Host;
  const std::chrono::milliseconds m_Limit;
  const std::shared_ptr<Overdue> m_Overdue;
  CallThreads m_Threads;
};

}  // namespace provider

#endif  // PROVIDER_SYSFS_TIMELIMITEDHOST_H_

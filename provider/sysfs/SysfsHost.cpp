#include "provider/sysfs/SysfsHost.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "provider/sysfs/SysfsBoard.h"
#include "provider/sysfs/SysfsDetails.h"
#include "provider/sysfs/SysfsLook.h"
#include "provider/sysfs/SysfsPort.h"
#include "provider/sysfs/SysfsPortIndex.h"
#include "provider/sysfs/SysfsTargets.h"
#include "provider/sysfs/TimeLimitedHost.h"

namespace provider {

namespace {

// A port without a host name would be read as one without attributes.
std::string LocalHostName() {
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0') return "localhost";
  return PrintableText(name.data());
}

template <class Result>
Result Failed(int status) {
  Result result;
  result.status = status;
  return result;
}

// Answers from the tree, however long that takes.
//
// Thread safety: immutable but for what it remembers, which locks itself. Ownership: owns its texts; every
// call opens what it reads.
class SysfsHost final : public Host {
 public:
  SysfsHost(std::string root, std::string hostName)
      : m_Root(std::move(root)), m_HostName(std::move(hostName)) {}

  void BeginLook() override { m_Look.Begin(); }
  void EndLook() override { m_Look.End(); }

  ListAnswer<unsigned int> BoardInstances() override;
  Answer<Board> ReadBoard(unsigned int instance) override;

  bool HasPort(const Wwn& wwn) override;
  bool IsMakersPort(const Wwn& wwn) override;
  std::optional<bool> MakersPortInMemory(const Wwn& wwn) override { return m_Ports.HasInMemory(wwn); }

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

  Answer<bool> SecureManagement() override { return {}; }

 private:
  std::string HostName() const { return m_HostName.empty() ? LocalHostName() : m_HostName; }

  // What `ask` makes of the port, if that was all there when it was read and the port still is.
  template <class Result, class Ask>
  Result OfPort(const Wwn& wwn, Ask ask) const {
    ReadTrouble trouble;
    const FoundFcPort found = m_Ports.Find(SysfsDirectory(m_Root, trouble), wwn);
    if (!found.port.has_value()) return Failed<Result>(trouble.met ? RM_STATUS_LOCKED : found.status);
    return Checked<Result>(ask(*found.port), *found.port, trouble);
  }

  // The same for a question about what the port sees.
  template <class Result, class Ask>
  Result OfScsiHost(const Wwn& wwn, Ask ask) const {
    return OfPort<Result>(wwn, [&ask](const FcPort& port) -> Result {
      const SysfsDirectory scsiHost = port.ScsiHost();
      if (scsiHost.IsOpen()) return ask(scsiHost, port);
      return Failed<Result>(IsAbsent(scsiHost.Error()) ? RM_STATUS_NOT_FOUND : RM_STATUS_LOCKED);
    });
  }

  template <class Result>
  static Result Checked(Result result, const FcPort& port, const ReadTrouble& trouble) {
    const bool isThere = port.IsStillThere();
    if (trouble.met) return Failed<Result>(RM_STATUS_LOCKED);
    if (!isThere) return Failed<Result>(RM_STATUS_NOT_FOUND);
    return result;
  }

  template <class Result>
  Result NotSupported(const Wwn& wwn) const {
    return OfPort<Result>(wwn, [](const FcPort&) { return Failed<Result>(RM_STATUS_NOT_SUPPORTED); });
  }

  const std::string m_Root;
  const std::string m_HostName;
  mutable SysfsPortIndex m_Ports;  // locks itself
  SysfsLook m_Look;                // locks itself
};

ListAnswer<unsigned int> SysfsHost::BoardInstances() {
  m_Ports.BeginLook();
  ReadTrouble trouble;
  const SysfsDirectory root(m_Root, trouble);
  if (!root.IsOpen() && IsAbsent(root.Error())) return Failed<ListAnswer<unsigned int>>(RM_STATUS_NOT_FOUND);
  ListAnswer<unsigned int> answer;
  answer.records = FcPortNumbers(root);
  if (trouble.met || !root.IsOpen()) return Failed<ListAnswer<unsigned int>>(RM_STATUS_LOCKED);
  return answer;
}

Answer<Board> SysfsHost::ReadBoard(unsigned int instance) {
  ReadTrouble trouble;
  FcPort port(SysfsDirectory(m_Root, trouble), instance);
  const int status = port.ReadName();
  if (status != RM_STATUS_OK) return Failed<Answer<Board>>(trouble.met ? RM_STATUS_LOCKED : status);
  const Answer<Board> answer{RM_STATUS_OK, MakeSysfsBoard(ReadFcPortFacts(port), HostName())};
  return Checked(answer, port, trouble);
}

bool SysfsHost::HasPort(const Wwn& wwn) {
  ReadTrouble trouble;
  return m_Ports.Find(SysfsDirectory(m_Root, trouble), wwn).port.has_value();
}

// The kernel knows no maker. A port that is seen as a target and is this machine's own can be told for certain.
bool SysfsHost::IsMakersPort(const Wwn& wwn) {
  ReadTrouble trouble;
  return m_Ports.Has(SysfsDirectory(m_Root, trouble), wwn);
}

Answer<Attributes> SysfsHost::DiscoveryAttributes(const Wwn& wwn) {
  return OfPort<Answer<Attributes>>(wwn, [this, &wwn](const FcPort& port) -> Answer<Attributes> {
    const FcPortFacts facts = ReadFcPortFacts(port);
    Attributes attributes = MakeSysfsAttributes(facts, HostName());
    ReadTrouble trouble;  // what is told beyond the record may be missing
    std::optional<FcStorage> storage = m_Look.Storage(wwn);
    if (!storage) storage = ReadFcTargets(port.ScsiHost(), port.number, 0).storage;
    AddSysfsDetails(SysfsDirectory(m_Root, trouble), port, facts, *storage, attributes);
    return {RM_STATUS_OK, std::move(attributes)};
  });
}

Answer<Attributes> SysfsHost::HbaAttributes(const Wwn& wwn) {
  return NotSupported<Answer<Attributes>>(wwn);
}

Answer<Attributes> SysfsHost::PortAttributes(const Wwn& wwn) {
  return OfPort<Answer<Attributes>>(wwn, [](const FcPort& port) -> Answer<Attributes> {
    return {RM_STATUS_OK, MakeSysfsPortAttributes(ReadFcPortFacts(port))};
  });
}

Answer<Attributes> SysfsHost::ServerAttributes(const Wwn& wwn) {
  return OfPort<Answer<Attributes>>(wwn, [this](const FcPort&) -> Answer<Attributes> {
    return {RM_STATUS_OK, MakeSysfsServerAttributes(HostName())};
  });
}

// 0 is none of the types whose targets are taken for usable whatever their state.
Answer<std::uint32_t> SysfsHost::DriverType(const Wwn& wwn) {
  return OfPort<Answer<std::uint32_t>>(wwn, [](const FcPort&) -> Answer<std::uint32_t> { return {}; });
}

Answer<std::uint32_t> SysfsHost::BindType(const Wwn& wwn) {
  return OfPort<Answer<std::uint32_t>>(wwn, [](const FcPort& port) { return ReadBindType(port.directory); });
}

Answer<IscsiNames> SysfsHost::InitiatorProperties(const Wwn& wwn) {
  return NotSupported<Answer<IscsiNames>>(wwn);
}

ListAnswer<RM_NodeInfoEntry> SysfsHost::Nodes(const Wwn& wwn) {
  using Result = ListAnswer<RM_NodeInfoEntry>;
  if (auto nodes = m_Look.TakeNodes(wwn)) return {RM_STATUS_OK, *std::move(nodes), std::nullopt};
  FcTargets targets;
  Result answer = OfScsiHost<Result>(wwn, [&targets](const SysfsDirectory& scsiHost, const FcPort& port) {
    targets = ReadFcTargets(scsiHost, port.number, ReadBindType(port.directory).value);
    return Result();
  });
  if (answer.status != RM_STATUS_OK) return answer;
  m_Look.Keep(wwn, targets);
  answer.records = std::move(targets.nodes);
  return answer;
}

ListAnswer<RM_VPortEntry> SysfsHost::VirtualPorts(const Wwn& wwn) {
  using Result = ListAnswer<RM_VPortEntry>;
  return OfScsiHost<Result>(wwn, [](const SysfsDirectory& scsiHost, const FcPort& port) {
    Result answer;
    for (const SysfsVirtualPort& virtualPort : ReadVirtualPorts(scsiHost, port.number)) {
      answer.records.push_back(MakeVirtualPort(virtualPort));
    }
    return answer;
  });
}

ListAnswer<RM_VPortTargetEntry> SysfsHost::VirtualPortTargets(const Wwn& wwn, const Wwn& vportWwn) {
  using Result = ListAnswer<RM_VPortTargetEntry>;
  return OfScsiHost<Result>(wwn, [&vportWwn](const SysfsDirectory& scsiHost, const FcPort& port) -> Result {
    for (const SysfsVirtualPort& virtualPort : ReadVirtualPorts(scsiHost, port.number)) {
      if (virtualPort.portName != vportWwn) continue;
      return {RM_STATUS_OK, ReadVirtualPortTargets(scsiHost, port.number, virtualPort), std::nullopt};
    }
    return Failed<Result>(RM_STATUS_NOT_FOUND);
  });
}

ListAnswer<_RM_ISCSI_TARGET> SysfsHost::IscsiTargets(const Wwn& wwn, bool) {
  return NotSupported<ListAnswer<_RM_ISCSI_TARGET>>(wwn);
}

// They are functions of network ports, which are not among the boards.
ListAnswer<HBA_NAME> SysfsHost::VirtualFunctions(const Wwn& wwn) {
  using Result = ListAnswer<HBA_NAME>;
  return OfPort<Result>(wwn, [](const FcPort&) { return Result(); });
}

}  // namespace

std::unique_ptr<Host> MakeSysfsHost(const std::string& root, const std::string& hostName) {
  return std::make_unique<TimeLimitedHost>(std::make_shared<SysfsHost>(root, hostName), kSysfsCallLimit);
}

}  // namespace provider

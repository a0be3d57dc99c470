#include "provider/remote/RemoteHost.h"

#include <atomic>
#include <set>

#include "provider/host/WorldWideName.h"
#include "provider/remote/HttpClient.h"
#include "provider/remote/WireCodec.h"
#include "provider/remote/WireQuery.h"

namespace provider {

namespace {

// Atomic: set from any thread, read by every call.
constinit std::atomic<std::chrono::milliseconds> gs_Limit{kDefaultRemoteCallLimit};
constinit std::atomic<std::chrono::milliseconds> gs_ConnectLimit{kDefaultRemoteConnectLimit};

template <class Result>
Result Failed(int status) {
  Result result;
  result.status = status;
  return result;
}

// A list names nothing twice, whatever the other side says.
template <class List, class NameOf>
List NamesOnce(List answer, NameOf nameOf) {
  std::set<decltype(nameOf(answer.records.front()))> seen;
  for (const auto& record : answer.records) {
    if (!seen.insert(nameOf(record)).second) return Failed<List>(RM_STATUS_HOST_UNUSABLE);
  }
  return answer;
}

class RemoteHost final : public Host {
 public:
  explicit RemoteHost(std::string authority) : m_Authority(std::move(authority)) {}

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
  template <class Result>
  Result Ask(const WireQuery& query) const;
  template <class Result>
  Result AskPort(WireQuestion question, const Wwn& wwn) const {
    return Ask<Result>({question, wwn, {}, 0});
  }
  bool AskYesOrNo(WireQuestion question, const Wwn& wwn) const {
    const auto answer = AskPort<Answer<bool>>(question, wwn);
    return answer.status == RM_STATUS_OK && answer.value;
  }

  const std::string m_Authority;
};

template <class Result>
Result RemoteHost::Ask(const WireQuery& query) const {
  const HttpReply reply = HttpClient::Get().Ask(m_Authority, PathOf(query),
                                                {gs_ConnectLimit.load(), gs_Limit.load(), kMostWireBytes});
  if (reply.status != RM_STATUS_OK) return Failed<Result>(reply.status);
  try {
    return DecodeAnswer<Result>(reply.body);
  } catch (const WireError&) {
    return Failed<Result>(RM_STATUS_HOST_UNUSABLE);
  }
}

ListAnswer<unsigned int> RemoteHost::BoardInstances() {
  return NamesOnce(Ask<ListAnswer<unsigned int>>({WireQuestion::kBoardInstances, {}, {}, 0}),
                   [](unsigned int instance) { return instance; });
}

Answer<Board> RemoteHost::ReadBoard(unsigned int instance) {
  return Ask<Answer<Board>>({WireQuestion::kBoard, {}, {}, instance});
}

ListAnswer<HBA_NAME> RemoteHost::PortNames() {
  return NamesOnce(Ask<ListAnswer<HBA_NAME>>({WireQuestion::kPortNames, {}, {}, 0}),
                   [](const HBA_NAME& name) { return WwnFromBytes(name.wwn); });
}

bool RemoteHost::HasPort(const Wwn& wwn) {
  return AskYesOrNo(WireQuestion::kHasPort, wwn);
}

bool RemoteHost::IsMakersPort(const Wwn& wwn) {
  return AskYesOrNo(WireQuestion::kIsMakersPort, wwn);
}

Answer<Attributes> RemoteHost::DiscoveryAttributes(const Wwn& wwn) {
  return AskPort<Answer<Attributes>>(WireQuestion::kDiscoveryAttributes, wwn);
}

Answer<Attributes> RemoteHost::HbaAttributes(const Wwn& wwn) {
  return AskPort<Answer<Attributes>>(WireQuestion::kHbaAttributes, wwn);
}

Answer<Attributes> RemoteHost::PortAttributes(const Wwn& wwn) {
  return AskPort<Answer<Attributes>>(WireQuestion::kPortAttributes, wwn);
}

Answer<Attributes> RemoteHost::ServerAttributes(const Wwn& wwn) {
  return AskPort<Answer<Attributes>>(WireQuestion::kServerAttributes, wwn);
}

Answer<std::uint32_t> RemoteHost::DriverType(const Wwn& wwn) {
  return AskPort<Answer<std::uint32_t>>(WireQuestion::kDriverType, wwn);
}

Answer<std::uint32_t> RemoteHost::BindType(const Wwn& wwn) {
  return AskPort<Answer<std::uint32_t>>(WireQuestion::kBindType, wwn);
}

Answer<IscsiNames> RemoteHost::InitiatorProperties(const Wwn& wwn) {
  return AskPort<Answer<IscsiNames>>(WireQuestion::kInitiatorProperties, wwn);
}

ListAnswer<RM_NodeInfoEntry> RemoteHost::Nodes(const Wwn& wwn) {
  return AskPort<ListAnswer<RM_NodeInfoEntry>>(WireQuestion::kNodes, wwn);
}

ListAnswer<RM_VPortEntry> RemoteHost::VirtualPorts(const Wwn& wwn) {
  return NamesOnce(AskPort<ListAnswer<RM_VPortEntry>>(WireQuestion::kVirtualPorts, wwn),
                   [](const RM_VPortEntry& vport) { return WwnFromBytes(vport.portWwn); });
}

ListAnswer<RM_VPortTargetEntry> RemoteHost::VirtualPortTargets(const Wwn& wwn, const Wwn& vportWwn) {
  return Ask<ListAnswer<RM_VPortTargetEntry>>({WireQuestion::kVirtualPortTargets, wwn, vportWwn, 0});
}

ListAnswer<_RM_ISCSI_TARGET> RemoteHost::IscsiTargets(const Wwn& wwn, bool refresh) {
  return AskPort<ListAnswer<_RM_ISCSI_TARGET>>(
      refresh ? WireQuestion::kIscsiTargetsRefreshed : WireQuestion::kIscsiTargets, wwn);
}

ListAnswer<HBA_NAME> RemoteHost::VirtualFunctions(const Wwn& wwn) {
  return NamesOnce(AskPort<ListAnswer<HBA_NAME>>(WireQuestion::kVirtualFunctions, wwn),
                   [](const HBA_NAME& name) { return WwnFromBytes(name.wwn); });
}

Answer<bool> RemoteHost::SecureManagement() {
  return Ask<Answer<bool>>({WireQuestion::kSecureManagement, {}, {}, 0});
}

}  // namespace

std::unique_ptr<Host> MakeRemoteHost(const NetAddress& address, std::uint16_t port) {
  return std::make_unique<RemoteHost>(address.TextWithPort(port));
}

void SetRemoteCallLimit(std::chrono::milliseconds limit) {
  gs_Limit = limit.count() > 0 ? limit : kDefaultRemoteCallLimit;
}

std::chrono::milliseconds RemoteCallLimit() {
  return gs_Limit;
}

void SetRemoteConnectLimit(std::chrono::milliseconds limit) {
  gs_ConnectLimit = limit;
}

}  // namespace provider

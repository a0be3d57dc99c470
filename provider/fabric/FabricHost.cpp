#include "provider/fabric/FabricHost.h"

#include <algorithm>
#include <functional>

#include "provider/fabric/FabricRecords.h"
#include "provider/fabric/FabricReload.h"

namespace provider {

namespace {

// A port that is there, at the moment of one call.
struct Port {
  const FabricBoard& board;
  const FabricBoardState& state;
};

bool SaysTooSmall(int status) {
  return status == RM_STATUS_BUFFER_TOO_SMALL || status == RM_STATUS_MORE_DATA;
}

// What a scripted fault leaves of a true answer.
template <class T>
void Distort(const FabricFaultEffect& effect, Answer<T>& answer) {
  answer.status = effect.status.value_or(answer.status);
}

template <class Record>
void Distort(const FabricFaultEffect& effect, ListAnswer<Record>& answer) {
  answer.status = effect.status.value_or(answer.status);
  answer.claimedCount = effect.claimedCount;
  if (SaysTooSmall(answer.status) && !answer.claimedCount.has_value()) {
    answer.claimedCount = static_cast<std::uint32_t>(answer.records.size());
  }
}

template <class Record, class Source, class Make>
ListAnswer<Record> MakeList(const std::vector<Source>& sources, Make make) {
  ListAnswer<Record> answer;
  answer.records.reserve(sources.size());
  std::transform(sources.begin(), sources.end(), std::back_inserter(answer.records), make);
  return answer;
}

template <class Result>
Result Failed(int status) {
  Result result;
  result.status = status;
  return result;
}

// Of the host that is meant, what the file says now.
using CurrentFabric = std::function<std::shared_ptr<Fabric>()>;

class FabricHost : public Host {
 public:
  explicit FabricHost(CurrentFabric current) : m_Current(std::move(current)) {}

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
  // Answers for a port that is there, after the call has slept what it has to sleep.
  template <class Result, class Read>
  Result AskPort(FabricCall call, const Wwn& wwn, const Wwn* virtualPort, Read read);

  // The same, with the status of a port above its operating temperature.
  template <class Read>
  Answer<Attributes> AskAttributes(FabricCall call, const Wwn& wwn, Read read);

  const CurrentFabric m_Current;
};

template <class Result, class Read>
Result FabricHost::AskPort(FabricCall call, const Wwn& wwn, const Wwn* virtualPort, Read read) {
  const std::shared_ptr<Fabric> fabric = m_Current();
  const FabricFaultEffect effect = fabric->faults.Pass(call, &wwn, virtualPort);
  const FabricTimeline::Snapshot moment = fabric->timeline.Now();
  const auto found = fabric->model.boardNumbers.find(wwn);
  Result result = Failed<Result>(RM_STATUS_NOT_FOUND);
  if (found != fabric->model.boardNumbers.end() && moment->boards[found->second].present) {
    result = read(*fabric, Port{fabric->model.boards[found->second], moment->boards[found->second]});
  }
  Distort(effect, result);
  return result;
}

template <class Read>
Answer<Attributes> FabricHost::AskAttributes(FabricCall call, const Wwn& wwn, Read read) {
  return AskPort<Answer<Attributes>>(call, wwn, nullptr, [&](const Fabric& fabric, const Port& port) {
    Answer<Attributes> answer = read(fabric, port);
    if (answer.status == RM_STATUS_OK && port.state.overheated) answer.status = RM_STATUS_OVER_TEMPERATURE;
    return answer;
  });
}

ListAnswer<unsigned int> FabricHost::BoardInstances() {
  const std::shared_ptr<Fabric> fabric = m_Current();
  const FabricFaultEffect effect = fabric->faults.Pass(FabricCall::kBoardInstances, nullptr, nullptr);
  const FabricTimeline::Snapshot moment = fabric->timeline.Now();
  ListAnswer<unsigned int> answer;
  for (std::size_t i = 0; i < moment->boards.size(); ++i) {
    if (moment->boards[i].present) answer.records.push_back(static_cast<unsigned int>(i));
  }
  Distort(effect, answer);
  return answer;
}

Answer<Board> FabricHost::ReadBoard(unsigned int instance) {
  const std::shared_ptr<Fabric> fabric = m_Current();
  if (instance >= fabric->model.boards.size()) return Failed<Answer<Board>>(RM_STATUS_NOT_FOUND);
  const FabricBoard& board = fabric->model.boards[instance];
  const FabricFaultEffect effect = fabric->faults.Pass(FabricCall::kReadBoard, &board.portName, nullptr);
  const FabricTimeline::Snapshot moment = fabric->timeline.Now();
  const FabricBoardState& state = moment->boards[instance];
  Answer<Board> answer = Failed<Answer<Board>>(RM_STATUS_NOT_FOUND);
  if (state.present) answer = {RM_STATUS_OK, MakeFabricBoard(fabric->model.hostName, board, state)};
  Distort(effect, answer);
  return answer;
}

ListAnswer<HBA_NAME> FabricHost::PortNames() {
  const std::shared_ptr<Fabric> fabric = m_Current();
  const FabricFaultEffect effect = fabric->faults.Pass(FabricCall::kPortNames, nullptr, nullptr);
  const FabricTimeline::Snapshot moment = fabric->timeline.Now();
  ListAnswer<HBA_NAME> answer;
  for (std::size_t i = 0; i < moment->boards.size(); ++i) {
    if (!moment->boards[i].present) continue;
    const Wwn& portName = fabric->model.boards[i].portName;
    std::copy(portName.begin(), portName.end(), answer.records.emplace_back().wwn);
  }
  Distort(effect, answer);
  return answer;
}

bool FabricHost::HasPort(const Wwn& wwn) {
  const std::shared_ptr<Fabric> fabric = m_Current();
  fabric->faults.Pass(FabricCall::kHasPort, &wwn, nullptr);
  const FabricTimeline::Snapshot moment = fabric->timeline.Now();
  const auto found = fabric->model.boardNumbers.find(wwn);
  return found != fabric->model.boardNumbers.end() && moment->boards[found->second].present;
}

bool FabricHost::IsMakersPort(const Wwn& wwn) {
  const std::shared_ptr<Fabric> fabric = m_Current();
  fabric->faults.Pass(FabricCall::kIsMakersPort, &wwn, nullptr);
  const FabricTimeline::Snapshot moment = fabric->timeline.Now();
  return std::binary_search(moment->makersPorts.begin(), moment->makersPorts.end(), wwn);
}

Answer<Attributes> FabricHost::DiscoveryAttributes(const Wwn& wwn) {
  return AskAttributes(FabricCall::kDiscoveryAttributes, wwn, [](const Fabric& fabric, const Port& port) {
    if (port.board.legacyAttributes) return Failed<Answer<Attributes>>(RM_STATUS_NOT_SUPPORTED);
    return Answer<Attributes>{RM_STATUS_OK,
                              MakeFabricAttributes(fabric.model.hostName, port.board, port.state)};
  });
}

Answer<Attributes> FabricHost::HbaAttributes(const Wwn& wwn) {
  return AskAttributes(FabricCall::kHbaAttributes, wwn, [](const Fabric& fabric, const Port& port) {
    return Answer<Attributes>{RM_STATUS_OK, MakeFabricLegacyAttributes(fabric.model.hostName, port.board)};
  });
}

Answer<Attributes> FabricHost::PortAttributes(const Wwn& wwn) {
  return AskAttributes(FabricCall::kPortAttributes, wwn, [](const Fabric&, const Port& port) {
    return Answer<Attributes>{RM_STATUS_OK, MakeFabricPortAttributes(port.board, port.state)};
  });
}

Answer<Attributes> FabricHost::ServerAttributes(const Wwn& wwn) {
  return AskPort<Answer<Attributes>>(
      FabricCall::kServerAttributes, wwn, nullptr, [](const Fabric& fabric, const Port&) {
        return Answer<Attributes>{RM_STATUS_OK, MakeFabricServerAttributes(fabric.model.hostName)};
      });
}

Answer<std::uint32_t> FabricHost::DriverType(const Wwn& wwn) {
  return AskPort<Answer<std::uint32_t>>(FabricCall::kDriverType, wwn, nullptr,
                                        [](const Fabric&, const Port& port) {
                                          return Answer<std::uint32_t>{RM_STATUS_OK, port.board.driverType};
                                        });
}

Answer<std::uint32_t> FabricHost::BindType(const Wwn& wwn) {
  return AskPort<Answer<std::uint32_t>>(FabricCall::kBindType, wwn, nullptr,
                                        [](const Fabric&, const Port& port) {
                                          return Answer<std::uint32_t>{RM_STATUS_OK, port.board.bindType};
                                        });
}

Answer<IscsiNames> FabricHost::InitiatorProperties(const Wwn& wwn) {
  return AskPort<Answer<IscsiNames>>(FabricCall::kInitiatorProperties, wwn, nullptr,
                                     [](const Fabric&, const Port& port) {
                                       if (port.board.kind != FabricKind::kIscsi)
                                         return Failed<Answer<IscsiNames>>(RM_STATUS_NOT_SUPPORTED);
                                       return Answer<IscsiNames>{RM_STATUS_OK, port.board.iscsi};
                                     });
}

ListAnswer<RM_NodeInfoEntry> FabricHost::Nodes(const Wwn& wwn) {
  return AskPort<ListAnswer<RM_NodeInfoEntry>>(
      FabricCall::kNodes, wwn, nullptr, [](const Fabric&, const Port& port) {
        return MakeList<RM_NodeInfoEntry>(*port.state.targets, MakeFabricNode);
      });
}

ListAnswer<RM_VPortEntry> FabricHost::VirtualPorts(const Wwn& wwn) {
  return AskPort<ListAnswer<RM_VPortEntry>>(
      FabricCall::kVirtualPorts, wwn, nullptr, [](const Fabric&, const Port& port) {
        return MakeList<RM_VPortEntry>(*port.state.virtualPorts, MakeFabricVirtualPort);
      });
}

ListAnswer<RM_VPortTargetEntry> FabricHost::VirtualPortTargets(const Wwn& wwn, const Wwn& vportWwn) {
  return AskPort<ListAnswer<RM_VPortTargetEntry>>(
      FabricCall::kVirtualPortTargets, wwn, &vportWwn, [&](const Fabric&, const Port& port) {
        const auto isAsked = [&](const FabricVirtualPort& virtualPort) {
          return virtualPort.portName == vportWwn;
        };
        const auto& ports = *port.state.virtualPorts;
        const auto found = std::find_if(ports.begin(), ports.end(), isAsked);
        if (found == ports.end()) return Failed<ListAnswer<RM_VPortTargetEntry>>(RM_STATUS_NOT_FOUND);
        return MakeList<RM_VPortTargetEntry>(*found->targets, MakeFabricVirtualPortTarget);
      });
}

ListAnswer<_RM_ISCSI_TARGET> FabricHost::IscsiTargets(const Wwn& wwn, bool /*refresh*/) {
  return AskPort<ListAnswer<_RM_ISCSI_TARGET>>(
      FabricCall::kIscsiTargets, wwn, nullptr, [](const Fabric&, const Port& port) {
        return MakeList<_RM_ISCSI_TARGET>(*port.state.iscsiTargets, MakeFabricIscsiTarget);
      });
}

ListAnswer<HBA_NAME> FabricHost::VirtualFunctions(const Wwn& wwn) {
  return AskPort<ListAnswer<HBA_NAME>>(
      FabricCall::kVirtualFunctions, wwn, nullptr, [](const Fabric&, const Port& port) {
        return MakeList<HBA_NAME>(*port.state.functions, [](const HBA_NAME& name) { return name; });
      });
}

Answer<bool> FabricHost::SecureManagement() {
  const std::shared_ptr<Fabric> fabric = m_Current();
  const FabricFaultEffect effect = fabric->faults.Pass(FabricCall::kSecureManagement, nullptr, nullptr);
  Answer<bool> answer{RM_STATUS_OK, fabric->model.secureManagement};
  Distort(effect, answer);
  return answer;
}

}  // namespace

std::unique_ptr<Host> MakeFabricHost(const std::string& path) {
  auto file = std::make_shared<FabricReload>(path, FabricReload::Remote::kOnlyChecked);
  return std::make_unique<FabricHost>([file] { return file->Current()->local; });
}

FabricHosts::FabricHosts(const std::string& path)
    : m_File(std::make_shared<FabricReload>(path, FabricReload::Remote::kKept)) {}

std::shared_ptr<Host> FabricHosts::Local() const {
  return std::make_shared<FabricHost>([file = m_File] { return file->Current()->local; });
}

std::shared_ptr<Host> FabricHosts::At(const NetAddress& address) const {
  const std::shared_ptr<const FabricContent> content = m_File->Current();
  const auto found = content->remote.find(address);
  if (found == content->remote.end()) return nullptr;
  return std::make_shared<FabricHost>([fabric = found->second] { return fabric; });
}

std::vector<NetAddress> FabricHosts::Addresses() const {
  std::vector<NetAddress> addresses;
  const std::shared_ptr<const FabricContent> content = m_File->Current();
  for (const auto& [address, fabric] : content->remote) addresses.push_back(address);
  return addresses;
}

bool FabricHosts::IsUnreachable(const NetAddress& address) const {
  const std::shared_ptr<const FabricContent> content = m_File->Current();
  const auto found = content->remote.find(address);
  return found != content->remote.end() && found->second->model.unreachable;
}

void FabricHosts::EndSleeps() const {
  m_File->EndSleeps();
}

}  // namespace provider

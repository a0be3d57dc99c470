// What an event does to a board, and whether a sequence of events keeps every name unique.
#include <algorithm>
#include <map>
#include <set>

#include "provider/fabric/FabricError.h"
#include "provider/fabric/FabricSchema.h"
#include "provider/host/WorldWideName.h"

namespace provider {

namespace {

template <class T>
void Replace(T& value, const std::optional<T>& by) {
  if (by.has_value()) value = *by;
}

template <class Record>
void Replace(FabricList<Record>& list, const FabricList<Record>& by) {
  if (by != nullptr) list = by;
}

FabricList<FabricTarget> Changed(const FabricList<FabricTarget>& before, const FabricEvent& event) {
  const std::set<Wwn> removed(event.removeTargets.begin(), event.removeTargets.end());
  auto after = std::make_shared<std::vector<FabricTarget>>();
  std::copy_if(before->begin(), before->end(), std::back_inserter(*after),
               [&removed](const FabricTarget& target) { return !removed.contains(target.portName); });
  if (event.addTargets != nullptr)
    after->insert(after->end(), event.addTargets->begin(), event.addTargets->end());
  return after;
}

// The names that are there at one moment, board by board, without the records they belong to.
class NameCheck {
 public:
  explicit NameCheck(const std::vector<FabricBoard>& boards) : m_Boards(boards), m_Changing(boards.size()) {
    for (std::size_t i = 0; i < boards.size(); ++i) {
      m_PortNames.insert(boards[i].portName);
      AddVirtualPorts(*boards[i].initial.virtualPorts, nullptr);
      AddFunctions(*boards[i].initial.functions, nullptr);
      m_Changing[i].virtualPorts = boards[i].initial.virtualPorts;
      m_Changing[i].functions = boards[i].initial.functions;
    }
  }

  void Apply(const FabricEvent& event) {
    Changing& board = m_Changing[event.board];
    if (event.virtualPorts != nullptr) {
      for (const FabricVirtualPort& port : *board.virtualPorts) m_PortNames.erase(port.portName);
      AddVirtualPorts(*event.virtualPorts, &event);
      board.virtualPorts = event.virtualPorts;
    }
    if (event.functions != nullptr) {
      for (const HBA_NAME& name : *board.functions) m_Functions.erase(WwnFromBytes(name.wwn));
      AddFunctions(*event.functions, &event);
      board.functions = event.functions;
    }
    ApplyToTargets(board, event);
  }

 private:
  using Targets = std::map<Wwn, std::set<std::uint32_t>>;  // port name and LUNs

  struct Changing {
    FabricList<FabricVirtualPort> virtualPorts;
    FabricList<HBA_NAME> functions;
    std::optional<Targets> targets;  // only of boards whose targets change
  };

  [[noreturn]] static void Refuse(const FabricEvent& event, const char* key, const std::string& expected) {
    throw FabricError(event.line, event.path + "." + key, "expected " + expected);
  }

  void AddVirtualPorts(const std::vector<FabricVirtualPort>& ports, const FabricEvent* event) {
    for (const FabricVirtualPort& port : ports) {
      if (!m_PortNames.insert(port.portName).second && event != nullptr) {
        Refuse(*event, "virtual_ports", "names that no other port has, not " + FormatWwn(port.portName));
      }
    }
  }

  void AddFunctions(const std::vector<HBA_NAME>& functions, const FabricEvent* event) {
    for (const HBA_NAME& name : functions) {
      if (!m_Functions.insert(WwnFromBytes(name.wwn)).second && event != nullptr) {
        Refuse(*event, "virtual_functions",
               "addresses that no other function has, not " + FormatWwn(WwnFromBytes(name.wwn)));
      }
    }
  }

  static Targets NamesOf(const std::vector<FabricTarget>& targets) {
    Targets names;
    for (const FabricTarget& target : targets) names[target.portName].insert(target.lun);
    return names;
  }

  void ApplyToTargets(Changing& board, const FabricEvent& event) {
    if (event.targets == nullptr && event.addTargets == nullptr && event.removeTargets.empty()) return;
    if (!board.targets.has_value()) board.targets = NamesOf(*m_Boards[event.board].initial.targets);
    if (event.targets != nullptr) board.targets = NamesOf(*event.targets);
    for (const Wwn& name : event.removeTargets) {
      if (board.targets->erase(name) == 0) {
        Refuse(event, "remove_targets", "targets that are there by then, not " + FormatWwn(name));
      }
    }
    if (event.addTargets == nullptr) return;
    for (const FabricTarget& target : *event.addTargets) {
      if (!(*board.targets)[target.portName].insert(target.lun).second) {
        Refuse(event, "add_targets", "targets that are not there yet, not " + FormatWwn(target.portName));
      }
    }
  }

  const std::vector<FabricBoard>& m_Boards;
  std::vector<Changing> m_Changing;
  std::set<Wwn> m_PortNames;
  std::set<Wwn> m_Functions;
};

}  // namespace

FabricBoardState Applied(FabricBoardState state, const FabricEvent& event) {
  Replace(state.present, event.present);
  Replace(state.overheated, event.overheated);
  Replace(state.link, event.link);
  Replace(state.targets, event.targets);
  Replace(state.virtualPorts, event.virtualPorts);
  Replace(state.iscsiTargets, event.iscsiTargets);
  Replace(state.functions, event.functions);
  if (event.addTargets != nullptr || !event.removeTargets.empty())
    state.targets = Changed(state.targets, event);
  return state;
}

void CheckFabricEvents(const std::vector<FabricBoard>& boards, const std::vector<FabricEvent>& events) {
  NameCheck check(boards);
  for (const FabricEvent& event : events) check.Apply(event);
}

}  // namespace provider

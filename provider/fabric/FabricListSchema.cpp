// The keys of what hangs below a board, and the ranges that stand for many of a kind.
#include <set>

#include "provider/fabric/FabricSchema.h"
#include "provider/host/WorldWideName.h"

namespace provider {

namespace {

constexpr std::size_t kMostElements = 100'000;  // of a list as it is written, and of one range
constexpr std::size_t kMostRecords = 400'000;
constexpr std::size_t kLongestDevice = 255;
constexpr std::size_t kLongestTargetName = 511;
constexpr std::size_t kTargetNameField = 256;
constexpr std::uint32_t kMost32 = 0xFFFFFFFF;
constexpr std::uint32_t kMostFcId = 0xFFFFFF;
constexpr std::string_view kNumberPlace = "{n}";

// `count` records more than there were.
void Count(const FabricValue& value, std::uint64_t count, FabricTotals& totals) {
  totals.records += count;
  if (totals.records > kMostRecords) {
    value.Refuse("at most " + std::to_string(kMostRecords) + " targets, ports and functions in a file");
  }
}

std::uint64_t ReadCount(FabricObject& object, std::string_view key) {
  const std::optional<FabricValue> count = object.Find(key);
  return count.has_value() ? count->Number(1, kMostElements) : 1;
}

// `steps` names further on. The count of a range comes from the same object as its first name.
Wwn Step(const FabricValue& range, const Wwn& first, std::uint64_t steps) {
  const std::uint64_t number = WwnToNumber(first);
  if (number + steps < number) range.Refuse("a range that ends at ff:ff:ff:ff:ff:ff:ff:ff at the latest");
  return WwnFromNumber(number + steps);
}

// The text with `number` for "{n}", wherever that stands.
std::string Numbered(std::string text, std::uint64_t number) {
  for (std::size_t at = text.find(kNumberPlace); at != std::string::npos; at = text.find(kNumberPlace, at)) {
    text.replace(at, kNumberPlace.size(), std::to_string(number));
  }
  return text;
}

// The node name of a range's first port, and by how much it grows from port to port.
struct NodeNames {
  Wwn first{};
  std::uint64_t step = 1;
};

NodeNames ReadNodeNames(FabricObject& object, const Wwn& portName) {
  NodeNames names;
  names.first = portName;
  names.first[0] = 0x20;
  if (const auto name = object.Find("wwnn")) names.first = name->Name();
  if (const auto step = object.Find("wwnn_step")) names.step = step->Number(0, 1);
  return names;
}

std::uint32_t ReadNodeState(const FabricValue& value) {
  constexpr std::string_view kWords[] = {"ready", "exists", "absent"};
  constexpr std::uint32_t kStates[] = {RM_NODE_EXISTS | RM_NODE_READY, RM_NODE_EXISTS, 0};
  return value.IsText() ? kStates[value.Word(kWords)] : value.Number32(kMost32);
}

// One element of a target list.
struct TargetRange {
  FabricTarget first;
  NodeNames nodes;
  std::uint64_t count = 1;
  std::uint64_t luns = 1;
};

TargetRange ReadTargetRange(const FabricValue& value, std::uint32_t bindType, std::uint32_t targetId) {
  FabricObject object(value);
  TargetRange range;
  FabricTarget& first = range.first;
  first.portName = object.Require("wwpn", "the target's port name").Name();
  range.nodes = ReadNodeNames(object, first.portName);
  range.count = ReadCount(object, "count");
  range.luns = ReadCount(object, "luns");
  first.bindType = bindType;
  first.target = targetId;
  first.nodeState = RM_NODE_EXISTS | RM_NODE_READY;
  if (const auto key = object.Find("bus")) first.bus = key->Number32(kMost32);
  if (const auto key = object.Find("target")) first.target = key->Number32(kMost32);
  if (const auto key = object.Find("lun")) first.lun = key->Number32(kMost32);
  first.fcpLun = first.lun;
  if (const auto key = object.Find("fcp_lun")) first.fcpLun = key->Number(0, UINT64_MAX);
  if (const auto key = object.Find("fc_id")) first.fcId = key->Number32(kMostFcId);
  if (const auto key = object.Find("device")) first.device = key->Text(kLongestDevice);
  if (const auto key = object.Find("lun_id")) first.lunId = key->Text(kLongestDevice);
  if (const auto key = object.Find("bind_type")) first.bindType = key->Number32(kMost32);
  if (const auto key = object.Find("state")) first.nodeState = ReadNodeState(*key);
  if (const auto key = object.Find("makers_port")) first.makersPort = key->Flag();
  object.Finish();
  return range;
}

// Numbers of 32 bits count on from their end to 0, as the adapter's own would.
FabricTarget NthTarget(const FabricValue& value, const TargetRange& range, std::uint64_t port,
                       std::uint64_t lun) {
  FabricTarget target = range.first;
  target.portName = Step(value, range.first.portName, port);
  target.nodeName = Step(value, range.nodes.first, port * range.nodes.step);
  target.target += static_cast<std::uint32_t>(port);
  target.fcId = (target.fcId + static_cast<std::uint32_t>(port)) & kMostFcId;
  target.lun += static_cast<std::uint32_t>(lun);
  target.fcpLun += lun;
  target.device = Numbered(target.device, port * range.luns + lun);
  target.lunId = Numbered(target.lunId, port * range.luns + lun);
  return target;
}

// A name in a list of names: the text itself, or an object with the first of a range.
struct NameRange {
  Wwn first{};
  std::uint64_t count = 1;
};

NameRange ReadNameRange(const FabricValue& value, std::string_view key) {
  NameRange range;
  if (!value.IsObject()) {
    range.first = value.Name();
    return range;
  }
  FabricObject object(value);
  range.first = object.Require(key, "the first name of a range").Name();
  range.count = ReadCount(object, "count");
  object.Finish();
  return range;
}

std::vector<FabricIscsiTarget> ReadIscsiRange(const FabricValue& value, FabricTotals& totals) {
  FabricObject object(value);
  FabricIscsiTarget first;
  const FabricValue name = object.Require("name", "the target's name");
  first.name = name.Text(kLongestTargetName);
  if (first.name.empty()) name.Refuse("a name that is not empty");
  if (const auto key = object.Find("second_name")) first.secondName = key->Text(kTargetNameField);
  if (const auto key = object.Find("sessions")) first.sessions = key->Flag();
  if (const auto key = object.Find("connected")) first.connected = key->Flag();
  const std::uint64_t count = ReadCount(object, "count");
  object.Finish();
  Count(value, count, totals);
  std::vector<FabricIscsiTarget> targets(count, first);
  for (std::uint64_t i = 0; i < count; ++i) {
    targets[i].name = Numbered(first.name, i);
    targets[i].secondName = Numbered(first.secondName, i);
    const std::size_t most = first.secondName.empty() ? kLongestTargetName : kTargetNameField - 1;
    if (targets[i].name.size() > most) {
      name.Refuse("a name of at most " + std::to_string(most) +
                  " bytes with its number and beside a second name");
    }
  }
  return targets;
}

}  // namespace

FabricList<FabricTarget> ReadFabricTargets(const FabricValue& value, std::uint32_t bindType,
                                           FabricTotals& totals) {
  auto targets = std::make_shared<std::vector<FabricTarget>>();
  std::set<std::pair<Wwn, std::uint32_t>> seen;
  std::uint64_t targetId = 0;
  const std::vector<FabricValue> elements = value.Elements(kMostElements);
  for (const FabricValue& element : elements) {
    const TargetRange range = ReadTargetRange(element, bindType, static_cast<std::uint32_t>(targetId));
    targetId += range.count;
    Count(element, range.count * range.luns, totals);
    for (std::uint64_t i = 0; i < range.count * range.luns; ++i) {
      FabricTarget target = NthTarget(element, range, i / range.luns, i % range.luns);
      if (!seen.emplace(target.portName, target.lun).second) {
        element.Refuse("each port name and LUN once, not " + FormatWwn(target.portName) + " with LUN " +
                       std::to_string(target.lun) + " again");
      }
      targets->push_back(std::move(target));
    }
  }
  return targets;
}

FabricList<FabricVirtualPort> ReadFabricVirtualPorts(const FabricValue& value, FabricTotals& totals) {
  auto ports = std::make_shared<std::vector<FabricVirtualPort>>();
  const std::vector<FabricValue> elements = value.Elements(kMostElements);
  for (const FabricValue& element : elements) {
    FabricObject object(element);
    const Wwn first = object.Require("wwpn", "the virtual port's name").Name();
    const NodeNames nodes = ReadNodeNames(object, first);
    const std::uint64_t count = ReadCount(object, "count");
    FabricList<FabricTarget> targets = std::make_shared<std::vector<FabricTarget>>();
    if (const auto key = object.Find("targets")) targets = ReadFabricTargets(*key, 0, totals);
    object.Finish();
    Count(element, count, totals);
    for (std::uint64_t i = 0; i < count; ++i) {
      const FabricVirtualPort port{Step(element, first, i), Step(element, nodes.first, i * nodes.step),
                                   targets};
      if (!totals.portNames.insert(port.portName).second) {
        element.Refuse("a name that no other port has, not " + FormatWwn(port.portName));
      }
      ports->push_back(port);
    }
  }
  return ports;
}

FabricList<FabricIscsiTarget> ReadFabricIscsiTargets(const FabricValue& value, FabricTotals& totals) {
  auto targets = std::make_shared<std::vector<FabricIscsiTarget>>();
  std::set<std::string> seen;
  const std::vector<FabricValue> elements = value.Elements(kMostElements);
  for (const FabricValue& element : elements) {
    for (FabricIscsiTarget& target : ReadIscsiRange(element, totals)) {
      if (!seen.insert(target.name).second) {
        element.Refuse("each name once (a range needs \"{n}\" in it), not \"" + target.name + "\" again");
      }
      targets->push_back(std::move(target));
    }
  }
  return targets;
}

FabricList<HBA_NAME> ReadFabricFunctions(const FabricValue& value, FabricTotals& totals) {
  auto functions = std::make_shared<std::vector<HBA_NAME>>();
  const std::vector<FabricValue> elements = value.Elements(kMostElements);
  for (const FabricValue& element : elements) {
    const NameRange range = ReadNameRange(element, "address");
    Count(element, range.count, totals);
    for (std::uint64_t i = 0; i < range.count; ++i) {
      const Wwn address = Step(element, range.first, i);
      if (!totals.functions.insert(address).second) {
        element.Refuse("an address that no other function has, not " + FormatWwn(address));
      }
      HBA_NAME& name = functions->emplace_back();
      std::copy(address.begin(), address.end(), name.wwn);
    }
  }
  return functions;
}

std::vector<Wwn> ReadFabricNames(const FabricValue& value, FabricTotals& totals) {
  std::vector<Wwn> names;
  const std::vector<FabricValue> elements = value.Elements(kMostElements);
  for (const FabricValue& element : elements) {
    const NameRange range = ReadNameRange(element, "wwpn");
    Count(element, range.count, totals);
    for (std::uint64_t i = 0; i < range.count; ++i) names.push_back(Step(element, range.first, i));
  }
  return names;
}

}  // namespace provider

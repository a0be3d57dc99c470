// The keys of what a fabric file scripts: changes in the course of time, and faults of single calls.
#include <algorithm>
#include <climits>
#include <cmath>
#include <map>

#include "provider/fabric/FabricSchema.h"
#include "provider/host/WorldWideName.h"

namespace provider {

namespace {

constexpr std::size_t kMostEvents = 10'000;
constexpr std::size_t kMostFaults = 1'000;
constexpr std::uint64_t kMostCalls = 1'000'000'000;

std::size_t FindBoard(const FabricValue& value, const FabricModel& model) {
  const auto found = model.boardNumbers.find(value.Name());
  if (found == model.boardNumbers.end()) value.Refuse("the \"wwpn\" of a board of this file");
  return found->second;
}

// A changed list is checked on its own here; against the others CheckFabricEvents does it.
template <class Read>
auto ReadChange(const FabricValue& value, FabricTotals& totals, Read read) {
  FabricTotals own;
  own.records = totals.records;
  auto list = read(value, own);
  totals.records = own.records;
  return list;
}

void ReadFcChanges(FabricObject& object, const FabricBoard& board, FabricEvent& event, FabricTotals& totals) {
  const auto readTargets = [&board](const FabricValue& value, FabricTotals& own) {
    return ReadFabricTargets(value, board.bindType, own);
  };
  if (const auto key = object.Find("targets")) event.targets = ReadChange(*key, totals, readTargets);
  if (const auto key = object.Find("add_targets")) event.addTargets = ReadChange(*key, totals, readTargets);
  if (const auto key = object.Find("remove_targets")) event.removeTargets = ReadFabricNames(*key, totals);
  if (const auto key = object.Find("virtual_ports")) {
    event.virtualPorts = ReadChange(*key, totals, ReadFabricVirtualPorts);
  }
}

FabricEvent ReadEvent(const FabricValue& value, const FabricModel& model, FabricTotals& totals) {
  FabricObject object(value);
  FabricEvent event;
  event.line = value.Line();
  event.path = value.Path();
  event.after = std::chrono::milliseconds(
      object.Require("after_ms", "the time since the file was loaded").Number(0, kLongestMilliseconds));
  event.board = FindBoard(object.Require("port", "the \"wwpn\" of a board"), model);
  const FabricBoard& board = model.boards[event.board];
  if (const auto key = object.Find("present")) event.present = key->Flag();
  if (const auto key = object.Find("overheated")) event.overheated = key->Flag();
  if (const auto key = object.Find("link")) event.link = ReadFabricLink(*key);
  if (HasFcTargets(board.kind)) ReadFcChanges(object, board, event, totals);
  if (board.kind == FabricKind::kIscsi) {
    if (const auto key = object.Find("iscsi_targets")) {
      event.iscsiTargets = ReadChange(*key, totals, ReadFabricIscsiTargets);
    }
  }
  if (HasFunctions(board.kind)) {
    if (const auto key = object.Find("virtual_functions")) {
      event.functions = ReadChange(*key, totals, ReadFabricFunctions);
    }
  }
  object.Finish();
  return event;
}

int ReadStatus(const FabricValue& value) {
  return static_cast<int>(value.Number(0, INT_MAX));
}

// Without a call the fault is of every call.
void ReadFaultCall(FabricObject& object, FabricFault& fault) {
  const FabricValue value = object.Require("call", "a call's name or \"*\"");
  std::vector<std::string_view> names = FabricCallNames();
  names.emplace_back("*");
  const std::size_t index = value.Word(names);
  if (index + 1 < names.size()) fault.call = static_cast<FabricCall>(index);
}

void ReadFaultPorts(FabricObject& object, FabricFault& fault, const FabricModel& model) {
  if (const auto key = object.Find("port")) {
    if (fault.call.has_value() && !TraitsOf(*fault.call).hasPort)
      key->Refuse("no port, where the call has none");
    fault.port = model.boards[FindBoard(*key, model)].portName;
  }
  if (fault.call == FabricCall::kVirtualPortTargets) {
    if (const auto key = object.Find("virtual_port")) fault.virtualPort = key->Name();
  }
}

void ReadFaultTimes(FabricObject& object, FabricFault& fault) {
  if (const auto key = object.Find("skip")) fault.skip = key->Number(0, kMostCalls);
  if (const auto key = object.Find("times")) fault.times = key->Number(1, kMostCalls);
}

void ReadHang(const FabricValue& value, FabricFault& fault) {
  if (value.IsObject() || value.IsText() || value.IsNull()) value.Refuse("true or a number of seconds");
  fault.hangs = value.IsFlag() ? value.Flag() : true;
  if (value.IsFlag()) return;
  constexpr double kThousand = 1000;
  const double seconds = value.Fraction(0, static_cast<double>(kLongestMilliseconds) / kThousand);
  fault.hang = std::chrono::milliseconds(std::llround(seconds * kThousand));
}

void ReadFaultEffect(FabricObject& object, FabricFault& fault) {
  const bool hasStatus = !fault.call.has_value() || TraitsOf(*fault.call).hasStatus;
  const bool isList = fault.call.has_value() && TraitsOf(*fault.call).isList;
  if (const auto key = object.Find("status")) {
    if (!hasStatus) key->Refuse("no status, where the call answers none");
    fault.status = ReadStatus(*key);
  }
  if (const auto key = object.Find("delay_ms")) {
    fault.delay = std::chrono::milliseconds(key->Number(0, kLongestMilliseconds));
  }
  if (const auto key = object.Find("hang")) ReadHang(*key, fault);
  if (const auto key = object.Find("claim_count")) {
    if (!isList) key->Refuse("no count, where the call answers no list");
    fault.claimedCount = key->Number32(UINT32_MAX);
  }
}

FabricFault ReadFault(const FabricValue& value, const FabricModel& model) {
  FabricObject object(value);
  FabricFault fault;
  ReadFaultCall(object, fault);
  ReadFaultPorts(object, fault, model);
  ReadFaultTimes(object, fault);
  ReadFaultEffect(object, fault);
  object.Finish();
  if (!fault.status && !fault.delay && !fault.hangs && !fault.claimedCount) {
    value.Refuse("at least one of status, delay_ms, hang, claim_count");
  }
  return fault;
}

}  // namespace

std::vector<FabricEvent> ReadFabricEvents(const FabricValue& value, const FabricModel& model,
                                          FabricTotals& totals) {
  std::vector<FabricEvent> events;
  const std::vector<FabricValue> elements = value.Elements(kMostEvents);
  events.reserve(elements.size());
  for (const FabricValue& element : elements) events.push_back(ReadEvent(element, model, totals));
  return events;
}

std::vector<FabricFault> ReadFabricFaults(const FabricValue& value, const FabricModel& model) {
  std::vector<FabricFault> faults;
  const std::vector<FabricValue> elements = value.Elements(kMostFaults);
  faults.reserve(elements.size());
  for (const FabricValue& element : elements) faults.push_back(ReadFault(element, model));
  return faults;
}

}  // namespace provider

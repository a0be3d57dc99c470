#include "provider/fabric/FabricSchema.h"

#include <algorithm>

#include "provider/WorldWideName.h"

namespace provider {

namespace {

constexpr std::size_t kMostBoards = 10'000;
constexpr std::size_t kLongestHostName = 31;

std::vector<FabricBoard> ReadBoards(const FabricValue& value, FabricTotals& totals) {
  std::vector<FabricBoard> boards;
  for (const FabricValue& element : value.Elements(kMostBoards))
    boards.push_back(ReadFabricBoard(element, totals));
  return boards;
}

void ReadLocalHost(const FabricValue& value, FabricModel& model) {
  FabricObject host(value);
  FabricTotals totals;
  const FabricValue name = host.Require("name", "the host's name");
  model.hostName = name.Text(kLongestHostName);
  if (model.hostName.empty()) name.Refuse("a host name that is not empty");
  if (const auto flag = host.Find("secure_management")) model.secureManagement = flag->Flag();
  if (const auto delay = host.Find("delay_ms")) {
    model.delay = std::chrono::milliseconds(delay->Number(0, kLongestMilliseconds));
  }
  const FabricValue boards = host.Require("boards", "an array of boards");
  model.boards = ReadBoards(boards, totals);
  for (std::size_t i = 0; i < model.boards.size(); ++i) model.boardNumbers.emplace(model.boards[i].portName, i);
  if (const auto events = host.Find("events")) model.events = ReadFabricEvents(*events, model, totals);
  if (const auto faults = host.Find("faults")) model.faults = ReadFabricFaults(*faults, model);
  host.Finish();
}

}  // namespace

FabricModel ReadFabricModel(const FabricNode& root) {
  const FabricValue value(root);
  FabricObject file(value);
  FabricModel model;
  // For editors that check a file against its schema, and for people.
  if (const auto schema = file.Find("$schema")) schema->Text(4096);
  if (const auto comment = file.Find("comment")) comment->Text(65'536);
  const FabricValue local = file.Require("local", "the local host");
  ReadLocalHost(local, model);
  file.Finish();
  std::stable_sort(model.events.begin(), model.events.end(),
                   [](const FabricEvent& a, const FabricEvent& b) { return a.after < b.after; });
  CheckFabricEvents(model.boards, model.events);
  return model;
}

}  // namespace provider

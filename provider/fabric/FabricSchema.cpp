#include "provider/fabric/FabricSchema.h"

#include <algorithm>

#include "provider/host/WorldWideName.h"

namespace provider {

namespace {

constexpr std::size_t kMostBoards = 10'000;
constexpr std::size_t kLongestHostName = 31;
constexpr std::size_t kLongestComment = 65'536;
constexpr std::size_t kMostHosts = 10'000;
constexpr std::size_t kMostAddresses = 8;  // of a host
constexpr std::size_t kAddressText = 64;

std::vector<FabricBoard> ReadBoards(const FabricValue& value, FabricTotals& totals) {
  std::vector<FabricBoard> boards;
  for (const FabricValue& element : value.Elements(kMostBoards))
    boards.push_back(ReadFabricBoard(element, totals));
  return boards;
}

// What every host has.
void ReadHost(FabricObject& host, FabricModel& model, FabricTotals& totals) {
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
  std::stable_sort(model.events.begin(), model.events.end(),
                   [](const FabricEvent& a, const FabricEvent& b) { return a.after < b.after; });
}

FabricModel ReadLocalHost(const FabricValue& value, FabricTotals& totals) {
  FabricObject host(value);
  FabricModel model;
  ReadHost(host, model, totals);
  return model;
}

NetAddress ReadAddress(const FabricValue& value, std::set<NetAddress>& taken) {
  const std::optional<NetAddress> address = NetAddress::Parse(value.IsText() ? value.Text(kAddressText) : "");
  if (!address.has_value()) value.Refuse("a numeric IPv4 or IPv6 address without a port");
  if (*address == NetAddress{} || *address == NetAddress{true, {}}) value.Refuse("the address of one host");
  if (!taken.insert(*address).second) value.Refuse("an address that no other host of the file has");
  return *address;
}

// One address as it is, or several in an array.
std::vector<NetAddress> ReadAddresses(const FabricValue& value, std::set<NetAddress>& taken) {
  if (value.IsText()) return {ReadAddress(value, taken)};
  std::vector<NetAddress> addresses;
  const std::vector<FabricValue> elements = value.Elements(kMostAddresses);
  addresses.reserve(elements.size());
  for (const FabricValue& element : elements) addresses.push_back(ReadAddress(element, taken));
  if (addresses.empty()) value.Refuse("at least one address");
  return addresses;
}

FabricModel ReadRemoteHost(const FabricValue& value, std::set<NetAddress>& taken, FabricTotals& totals) {
  FabricObject host(value);
  FabricModel model;
  const FabricValue address = host.Require("address", "the host's address, or an array of addresses");
  model.addresses = ReadAddresses(address, taken);
  if (const auto flag = host.Find("unreachable")) model.unreachable = flag->Flag();
  if (const auto comment = host.Find("comment")) comment->Text(kLongestComment);
  ReadHost(host, model, totals);
  return model;
}

// A port may be named by several hosts: an agent on the local host shows the local ports.
std::vector<FabricModel> ReadRemoteHosts(const FabricValue& value, std::size_t recordsBefore) {
  std::set<NetAddress> taken;
  std::vector<FabricModel> hosts;
  const std::vector<FabricValue> elements = value.Elements(kMostHosts);
  hosts.reserve(elements.size());
  for (const FabricValue& element : elements) {
    FabricTotals totals;
    totals.records = recordsBefore;
    hosts.push_back(ReadRemoteHost(element, taken, totals));
    recordsBefore = totals.records;
  }
  return hosts;
}

}  // namespace

FabricModels ReadFabricModels(const FabricNode& root) {
  const FabricValue value(root);
  FabricObject file(value);
  FabricModels models;
  // For editors that check a file against its schema, and for people.
  if (const auto schema = file.Find("$schema")) schema->Text(4096);
  if (const auto comment = file.Find("comment")) comment->Text(kLongestComment);
  const FabricValue local = file.Require("local", "the local host");
  FabricTotals totals;
  models.local = ReadLocalHost(local, totals);
  if (const auto remote = file.Find("remote")) models.remote = ReadRemoteHosts(*remote, totals.records);
  file.Finish();
  CheckFabricEvents(models.local.boards, models.local.events);
  for (const FabricModel& host : models.remote) CheckFabricEvents(host.boards, host.events);
  return models;
}

}  // namespace provider

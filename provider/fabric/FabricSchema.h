// From a fabric file's tree to its model: which keys there are, what each of them takes, and which values
// cannot stand together.
#ifndef PROVIDER_FABRIC_FABRICSCHEMA_H_
#define PROVIDER_FABRIC_FABRICSCHEMA_H_

#include <set>
#include <utility>

#include "provider/fabric/FabricModel.h"
#include "provider/fabric/FabricReader.h"

namespace provider {

// Throws FabricError.
FabricModels ReadFabricModels(const FabricNode& root);

// What is counted over a whole host.
struct FabricTotals {
  std::set<Wwn> portNames;  // of boards and virtual ports: no two are the same
  std::set<Wwn> functions;  // addresses of virtual functions: likewise
  std::size_t records = 0;  // written out, of all lists together, and of the hosts before this one
};

// The pieces. `totals` of a list that takes the place of another one are the caller's own, except for
// `records`.
FabricBoard ReadFabricBoard(const FabricValue& value, FabricTotals& totals);
FabricLink ReadFabricLink(const FabricValue& value);
FabricList<FabricTarget> ReadFabricTargets(const FabricValue& value, std::uint32_t bindType,
                                           FabricTotals& totals);
FabricList<FabricVirtualPort> ReadFabricVirtualPorts(const FabricValue& value, FabricTotals& totals);
FabricList<FabricIscsiTarget> ReadFabricIscsiTargets(const FabricValue& value, FabricTotals& totals);
FabricList<HBA_NAME> ReadFabricFunctions(const FabricValue& value, FabricTotals& totals);
std::vector<Wwn> ReadFabricNames(const FabricValue& value, FabricTotals& totals);
// `model` has its boards already.
std::vector<FabricEvent> ReadFabricEvents(const FabricValue& value, const FabricModel& model,
                                          FabricTotals& totals);
std::vector<FabricFault> ReadFabricFaults(const FabricValue& value, const FabricModel& model);

// Refuses an event that would leave two things with one name, or that removes what is not there. `events` are
// in the order of their time.
void CheckFabricEvents(const std::vector<FabricBoard>& boards, const std::vector<FabricEvent>& events);

// The largest delay or time of an event: a week.
inline constexpr std::uint64_t kLongestMilliseconds = 7ull * 24 * 3600 * 1000;

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICSCHEMA_H_

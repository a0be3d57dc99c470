// Scripted faults of single calls.
#include <gmock/gmock.h>

#include "tests/provider/Boundary.h"
#include "tests/support/Testing.h"

namespace providertest {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

json TwoPorts() {
  json first = FcBoard();
  first["targets"] = {{{"wwpn", "5000000000000001"}, {"count", 40}}};
  return {first, FcBoard(kOtherPort)};
}

std::vector<int> NodeStatuses(const std::string& port, int calls) {
  std::vector<int> statuses;
  for (int i = 0; i < calls; ++i) statuses.push_back(Nodes(port).status);
  return statuses;
}

TEST(Faults, StatusForTheNextCallsOfOnePort) {
  const Fabric fabric(
      TwoPorts(),
      {{"faults",
        {{{"call", "RM_GetAllNodeInfo"}, {"port", kPort}, {"status", 64}, {"times", 2}},
         {{"call", "RM_GetAllNodeInfo"}, {"port", kPort}, {"status", 253}, {"skip", 1}, {"times", 1}}}}});
  EXPECT_THAT(NodeStatuses(kOtherPort, 2), ElementsAre(0, 0));
  // The second fault has its turn on the calls that the first has left over.
  EXPECT_THAT(NodeStatuses(kPort, 5), ElementsAre(64, 64, 0, 253, 0));
  EXPECT_EQ(VirtualPorts(kPort).status, 0);
}

TEST(Faults, ClaimedCounts) {
  const struct {
    json fault;
    std::uint32_t room;
    int status;
    std::uint32_t count;
  } rows[] = {
      {{{"claim_count", 0xFFFFFFFFu}}, 64, 0, 0xFFFFFFFFu},  // absurd
      {{{"claim_count", 3}}, 64, 0, 3},                      // fewer than were copied
      {{{"claim_count", 3}}, 16, 7, 3},                      // too small, and fits
      {{{"claim_count", 100}}, 64, 0, 100},                  // status 0 with more than the room
      {{{"status", 191}}, 64, 191, 40},                      // the true number, when none is claimed
      {{{"status", 7}, {"claim_count", 4000000000u}}, 64, 7, 4000000000u},
      {{{"status", 1}}, 64, 1, 64},  // the room is left
  };
  for (const auto& row : rows) {
    json fault = row.fault;
    fault["call"] = "RM_GetAllNodeInfo";
    SCOPED_TRACE(fault.dump());
    const Fabric fabric(TwoPorts(), {{"faults", {fault}}});
    const auto nodes = Nodes(kPort, row.room);
    EXPECT_EQ(nodes.status, row.status);
    EXPECT_EQ(nodes.count, row.count);
  }
}

// A call that hangs stops no other; a new content of the file lets it go.
TEST(Faults, HangStopsNobodyElse) {
  std::atomic<int> status{-1};
  std::atomic<bool> begun{false};
  std::thread hanging;
  {
    Fabric fabric(TwoPorts(),
                  {{"faults", {{{"call", "RM_VPList"}, {"port", kPort}, {"hang", true}, {"times", 1}}}}});
    hanging = std::thread([&] {
      begun = true;
      status = VirtualPorts(kPort).status;
    });
    ASSERT_TRUE(Eventually([&] { return begun.load(); }));
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(VirtualPorts(kOtherPort).status, 0);
    EXPECT_EQ(Nodes(kPort).status, 0);
    EXPECT_EQ(status, -1);
    fabric.Local()["faults"] = json::array();
    fabric.Rewrite();
    EXPECT_TRUE(Eventually([&] { return Nodes(kPort).status == 0 && status != -1; }));
  }
  hanging.join();
  EXPECT_EQ(status, RM_STATUS_FAILED);
}

}  // namespace
}  // namespace providertest

#include "discovery/StateWord.h"

#include <gtest/gtest.h>

#include "discovery/CycleGate.h"

namespace {

constexpr std::uint32_t kRunning = kStateEnabled | kStateStarted;

// The main thread does not run: it takes signals only.
struct StateWordTransitions : public testing::Test {
  void StartCycle() {
    state.Start();
    ASSERT_TRUE(state.BeginCycle());
  }
  CZylThread mainThread;
  StateWord state{mainThread};
  unsigned int cycle = 0;
};

TEST_F(StateWordTransitions, OneCycleFromStartToStop) {
  EXPECT_FALSE(state.BeginCycle());
  EXPECT_FALSE(state.LeaveStarted());
  StartCycle();
  EXPECT_EQ(state.Get(), kRunning | kStateForced | kStateInCycle);
  EXPECT_FALSE(state.BeginCycle());
  EXPECT_EQ(state.EndCycle(true), kRunning | kStateForced | kStateInCycle);
  EXPECT_EQ(state.Get(), kRunning);
  state.Pause();
  EXPECT_FALSE(state.LeaveStarted());  // paused: not to be stopped
  state.Force();
  EXPECT_EQ(mainThread.WaitForSignal(0), 0);
  EXPECT_TRUE(state.LeaveStarted());
  EXPECT_TRUE(state.StopRequested());
  state.Stopped();
  EXPECT_EQ(state.Get(), 0U);
}

TEST_F(StateWordTransitions, RequestSurvivesACycleThatDoesNotServeIt) {
  StartCycle();
  state.EndCycle(false);
  EXPECT_EQ(state.Get(), kRunning | kStateForced);
}

TEST_F(StateWordTransitions, TheLastOfSeveralKillersDropsTheKill) {
  EXPECT_FALSE(state.RequestKill(&cycle));
  StartCycle();
  unsigned int other = 0;
  ASSERT_TRUE(state.RequestKill(&cycle));
  ASSERT_TRUE(state.RequestKill(&other));
  EXPECT_TRUE(state.IsRunning(cycle));
  state.EndCycle(true);
  EXPECT_FALSE(state.IsRunning(cycle));
  state.DropUnwaitedKill();
  state.DropKillWaiter(cycle);
  EXPECT_TRUE(state.IsKilled());
  state.DropKillWaiter(other);
  EXPECT_FALSE(state.IsKilled());
}

TEST_F(StateWordTransitions, KillOfAnEarlierCycleLeavesTheNextOneAlone) {
  StartCycle();
  ASSERT_TRUE(state.RequestKill(&cycle));
  state.EndCycle(true);
  ASSERT_TRUE(state.BeginCycle());
  EXPECT_FALSE(state.IsKilled());
  EXPECT_FALSE(state.IsRunning(cycle));
  state.RequestKillUnwaited();
  state.DropKillWaiter(cycle);  // late: what stands there now is another's
  EXPECT_TRUE(state.StopRequested());
  state.EndCycle(false);
  EXPECT_EQ(mainThread.WaitForSignal(0), -1);  // its signal would start the next cycle
  state.DropUnwaitedKill();
  EXPECT_FALSE(state.StopRequested());
}

TEST_F(StateWordTransitions, GateHoldsCyclesForRefreshAndRequest) {
  CycleGate gate(state);
  EXPECT_EQ(gate.BeginCycle(), CycleGate::Entry::kRefused);
  state.Start();
  const int first = 0;
  const int second = 0;
  EXPECT_TRUE(gate.ClaimRefresh(&first));
  EXPECT_FALSE(gate.ClaimRefresh(&second));
  gate.LeaveRefresh(&second);
  gate.HoldForRequest(true);
  EXPECT_TRUE(gate.IsRefreshing(&first));
  gate.LeaveRefresh(&first);
  EXPECT_EQ(gate.BeginCycle(), CycleGate::Entry::kHeld);
  gate.HoldForRequest(false);
  EXPECT_EQ(gate.BeginCycle(), CycleGate::Entry::kBegun);
}

}  // namespace

#include "discovery/Callback.h"

#include <gtest/gtest.h>

namespace {

constexpr CycleReport kNothing;
constexpr CycleReport kChanged{.changed = true};
constexpr CycleReport kForced{.forced = true};
constexpr CycleReport kForcedChanged{.changed = true, .forced = true};
constexpr CycleReport kIntermediate{.intermediate = true};

TEST(Callback, ReasonsFollowTheLadder) {
  struct Row {
    CycleReport report;
    unsigned int reasons[6];  // under the masks 1, 2, 4, 8, 6, 31; 0: not called
  };
  constexpr unsigned int kMasks[] = {1, 2, 4, 8, 6, 31};
  constexpr Row kRows[] = {{kNothing, {1, 0, 0, 0, 0, 1}},
                           {kChanged, {5, 0, 4, 0, 4, 5}},
                           {kForced, {3, 2, 0, 0, 2, 3}},
                           {kForcedChanged, {7, 6, 0, 0, 6, 7}},
                           {kIntermediate, {20, 20, 20, 20, 20, 20}}};
  for (const Row& row : kRows) {
    for (std::size_t i = 0; i < std::size(kMasks); ++i) {
      EXPECT_EQ(ReasonOf(kMasks[i], row.report).value, row.reasons[i]) << &row - kRows << ", " << kMasks[i];
    }
  }
  EXPECT_EQ(DirectedReasonOf(kReasonForced | kReasonChanged, true).value, 0U);
  EXPECT_EQ(DirectedReasonOf(kReasonDirected, true).value, 12U);
  EXPECT_EQ(DirectedReasonOf(kReasonEveryCycle, false).value, 9U);
}

TEST(Callback, TellsOnlyWhomItMay) {
  struct Told {
    unsigned int calls = 0;
    bool inside = false;
  } told;
  Callback callback;
  const auto tell = [](unsigned int, void* context) {
    static_cast<Told*>(context)->calls++;
    static_cast<Told*>(context)->inside = Callback::IsInside();
    throw 1;
  };
  callback.Register(tell, kReasonEveryCycle, &told);
  callback.Report(kForced);
  EXPECT_EQ(told.calls, 0U);  // not allowed yet
  callback.Allow(true);
  callback.Report(kForced);
  callback.ReportDirected({}, false, [] { return false; });
  callback.Register(tell, 0, &told);
  callback.Report(kIntermediate);
  callback.Register(nullptr, kReasonEveryCycle, &told);
  callback.Report(kForced);
  EXPECT_EQ(told.calls, 1U);
  EXPECT_TRUE(told.inside);
  EXPECT_FALSE(Callback::IsInside());
}

}  // namespace

#include "inband/LocalTurn.h"

#include <gtest/gtest.h>

#include <optional>
#include <thread>

#include "tests/support/Ports.h"
#include "tests/support/RecordedLog.h"
#include "tests/support/Waiting.h"

namespace {

using std::chrono::milliseconds;

const CHbaEntry kLocal = MakePort(Info(kPort));
const CHbaEntry kRemote = MakePort(Info(kPort), 0);

class LocalTurns : public testing::Test {
 protected:
  // Whether another thread's turn comes.
  bool TurnComes(LocalReads& reads, const StopQuery& stopped = {}) {
    bool came = false;
    std::jthread([&] { came = LocalTurn(reads, kLocal, stopped).HasCome(); }).join();
    return came;
  }

  RecordedLog m_Log;
};

TEST_F(LocalTurns, ComeOneAfterTheOther) {
  LocalReads reads;
  std::optional<LocalTurn> first(std::in_place, reads, kLocal, StopQuery());
  EXPECT_TRUE(LocalTurn(reads, kRemote, {}).HasCome()) << "other hosts have drivers of their own";
  std::atomic<bool> asked{false};
  std::atomic<bool> came{false};
  std::jthread second([&] {
    const LocalTurn turn(reads, kLocal, [&] {
      asked = true;
      return false;
    });
    came = turn.HasCome();
  });
  ASSERT_TRUE(Eventually([&] { return asked.load(); }));
  EXPECT_FALSE(came);
  first.reset();
  second.join();
  EXPECT_TRUE(came);
  EXPECT_TRUE(TurnComes(reads)) << "whoever came has left";
}

TEST_F(LocalTurns, EndWhenTheReadBeforeHangs) {
  LocalReads reads(milliseconds(1000));
  const Stopwatch watch;
  {
    const LocalTurn hanging(reads, kLocal, {});
    EXPECT_FALSE(TurnComes(reads));
    EXPECT_GE(watch.Elapsed(), milliseconds(1000));
    EXPECT_EQ(m_Log.Find("Not read: the read of another local port hangs").wwn, kPort);
    const Stopwatch again;
    EXPECT_FALSE(TurnComes(reads));
    EXPECT_LT(again.Elapsed(), milliseconds(1000)) << "what is known to hang is not waited for";
  }
  EXPECT_TRUE(TurnComes(reads));
}

// A read of many calls is slow, not stuck.
TEST_F(LocalTurns, WaitForAReadThatGoesOn) {
  LocalReads reads(milliseconds(2000));
  const Stopwatch watch;
  std::optional<LocalTurn> slow(std::in_place, reads, kLocal, StopQuery());
  std::atomic<bool> came{false};
  std::jthread waiter([&] { came = LocalTurn(reads, kLocal, {}).HasCome(); });
  while (watch.Elapsed() < milliseconds(3000)) {
    slow->NoteCall();
    std::this_thread::sleep_for(milliseconds(10));
  }
  slow.reset();
  waiter.join();
  EXPECT_TRUE(came);
}

}  // namespace

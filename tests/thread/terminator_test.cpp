#include "tests/support/Testing.h"
#include "tests/support/Waiting.h"
#include "thread/thread_terminator.h"

namespace {

// A thread that shares itself with its routine, as pool workers do, and ends when it is let out.
class StuckThread : public CZylThread {
 public:
  static std::shared_ptr<StuckThread> Start() {
    auto thread = std::make_shared<StuckThread>();
    thread->Create(Run, new std::shared_ptr<StuckThread>(thread), 0, 0);
    return thread;
  }

  void LetOut() { m_Out = true; }

 private:
  static void* Run(void* arg) {
    const std::unique_ptr<std::shared_ptr<StuckThread>> self(static_cast<std::shared_ptr<StuckThread>*>(arg));
    Eventually([&] { return (*self)->m_Out.load(); }, std::chrono::seconds(50));
    return nullptr;
  }

  std::atomic<bool> m_Out{false};
};

// Hands a thread over; what is left is the means to let it out and to see it go.
std::weak_ptr<StuckThread> HandOver(CThreadTerminator& terminator) {
  auto thread = StuckThread::Start();
  const std::weak_ptr<StuckThread> watch = thread;
  terminator.TerminateThread(std::move(thread));
  return watch;
}

void LetOut(const std::weak_ptr<StuckThread>& watch) {
  if (const auto thread = watch.lock()) thread->LetOut();
}

bool IsDropped(CThreadTerminator& terminator, const std::weak_ptr<StuckThread>& watch) {
  return Eventually([&] {
    terminator.Signal();  // sweeps now, not at the next retry
    return watch.expired();
  });
}

TEST(Terminator, FreedSlotsAreUsedAgain) {
  const auto terminator = CThreadTerminator::Start();
  for (int round = 0; round < 2; ++round) {
    std::vector<std::weak_ptr<StuckThread>> threads;
    for (int i = 0; i < 20; ++i) threads.push_back(HandOver(*terminator));
    for (const auto& thread : threads) LetOut(thread);
    for (const auto& thread : threads) EXPECT_TRUE(IsDropped(*terminator, thread));
  }
  EXPECT_EQ(terminator->Capacity(), 20u);
  terminator->Terminate();
}

TEST(Terminator, AStuckThreadDelaysNoOther) {
  const auto terminator = CThreadTerminator::Start();
  const auto stuck = HandOver(*terminator);
  EXPECT_EQ(stuck.lock()->Terminated(), 1);
  const auto other = HandOver(*terminator);
  LetOut(other);
  EXPECT_TRUE(IsDropped(*terminator, other));
  EXPECT_FALSE(stuck.expired());
  // Stopped, it leaves the thread to itself.
  terminator->Terminate();
  EXPECT_FALSE(stuck.expired());
  LetOut(stuck);
}

TEST(Thread, MayBeDestroyedByItsOwnRoutineAsLastOwner) {
  auto thread = StuckThread::Start();
  const std::weak_ptr<StuckThread> watch = thread;
  StuckThread* const held = thread.get();
  thread.reset();
  ASSERT_FALSE(watch.expired());
  held->LetOut();
  EXPECT_TRUE(Eventually([&] { return watch.expired(); }));
}

}  // namespace

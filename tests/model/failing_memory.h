// Lets one allocation of the calling thread fail.
#ifndef TESTS_MODEL_FAILING_MEMORY_H_
#define TESTS_MODEL_FAILING_MEMORY_H_

#include <gtest/gtest.h>

#include <new>

// While it lives, the thread's next allocation but `after` throws std::bad_alloc.
class FailingMemory {
 public:
  explicit FailingMemory(unsigned int after);
  ~FailingMemory();
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;
};

// Does `work` on what `make` gives until no allocation is left that could fail, and looks at what each failure
// has left behind.
template <typename Make, typename Work, typename Check>
void FailEachAllocation(Make make, Work work, Check check) {
  unsigned int failed = 0;
  for (bool done = false; !done && !testing::Test::HasFailure(); ++failed) {
    const auto subject = make();
    try {
      const FailingMemory armed(failed);
      work(*subject);
      done = true;
    } catch (const std::bad_alloc&) {
      SCOPED_TRACE(failed);
      check(*subject);
    }
  }
  EXPECT_GT(failed, 1U) << "nothing was allocated";
}

#endif  // TESTS_MODEL_FAILING_MEMORY_H_

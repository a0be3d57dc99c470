// Waiting for what other threads and processes do.
#ifndef TESTS_SUPPORT_WAITING_H_
#define TESTS_SUPPORT_WAITING_H_

#include "tests/support/Testing.h"

// Longer than any wait that goes well, also under a sanitizer on a busy machine.
inline constexpr std::chrono::milliseconds kLimit{60'000};

// Waits until `condition` holds; false when it does not within the limit.
template <typename Condition>
bool Eventually(Condition condition, std::chrono::milliseconds limit = kLimit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

class Stopwatch {
 public:
  std::chrono::milliseconds Elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_Start);
  }

 private:
  std::chrono::steady_clock::time_point m_Start = std::chrono::steady_clock::now();
};

// Holds the calls that reach it while it is closed.
class Gate {
 public:
  void Pass() {
    ++m_Calls;
    m_Closed.wait(true);
  }
  bool WaitForCalls(int calls) const {
    return Eventually([&] { return m_Calls >= calls; });
  }
  void Close() { m_Closed = true; }
  void Open() {
    m_Closed = false;
    m_Closed.notify_all();
  }

 private:
  std::atomic<int> m_Calls{0};
  std::atomic<bool> m_Closed{false};
};

// The threads of this process. A sanitizer has one of its own, from the first other one on.
inline std::ptrdiff_t ThreadCount() {
  static const bool s_FirstThread = (std::thread([] {}).join(), true);
  static_cast<void>(s_FirstThread);
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

#endif  // TESTS_SUPPORT_WAITING_H_

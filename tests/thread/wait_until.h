#ifndef TESTS_THREAD_WAIT_UNTIL_H_
#define TESTS_THREAD_WAIT_UNTIL_H_

#include <chrono>
#include <thread>

// Waits for a condition, with a limit that only a fault reaches.
template <typename Condition>
bool WaitUntil(Condition condition, std::chrono::seconds limit = std::chrono::seconds(20)) {
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

#endif  // TESTS_THREAD_WAIT_UNTIL_H_

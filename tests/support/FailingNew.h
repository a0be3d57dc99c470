// Memory that runs out on request: of a thread's coming allocations by operator new one fails.
//
// Only a program with FailingNew.cpp fails any.
#ifndef TESTS_SUPPORT_FAILINGNEW_H_
#define TESTS_SUPPORT_FAILINGNEW_H_

#include <utility>

struct FailingMemory {
  static constexpr int kNever = -1;
  // How many allocations of this thread succeed before one fails.
  static inline thread_local int s_Left = kNever;
};

// Nothing fails in this scope: the log never throws.
class ReliableMemory {
 public:
  ReliableMemory() : m_Left(std::exchange(FailingMemory::s_Left, FailingMemory::kNever)) {}
  ~ReliableMemory() { FailingMemory::s_Left = m_Left; }
  ReliableMemory(const ReliableMemory&) = delete;
  ReliableMemory& operator=(const ReliableMemory&) = delete;

 private:
  const int m_Left;
};

#endif  // TESTS_SUPPORT_FAILINGNEW_H_

// A program as a shell runs it, with its output in hand.
//
// Thread safety: one thread. Ownership: the object ends what it has started.
#ifndef TESTS_TOOL_PROGRAM_H_
#define TESTS_TOOL_PROGRAM_H_

#include <cstdio>
#include <optional>
#include <string>

namespace tooltest {

class Program {
 public:
  // Starts a shell command and reads its standard output.
  explicit Program(const std::string& command);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program();

  // Waits for a line, without its end; none at the end of the output.
  std::optional<std::string> ReadLine();
  // What is left of the output.
  std::string ReadAll();
  // Waits for the end of the program; its exit code, or 128 and the signal that ended it.
  int Wait();

 private:
  std::FILE* m_Output;
};

}  // namespace tooltest

#endif  // TESTS_TOOL_PROGRAM_H_

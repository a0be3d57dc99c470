#include "tests/tool/Program.h"

#include <sys/wait.h>

#include <stdexcept>
#include <utility>

namespace tooltest {

Program::Program(const std::string& command) : m_Output(popen(command.c_str(), "re")) {
  if (!m_Output) throw std::runtime_error("cannot start a shell");
}

Program::~Program() {
  if (m_Output) pclose(m_Output);
}

std::optional<std::string> Program::ReadLine() {
  std::string line;
  for (int c; (c = std::fgetc(m_Output)) != EOF;) {
    if (c == '\n') return line;
    line += static_cast<char>(c);
  }
  return line.empty() ? std::nullopt : std::optional(line);
}

std::string Program::ReadAll() {
  std::string text;
  while (const auto line = ReadLine()) text += *line + '\n';
  return text;
}

int Program::Wait() {
  const int status = pclose(std::exchange(m_Output, nullptr));
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace tooltest

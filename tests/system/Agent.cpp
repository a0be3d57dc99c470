#include "tests/system/Agent.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "tests/system/Harness.h"

namespace systemtest {

std::string LoopbackAddress(unsigned int number) {
  const auto process = static_cast<unsigned int>(getpid());
  return "127." + std::to_string(64 + (process >> 8) % 128) + '.' + std::to_string(process % 256) + '.' +
         std::to_string(number);
}

Agent::Agent(const std::string& fabric, const std::string& address) {
  int says[2];
  if (pipe2(says, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  m_Process = fork();
  if (m_Process == 0) {
    dup2(says[1], STDERR_FILENO);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // In a user's own namespace there is nobody else to become.
    execl(HBADISC_AGENT, HBADISC_AGENT, "--user", "root", "--fabric", fabric.c_str(), nullptr);
    _exit(127);
  }
  close(says[1]);
  // Its first line says where it listens.
  char line[256];
  const ssize_t length = read(says[0], line, sizeof line);
  close(says[0]);
  if (length <= 0 ||
      std::string_view(line, static_cast<std::size_t>(length)).find(address) == std::string_view::npos) {
    throw std::runtime_error("the agent does not listen");
  }
}

void Agent::Kill() {
  if (m_Process <= 0) return;
  kill(m_Process, SIGKILL);
  waitpid(m_Process, nullptr, 0);
  m_Process = -1;
}

}  // namespace systemtest

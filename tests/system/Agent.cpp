#include "tests/system/Agent.h"

#include <arpa/inet.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "tests/system/Harness.h"

namespace systemtest {

namespace {

constexpr unsigned short kPort = 23333;

bool Answers(const std::string& address) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(kPort);
  inet_pton(AF_INET, address.c_str(), &peer.sin_addr);
  const bool connected = connect(descriptor, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0;
  close(descriptor);
  return connected;
}

}  // namespace

std::string LoopbackAddress(unsigned int number) {
  const auto process = static_cast<unsigned int>(getpid());
  return "127." + std::to_string(64 + (process >> 8) % 128) + '.' + std::to_string(process % 256) + '.' +
         std::to_string(number);
}

Agent::Agent(const std::string& fabric, const std::string& address) {
  m_Process = fork();
  if (m_Process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // In a user's own namespace there is nobody else to become.
    execl(HBADISC_AGENT, HBADISC_AGENT, "--user", "root", "--fabric", fabric.c_str(), nullptr);
    _exit(127);
  }
  const auto up = [&] { return waitpid(m_Process, nullptr, WNOHANG) != 0 || Answers(address); };
  if (!Eventually(up) || !Answers(address)) throw std::runtime_error("the agent does not answer");
}

void Agent::Kill() {
  if (m_Process <= 0) return;
  kill(m_Process, SIGKILL);
  waitpid(m_Process, nullptr, 0);
  m_Process = -1;
}

}  // namespace systemtest

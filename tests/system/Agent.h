// An agent process that serves the remote hosts of a fabric file.
#ifndef TESTS_SYSTEM_AGENT_H_
#define TESTS_SYSTEM_AGENT_H_

#include <sys/types.h>

#include <string>

namespace systemtest {

// A loopback address of this process alone, so that tests that run at once do not meet.
std::string LoopbackAddress(unsigned int number);

class Agent {
 public:
  // `address` is one of those that it serves; it answers there when the object is constructed.
  Agent(const std::string& fabric, const std::string& address);
  ~Agent() { Kill(); }
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  // Without a last word to anybody.
  void Kill();

 private:
  pid_t m_Process = -1;
};

}  // namespace systemtest

#endif  // TESTS_SYSTEM_AGENT_H_

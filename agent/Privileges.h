// What the agent may do once it listens.
#ifndef AGENT_PRIVILEGES_H_
#define AGENT_PRIVILEGES_H_

#include <string>

namespace agent {

// No program started from here may gain rights. Holds for this thread and those it makes from now on, so it
// comes first. Throws std::runtime_error.
void ForbidNewRights();

// As root: becomes `user` ("nobody" when empty). Throws std::runtime_error, also when a user is named and the
// process is not root.
void DropPrivileges(const std::string& user);

// As many descriptors as the system lets this process have.
void RaiseDescriptorLimit();

}  // namespace agent

#endif  // AGENT_PRIVILEGES_H_

#include "agent/Privileges.h"

#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace agent {

namespace {

constexpr const char* kDefaultUser = "nobody";

void Check(int result, const std::string& what) {
  if (result == 0) return;
  throw std::runtime_error(what + ": " + std::error_code(errno, std::generic_category()).message());
}

struct Ids {
  uid_t user;
  gid_t group;
};

Ids FindUser(const std::string& name) {
  constexpr std::size_t kRoom = 16'384;
  std::vector<char> room(kRoom);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwnam_r(name.c_str(), &entry, room.data(), room.size(), &found) != 0 || found == nullptr) {
    throw std::runtime_error("no such user: " + name);
  }
  return {entry.pw_uid, entry.pw_gid};
}

}  // namespace

void ForbidNewRights() {
  Check(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "no_new_privs");
}

void DropPrivileges(const std::string& user) {
  if (geteuid() != 0) {
    if (!user.empty()) throw std::runtime_error("only root can run as another user");
    return;
  }
  const Ids ids = FindUser(user.empty() ? kDefaultUser : user);
  if (ids.user == geteuid()) return;
  Check(setgroups(0, nullptr), "setgroups");
  Check(setresgid(ids.group, ids.group, ids.group), "setresgid");
  Check(setresuid(ids.user, ids.user, ids.user), "setresuid");
}

void RaiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  // With fewer, fewer connections are taken.
  [[maybe_unused]] const int result = setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace agent

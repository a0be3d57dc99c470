#include "tools/hbadisc/Notices.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <ctime>
#include <system_error>

namespace hbadisc {

Notices::Notices() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) throw std::system_error(errno, std::generic_category());
  m_Read = ends[0];
  m_Write = ends[1];
}

Notices::~Notices() {
  close(m_Read);
  close(m_Write);
}

void Notices::Post(unsigned int reason) const noexcept {
  const int savedErrno = errno;
  const Notice notice{std::time(nullptr), reason};
  [[maybe_unused]] const ssize_t written = write(m_Write, &notice, sizeof notice);
  errno = savedErrno;
}

bool Notices::IsReadable(int descriptor) {
  pollfd state{descriptor, POLLIN, 0};
  return descriptor >= 0 && poll(&state, 1, 0) > 0;
}

std::optional<Notice> Notices::Wait(std::optional<std::chrono::milliseconds> limit, int output,
                                    int other) const {
  std::array<pollfd, 3> descriptors = {pollfd{m_Read, POLLIN, 0}, pollfd{output, 0, 0},
                                       pollfd{other, POLLIN, 0}};
  const int timeout = limit ? static_cast<int>(std::clamp<std::int64_t>(limit->count(), 0, INT_MAX)) : -1;
  // A signal's handler has posted a notice, or the signal means nothing to us.
  while (poll(descriptors.data(), descriptors.size(), timeout) < 0 && errno == EINTR) {
  }
  Notice notice;
  if (read(m_Read, &notice, sizeof notice) != static_cast<ssize_t>(sizeof notice)) return std::nullopt;
  return notice;
}

}  // namespace hbadisc

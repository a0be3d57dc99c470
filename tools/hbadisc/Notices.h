// The library's callbacks on their way to the thread that waits for them.
//
// A pipe, because then one poll waits for callbacks, signals and the reader of the output alike, and because a
// tool whose reader has stopped reading piles up 16 bytes a callback and no pictures of ports.
//
// Thread safety: Post from any thread and from signal handlers; Wait from one thread. Ownership: the object
// owns the pipe.
#ifndef TOOLS_HBADISC_NOTICES_H_
#define TOOLS_HBADISC_NOTICES_H_

#include <chrono>
#include <cstdint>
#include <optional>

namespace hbadisc {

struct Notice {
  std::int64_t seconds = 0;  // of the system clock
  std::uint32_t reason = 0;  // HBADISC_REASON_ bits; 0: not from the library, but to wake the waiting thread
  std::uint32_t unused = 0;
};

class Notices {
 public:
  Notices();
  Notices(const Notices&) = delete;
  Notices& operator=(const Notices&) = delete;
  ~Notices();

  // Never waits: what does not fit any more, after thousands of notices, is dropped.
  void Post(unsigned int reason) const noexcept;

  // The next notice; none when `limit` has passed or `output` cannot be written any more. Without a limit it
  // waits as long as it takes.
  // `other`, when it is not negative, becoming readable ends the wait, too.
  std::optional<Notice> Wait(std::optional<std::chrono::milliseconds> limit, int output, int other = -1) const;

  static bool IsReadable(int descriptor);

 private:
  int m_Read = -1;
  int m_Write = -1;
};

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_NOTICES_H_

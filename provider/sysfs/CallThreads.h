// Threads for calls that may never return.
//
// Thread safety: internally locked. Ownership: threads share what they need and are never joined: one whose
// call does not return is left behind, and the others end by themselves soon after the last call.
#ifndef PROVIDER_SYSFS_CALLTHREADS_H_
#define PROVIDER_SYSFS_CALLTHREADS_H_

#include <functional>
#include <memory>

namespace provider {

class CallThreads {
 public:
  CallThreads();
  ~CallThreads();
  CallThreads(const CallThreads&) = delete;
  CallThreads& operator=(const CallThreads&) = delete;

  // Has the job run on a thread that waits for one, or on a new one; false when there is none to be had. The
  // job throws nothing.
  bool Run(std::function<void()> job);

 private:
  struct State;
  static void Work(const std::shared_ptr<State>& state, std::function<void()> job);

  const std::shared_ptr<State> m_State;
};

}  // namespace provider

#endif  // PROVIDER_SYSFS_CALLTHREADS_H_

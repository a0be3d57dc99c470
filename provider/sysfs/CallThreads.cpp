#include "provider/sysfs/CallThreads.h"

#include <chrono>
#include <deque>
#include <system_error>
#include <thread>

#include "provider/base/Mutex.h"
#include "provider/base/SignalsBlocked.h"

namespace provider {

struct CallThreads::State {
  Mutex mutex;
  Condition changed;
  std::deque<std::function<void()>> jobs GUARDED_BY(mutex);  // each for one that waits
  std::size_t waiting GUARDED_BY(mutex) = 0;                 // threads without a job
  bool over GUARDED_BY(mutex) = false;
};

CallThreads::CallThreads() : m_State(std::make_shared<State>()) {}

CallThreads::~CallThreads() {
  const MutexLock lock(m_State->mutex);
  m_State->over = true;
  m_State->changed.NotifyAll();
}

bool CallThreads::Run(std::function<void()> job) {
  {
    const MutexLock lock(m_State->mutex);
    if (m_State->jobs.size() < m_State->waiting) {
      m_State->jobs.push_back(std::move(job));
      m_State->changed.NotifyOne();
      return true;
    }
  }
  try {
    const SignalsBlocked blocked;
    std::thread([state = m_State, first = std::move(job)]() mutable {
      Work(state, std::move(first));
    }).detach();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

void CallThreads::Work(const std::shared_ptr<State>& state, std::function<void()> job) {
  // Calls come one behind the other; a thread that has none for so long is not needed.
  constexpr std::chrono::seconds kPatience{1};
  for (;;) {
    job();
    job = nullptr;
    const MutexLock lock(state->mutex);
    ++state->waiting;
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (state->jobs.empty() && !state->over && state->changed.WaitUntil(state->mutex, end)) {
    }
    --state->waiting;
    if (state->jobs.empty()) return;
    job = std::move(state->jobs.front());
    state->jobs.pop_front();
  }
}

}  // namespace provider

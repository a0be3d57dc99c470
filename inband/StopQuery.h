// Whether whoever asked for a read still wants it.
#ifndef INBAND_STOPQUERY_H_
#define INBAND_STOPQUERY_H_

#include <functional>

#include "thread/zyl_thread_pool.h"

// True once the read is to be given up; empty: never. Asked on the reading thread, between steps and several
// times a second while the read waits for its turn. That is done under a leaf lock: the query takes none.
using StopQuery = std::function<bool()>;

inline bool IsStopped(const StopQuery& stopped) {
  return stopped && stopped();
}

// Whether to go on. Calls that no worker makes are never cut short.
inline bool IsWorkerEnabled(const CZylTpThread* thread) {
  return thread == nullptr || (thread->IsEnabled() != 0 && thread->Terminated() == 0);
}

inline StopQuery StopOf(const CZylTpThread* thread) {
  if (thread == nullptr) return {};
  return [thread] { return !IsWorkerEnabled(thread); };
}

#endif  // INBAND_STOPQUERY_H_

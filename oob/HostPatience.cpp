#include "oob/HostPatience.h"

#include <algorithm>

HostPatience::HostPatience(const CZylTpThread& worker, Milliseconds callLimit)
    : m_Worker(worker), m_CallLimit(callLimit) {}

int HostPatience::IsEnabled() const {
  Look();
  return m_Worker.IsEnabled() != 0 && !IsExhausted() ? 1 : 0;
}

void HostPatience::Look() const {
  const Clock::time_point now = Clock::now();
  const std::chrono::microseconds slept = ZylSlept();
  const Clock::duration paused = slept - m_Slept;
  const Clock::duration call = now - m_Looked - paused;
  m_Looked = now;
  m_Slept = slept;
  m_Wasted += paused;
  m_LongestCall = std::max(m_LongestCall, call);
  if (!IsLimit(call)) {
    m_Unjudged += call;
    return;
  }
  m_Wasted += call;
  ++m_InRow;
}

// The callback contract: when the application is called back, and with which reason.

#include "discovery/HbaDiscover.h"
#include "log/DiscoveryLog.h"

namespace {

constexpr unsigned int kLogCallBack = kLogInBand | kLogOob;

thread_local bool t_InCallBack = false;

class CallBackScope {
 public:
  CallBackScope() : m_Outer(t_InCallBack) { t_InCallBack = true; }
  ~CallBackScope() { t_InCallBack = m_Outer; }
  CallBackScope(const CallBackScope&) = delete;
  CallBackScope& operator=(const CallBackScope&) = delete;

 private:
  const bool m_Outer;
};

struct Reason {
  unsigned int value;  // 0: no callback
  const char* text;    // for the log
};

// A ladder without fall-through: a forced cycle reports as forced or not at all, even when it changed
// something.
Reason ReasonOf(unsigned int mask, bool changed, bool forced, bool intermediate) {
  const unsigned int every = mask & kReasonEveryCycle;
  if (intermediate) {
    return {kReasonIntermediate | kReasonChanged, "Doing intermediate update discovery callback"};
  }
  if (forced) {
    if ((mask & (kReasonForced | kReasonEveryCycle)) == 0) return {0, ""};
    return {kReasonForced | (changed ? kReasonChanged : 0U) | every, "Doing forced discovery callback"};
  }
  if (changed && (mask & (kReasonChanged | kReasonEveryCycle)) != 0) {
    return {kReasonChanged | every, "Doing Update discovery callback"};
  }
  return {every, "Doing discovery callback (no change)"};
}

}  // namespace

bool CHbaDiscover::InCallBack() {
  return t_InCallBack;
}

void CHbaDiscover::RegisterCallBack(DiscoCallBack callback, unsigned int eventMask, void* context) {
  LockGuard guard(m_RegistrationLock);
  m_Registration = {callback, eventMask, context};
}

CHbaDiscover::Registration CHbaDiscover::GetRegistration() const {
  LockGuard guard(m_RegistrationLock);
  return m_Registration;
}

void CHbaDiscover::AllowCallBacks(bool allow) {
  LockGuard guard(m_CallbackLock);
  m_CallBacksAllowed = allow;
}

void CHbaDiscover::DoCallBack(int changed, int forced, int intermediate) {
  LockGuard guard(m_CallbackLock);
  if (!m_CallBacksAllowed) return;
  const Registration registration = GetRegistration();
  if (registration.callback == nullptr || registration.eventMask == 0) return;
  const Reason reason = ReasonOf(registration.eventMask, changed != 0, forced != 0, intermediate != 0);
  if (reason.value == 0) return;
  disco_printf(kLogCallBack, nullptr, "%s", reason.text);
  CallBack(registration, reason.value);
}

void CHbaDiscover::CallBack(const Registration& registration, unsigned int reason) {
  CallBackScope scope;
  try {
    registration.callback(reason, registration.context);
  } catch (...) {
    // A cycle must not end half-way because the application has thrown.
    disco_printf(kLogInBand, nullptr, "Discovery callback has thrown an exception");
  }
}

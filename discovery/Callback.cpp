#include "discovery/Callback.h"

#include "log/DiscoveryLog.h"

namespace {

constexpr unsigned int kLogCallBack = kLogInBand | kLogOob;

thread_local bool t_Inside = false;

class InsideScope {
 public:
  InsideScope() : m_Outer(t_Inside) { t_Inside = true; }
  ~InsideScope() { t_Inside = m_Outer; }
  InsideScope(const InsideScope&) = delete;
  InsideScope& operator=(const InsideScope&) = delete;

 private:
  const bool m_Outer;
};

}  // namespace

Reason ReasonOf(unsigned int mask, const CycleReport& report) {
  const unsigned int every = mask & kReasonEveryCycle;
  if (report.intermediate) {
    return {kReasonIntermediate | kReasonChanged, "Doing intermediate update discovery callback"};
  }
  if (report.forced) {
    if ((mask & (kReasonForced | kReasonEveryCycle)) == 0) return {0, ""};
    return {kReasonForced | (report.changed ? kReasonChanged : 0U) | every, "Doing forced discovery callback"};
  }
  if (report.changed && (mask & (kReasonChanged | kReasonEveryCycle)) != 0) {
    return {kReasonChanged | every, "Doing Update discovery callback"};
  }
  return {every, "Doing discovery callback (no change)"};
}

Reason DirectedReasonOf(unsigned int mask, bool changed) {
  if ((mask & (kReasonDirected | kReasonEveryCycle)) == 0) return {0, ""};
  return {kReasonDirected | (changed ? kReasonChanged : 0U) | (mask & kReasonEveryCycle),
          "Directed Discovery - doing callback"};
}

bool Callback::IsInside() {
  return t_Inside;
}

void Callback::Register(DiscoCallBack function, unsigned int eventMask, void* context) {
  LockGuard guard(m_RegistrationLock);
  m_Registration = {function, eventMask, context};
}

void Callback::Allow(bool allow) {
  LockGuard guard(m_CallbackLock);
  m_Allowed = allow;
}

Callback::Registration Callback::GetRegistration() const {
  if (!m_Allowed) return {};
  LockGuard guard(m_RegistrationLock);
  return m_Registration;
}

void Callback::Report(const CycleReport& report) {
  LockGuard guard(m_CallbackLock);
  const Registration registration = GetRegistration();
  if (registration.function == nullptr || registration.eventMask == 0) return;
  const Reason reason = ReasonOf(registration.eventMask, report);
  if (reason.value == 0) return;
  disco_printf(kLogCallBack, nullptr, "%s", reason.text);
  Call(registration, reason.value);
}

void Callback::ReportDirected(const HBA_NAME& wwpn, bool changed, const std::function<bool()>& wanted) {
  LockGuard guard(m_CallbackLock);
  if (!wanted()) return;
  const Registration registration = GetRegistration();
  if (registration.function == nullptr) return;
  const Reason reason = DirectedReasonOf(registration.eventMask, changed);
  if (reason.value == 0) return;
  disco_printf(kLogCallBack, wwpn.wwn, "%s", reason.text);
  Call(registration, reason.value);
}

void Callback::Call(const Registration& registration, unsigned int reason) {
  InsideScope scope;
  try {
    registration.function(reason, registration.context);
  } catch (...) {
    // A cycle must not end half-way because the application has thrown.
    disco_printf(kLogInBand, nullptr, "Discovery callback has thrown an exception");
  }
}

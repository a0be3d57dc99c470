// The application's callback: its registration, when it is called, and with which reason.
//
// One more reason is a bit of DiscoReason, a step of the ladder in ReasonOf, and whoever reports it.
//
// Thread safety: internally locked. The callback lock is held while the application's function runs, so that
// two threads never call it at once and none does after a stop; the registration's lock is a leaf.
#ifndef DISCOVERY_CALLBACK_H_
#define DISCOVERY_CALLBACK_H_

#include <functional>

#include "rmapi/rmapi.h"
#include "thread/zyl_thread.h"

// Bits of the event mask and of the reason word.
enum DiscoReason : unsigned int {
  kReasonEveryCycle = 0x01,
  kReasonForced = 0x02,
  kReasonChanged = 0x04,
  kReasonDirected = 0x08,
  kReasonIntermediate = 0x10,
};

using DiscoCallBack = void (*)(unsigned int reason, void* context);

// What there is to tell.
struct CycleReport {
  bool changed = false;
  bool forced = false;
  bool intermediate = false;
};

struct Reason {
  unsigned int value;  // 0: no callback
  const char* text;    // for the log
};

// The reason under an event mask that is not 0. A ladder without fall-through: a forced cycle reports as forced
// or not at all, even when it changed something.
Reason ReasonOf(unsigned int mask, const CycleReport& report);
// The same of a directed refresh.
Reason DirectedReasonOf(unsigned int mask, bool changed);

class Callback {
 public:
  // A null function or a mask of 0: the application is not called. Takes effect with the next callback.
  void Register(DiscoCallBack function, unsigned int eventMask, void* context) EXCLUDES(m_RegistrationLock);
  // Waits for a callback under way.
  void Allow(bool allow) EXCLUDES(m_CallbackLock);

  void Report(const CycleReport& report) EXCLUDES(m_CallbackLock);
  // Of the port `wwpn`. Nothing when `wanted`, asked once no other callback runs, says no.
  void ReportDirected(const HBA_NAME& wwpn, bool changed, const std::function<bool()>& wanted)
      EXCLUDES(m_CallbackLock);

  // True on a thread of ours while it runs the application's function.
  static bool IsInside();

 private:
  struct Registration {
    DiscoCallBack function = nullptr;
    unsigned int eventMask = 0;
    void* context = nullptr;
  };

  // Without a function when none is to be called.
  Registration GetRegistration() const REQUIRES(m_CallbackLock) EXCLUDES(m_RegistrationLock);
  void Call(const Registration& registration, unsigned int reason) REQUIRES(m_CallbackLock);

  CZylThreadLock m_CallbackLock;
  bool m_Allowed GUARDED_BY(m_CallbackLock) = false;
  mutable CZylThreadLock m_RegistrationLock;
  Registration m_Registration GUARDED_BY(m_RegistrationLock);
};

#endif  // DISCOVERY_CALLBACK_H_

// Keeps the application's signals away from the provider's own threads.
//
// Thread safety: a scope of the thread that makes another.
#ifndef PROVIDER_BASE_SIGNALSBLOCKED_H_
#define PROVIDER_BASE_SIGNALSBLOCKED_H_

#include <csignal>

namespace provider {

// A thread begins with the mask of the one that makes it.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_Before);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_Before, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t m_Before;
};

}  // namespace provider

#endif  // PROVIDER_BASE_SIGNALSBLOCKED_H_

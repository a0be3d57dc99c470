#include "tools/hbadisc/StopSignal.h"

#include <atomic>
#include <csignal>

namespace hbadisc {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

// What a signal handler may touch.
std::atomic<bool> g_Requested{false};
std::atomic<const Notices*> g_Notices{nullptr};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<const Notices*>::is_always_lock_free);

void NoteSignal(int) {
  g_Requested = true;
  if (const Notices* notices = g_Notices) notices->Post(0);
}

}  // namespace

StopSignal::StopSignal(const Notices& notices) {
  g_Notices = &notices;
  g_Requested = false;
  struct sigaction action {};
  action.sa_handler = NoteSignal;
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // and not SA_RESTART: a write that waits has to end
  for (const int number : kSignals) {
    struct sigaction before {};
    // What the starter of the program wants ignored (nohup) stays ignored.
    if (sigaction(number, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
    sigaction(number, &action, nullptr);
  }
}

StopSignal::~StopSignal() {
  for (const int number : kSignals) {
    struct sigaction now {};
    if (sigaction(number, nullptr, &now) == 0 && now.sa_handler == NoteSignal) std::signal(number, SIG_DFL);
  }
  g_Notices = nullptr;
}

bool StopSignal::Requested() {
  return g_Requested;
}

}  // namespace hbadisc

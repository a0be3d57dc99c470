#include "tools/hbadisc/Discovery.h"

#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <thread>
#include <utility>

#include "include/hbadiscovery.h"
#include "tools/hbadisc/Output.h"

namespace hbadisc {

namespace {

constexpr unsigned int kEveryCallBack =
    HBADISC_EVENT_EVERY_CYCLE | HBADISC_EVENT_FORCED | HBADISC_EVENT_CHANGED | HBADISC_EVENT_DIRECTED;
// A library at rest stops within two seconds; one that waits for a sick adapter may take for ever.
constexpr std::chrono::seconds kStopLimit{5};

void PostNotice(unsigned int reason, void* context) {
  static_cast<const Notices*>(context)->Post(reason);
}

}  // namespace

Discovery::Discovery(unsigned int interval, Scope scope, const Notices& notices) {
  HBADisc_RegisterCallBack(PostNotice, kEveryCallBack, const_cast<Notices*>(&notices));
  const bool localOnly = scope == Scope::LocalHost;
  HBADisc_StartupEx(interval, localOnly ? HBADISC_NO_OOB_DISCOVERY : interval, localOnly ? 1 : 0);
}

Discovery::~Discovery() {
  Stop(kFailed);
}

void Discovery::Stop(int exitCode) {
  if (std::exchange(m_Stopped, true)) return;
  const auto done = std::make_shared<std::promise<void>>();  // shared: that thread may be left behind
  const std::future<void> ended = done->get_future();
  std::thread([done] {
    HBADisc_Terminate();
    done->set_value();
  }).detach();
  if (ended.wait_for(kStopLimit) != std::future_status::ready) std::_Exit(exitCode);
}

}  // namespace hbadisc

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

Discovery::Discovery(Scope scope, const Notices& notices, bool hurried) {
  HBADisc_RegisterCallBack(PostNotice, kEveryCallBack, const_cast<Notices*>(&notices));
  const bool localOnly = scope == Scope::LocalHost;
  // On a thread of its own: a provider may never return from its first call.
  std::packaged_task<void()> start([localOnly, hurried] {
    if (hurried) return HBADisc_StartupForOneLook(localOnly ? 1 : 0);
    HBADisc_StartupEx(0, localOnly ? HBADISC_NO_OOB_DISCOVERY : 0, localOnly ? 1 : 0);
  });
  m_Started = start.get_future().share();
  std::thread(std::move(start)).detach();
}

bool Discovery::HasStarted(std::optional<std::chrono::milliseconds> limit) const {
  if (!limit) m_Started.wait();
  return m_Started.wait_for(limit.value_or(std::chrono::milliseconds(0))) == std::future_status::ready;
}

Discovery::~Discovery() {
  Stop(kFailed);
}

void Discovery::Leave(int exitCode) {
  std::_Exit(exitCode);
}

void Discovery::Stop(int exitCode) {
  if (std::exchange(m_Stopped, true)) return;
  const auto done = std::make_shared<std::promise<void>>();  // shared: that thread may be left behind
  const std::future<void> ended = done->get_future();
  std::thread([done] {
    HBADisc_Terminate();
    done->set_value();
  }).detach();
  if (ended.wait_for(kStopLimit) != std::future_status::ready) Leave(exitCode);
}

}  // namespace hbadisc

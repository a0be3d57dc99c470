#include "inband/HurriedVisit.h"

#include <utility>

namespace {

constexpr unsigned int kPoll = 1000;  // microseconds

}  // namespace

HurriedVisit::HurriedVisit(std::shared_ptr<const PortDiscoveryBlock> block)
    : m_Visitor(std::make_shared<Visitor>()) {
  m_Visitor->block = std::move(block);
  m_Visitor->thread.Enable();
  auto share = std::make_unique<std::shared_ptr<Visitor>>(m_Visitor);
  if (m_Visitor->thread.Create(Run, share.get(), 0, 0) != 0)
    static_cast<void>(share.release());  // the thread's now
}

void* HurriedVisit::Run(void* start) {
  const std::unique_ptr<std::shared_ptr<Visitor>> share(static_cast<std::shared_ptr<Visitor>*>(start));
  VisitPorts((*share)->thread, *(*share)->block);
  return nullptr;
}

void HurriedVisit::Await(const StopQuery& stopped) {
  CZylTpThread& thread = m_Visitor->thread;
  while (!thread.Ended()) {
    if (IsStopped(stopped)) {
      thread.Disable();
      thread.CleanUp();
      return;
    }
    ZylSleep(kPoll);
  }
  thread.Terminate();
}

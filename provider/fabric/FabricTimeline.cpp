#include "provider/fabric/FabricTimeline.h"

#include <algorithm>

namespace provider {

namespace {

void CollectMakersPorts(const FabricModel& model, FabricMoment& moment) {
  std::vector<Wwn>& names = moment.makersPorts;
  for (std::size_t i = 0; i < moment.boards.size(); ++i) {
    if (!moment.boards[i].present) continue;
    names.push_back(model.boards[i].portName);
    for (const FabricVirtualPort& port : *moment.boards[i].virtualPorts) names.push_back(port.portName);
    for (const FabricTarget& target : *moment.boards[i].targets) {
      if (target.makersPort) names.push_back(target.portName);
    }
  }
  std::sort(names.begin(), names.end());
}

FabricTimeline::Snapshot FirstMoment(const FabricModel& model) {
  auto moment = std::make_shared<FabricMoment>();
  moment->boards.reserve(model.boards.size());
  for (const FabricBoard& board : model.boards) moment->boards.push_back(board.initial);
  CollectMakersPorts(model, *moment);
  return moment;
}

}  // namespace

FabricTimeline::FabricTimeline(const FabricModel& model)
    : m_Model(model), m_Start(std::chrono::steady_clock::now()), m_Current(FirstMoment(model)) {}

FabricTimeline::Snapshot FabricTimeline::Now() {
  const auto elapsed = std::chrono::steady_clock::now() - m_Start;
  const MutexLock held(m_Mutex);
  const auto isDue = [&](std::size_t event) {
    return event < m_Model.events.size() && m_Model.events[event].after <= elapsed;
  };
  if (!isDue(m_Applied)) return m_Current;
  auto moment = std::make_shared<FabricMoment>(FabricMoment{m_Current->boards, {}});
  std::size_t applied = m_Applied;
  for (; isDue(applied); ++applied) {
    const FabricEvent& event = m_Model.events[applied];
    moment->boards[event.board] = Applied(moment->boards[event.board], event);
  }
  CollectMakersPorts(m_Model, *moment);
  m_Applied = applied;
  m_Current = std::move(moment);
  return m_Current;
}

}  // namespace provider

#include "model/Answers.h"

#include <algorithm>
#include <chrono>

#include "model/HbaEntry.h"
#include "model/WwpnKey.h"

std::int64_t NowMilliseconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

HostKey HostKeyOf(const _RM_IP_INFO& host) {
  HostKey key{};
  const bool isIPv6 = (host.flags & RM_IP_FLAG_IPV6) != 0;
  std::copy_n(host.address, isIPv6 ? 16 : 4, key.begin());
  key.back() = isIPv6 ? 1 : 0;
  return key;
}

void Answers::Clear() {
  const auto all = [](const auto&, const AnswerRecord&) { return true; };
  boards.Forget(all);
  ports.Forget(all);
  hosts.Forget(all);
  LockGuard guard(m_Lock);
  m_Boards.clear();
}

void Answers::SetBoards(const unsigned int* numbers, unsigned int count) noexcept try {
  const std::set<unsigned int> found(numbers, numbers + count);
  boards.Forget([&](unsigned int number, const AnswerRecord&) {
    return number != kBoardCount && !found.contains(number);
  });
  LockGuard guard(m_Lock);
  m_Boards = found;
} catch (const std::bad_alloc&) {
  // Boards that are gone stay known until the next count.
}

std::set<unsigned int> Answers::GetBoards() const {
  LockGuard guard(m_Lock);
  return m_Boards;
}

void Answers::SetHosts(const std::set<HostKey>& hostsOfFile) {
  hosts.Forget([&](const HostKey& host, const AnswerRecord&) { return !hostsOfFile.contains(host); });
  ports.Forget([&](std::uint64_t, const AnswerRecord& port) {
    return port.host != HostKey{} && !hostsOfFile.contains(port.host);
  });
}

AnswerView::AnswerView(const Answers& answers)
    : m_Boards(answers.boards.All()), m_Ports(answers.ports.All()), m_Hosts(answers.hosts.All()) {
  for (const auto& [number, record] : m_Boards) {
    if (number != kBoardCount && IsUnanswered(record)) m_UnansweredBoards[WwpnKey(record.port.wwn)] = record;
  }
}

std::optional<AnswerRecord> AnswerView::OwnAnswer(std::uint64_t port) const {
  const auto asked = m_Ports.find(port);
  if (asked == m_Ports.end() || !IsUnanswered(asked->second)) return std::nullopt;
  return asked->second;
}

std::optional<AnswerRecord> AnswerView::WhyUnseen(const CHbaEntry& port) const {
  const std::uint64_t name = WwpnKey(port.GetHbaInfo()->portWwn);
  if (port.IsLocalPort() != 0) {
    if (const auto count = m_Boards.find(kBoardCount); count != m_Boards.end() && IsUnanswered(count->second)) {
      return count->second;
    }
    const auto board = m_UnansweredBoards.find(name);
    return board != m_UnansweredBoards.end() ? board->second : OwnAnswer(name);
  }
  if (port.GetProxyIpInfo() == nullptr) return std::nullopt;
  const auto host = m_Hosts.find(HostKeyOf(*port.GetProxyIpInfo()));
  if (host == m_Hosts.end()) return std::nullopt;
  return IsUnanswered(host->second) ? host->second : OwnAnswer(name);
}

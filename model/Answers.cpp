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
  const auto all = [](const auto&) { return true; };
  boards.Forget(all);
  ports.Forget(all);
  hosts.Forget(all);
  LockGuard guard(m_Lock);
  m_Boards.clear();
}

void Answers::SetBoards(const unsigned int* numbers, unsigned int count) noexcept try {
  const std::set<unsigned int> found(numbers, numbers + count);
  boards.Forget([&](unsigned int number) { return number != kBoardCount && !found.contains(number); });
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
  hosts.Forget([&](const HostKey& host) { return !hostsOfFile.contains(host); });
  ports.Forget(
      [&](const PortKey& port) { return port.first != HostKey{} && !hostsOfFile.contains(port.first); });
}

void Answers::SetPorts(const HostKey& host, const std::set<std::uint64_t>& names) {
  ports.Forget({host, 0}, {host, UINT64_MAX},
               [&](const PortKey& port) { return !names.contains(port.second); });
}

AnswerView::AnswerView(const Answers& answers)
    : m_Boards(answers.boards.All()), m_Ports(answers.ports.All()), m_Hosts(answers.hosts.All()) {
  for (const auto& [number, record] : m_Boards) {
    if (number == kBoardCount) continue;
    const std::uint64_t name = WwpnKey(record.port.wwn);
    if (IsUnanswered(record)) m_UnansweredBoards[name] = record;
    if (record.answered && record.status == RM_STATUS_NOT_FOUND) continue;
    m_Names.insert(name);
  }
  const auto count = m_Boards.find(kBoardCount);
  m_AllNamed = count != m_Boards.end() && !IsUnanswered(count->second) && !m_Names.contains(0);
  // In the middle of a count's boards the others have not told theirs yet.
  for (const unsigned int number : answers.GetBoards()) m_AllNamed = m_AllNamed && m_Boards.contains(number);
}

std::optional<AnswerRecord> AnswerView::OwnAnswer(const PortKey& port) const {
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
    return board != m_UnansweredBoards.end() ? board->second : OwnAnswer({HostKey{}, name});
  }
  if (port.GetProxyIpInfo() == nullptr) return std::nullopt;
  const HostKey key = HostKeyOf(*port.GetProxyIpInfo());
  const auto host = m_Hosts.find(key);
  if (host == m_Hosts.end()) return std::nullopt;
  return IsUnanswered(host->second) ? host->second : OwnAnswer({key, name});
}

bool AnswerView::IsGone(const CHbaEntry& port) const {
  return port.IsLocalPort() != 0 && m_AllNamed && !m_Names.contains(WwpnKey(port.GetHbaInfo()->portWwn));
}

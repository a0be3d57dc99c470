// What discovery has asked, and what was answered: the boards of this host, ports, and remote hosts. This is
// what a list of ports cannot say: that something is missing there only because it could not be read.
//
// Thread safety: Answers is internally locked; a view is an immutable copy.
// Ownership: Answers is shared with workers, which may outlive a stop.
#ifndef MODEL_ANSWERS_H_
#define MODEL_ANSWERS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "model/AnswerBook.h"

class CHbaEntry;

// In place of a board's number: how many there are.
inline constexpr unsigned int kBoardCount = 0xFFFFFFFF;

// A port, by WwpnKey, and the host that it is asked through.
using PortKey = std::pair<HostKey, std::uint64_t>;

// Statuses of hosts that have answered, beside the provider's.
enum HostAnswer : int { kHostIsThis = -101, kHostHasNoPorts = -102 };

class Answers {
 public:
  AnswerBook<unsigned int> boards;
  AnswerBook<PortKey> ports;  // what a worker has asked a port itself
  AnswerBook<HostKey> hosts;

  // At a start of discovery: nothing was asked yet.
  void Clear() EXCLUDES(m_Lock);

  // The boards that a count has found: others are gone.
  void SetBoards(const unsigned int* numbers, unsigned int count) noexcept EXCLUDES(m_Lock);
  std::set<unsigned int> GetBoards() const EXCLUDES(m_Lock);

  // The hosts of the file: others, and their ports, are forgotten.
  void SetHosts(const std::set<HostKey>& hostsOfFile);
  // The ports of a host, by WwpnKey: others are gone.
  void SetPorts(const HostKey& host, const std::set<std::uint64_t>& names);

 private:
  mutable CZylThreadLock m_Lock;
  std::set<unsigned int> m_Boards GUARDED_BY(m_Lock);
};

// The answers of a moment.
class AnswerView {
 public:
  explicit AnswerView(const Answers& answers);

  // What stands in the way of seeing a port: the count of boards, its board, its host or its own answer. Empty
  // when nothing does: when it is not seen, it is not there.
  std::optional<AnswerRecord> WhyUnseen(const CHbaEntry& port) const;
  // Of a port of this host: whether every board has told its name, and none this one's.
  bool IsGone(const CHbaEntry& port) const;

  const std::map<unsigned int, AnswerRecord>& Boards() const { return m_Boards; }
  const std::map<PortKey, AnswerRecord>& Ports() const { return m_Ports; }
  const std::map<HostKey, AnswerRecord>& Hosts() const { return m_Hosts; }
  bool IsUnanswered(const AnswerRecord& record) const { return record.Fails() || record.Hangs(m_Now); }

 private:
  std::optional<AnswerRecord> OwnAnswer(const PortKey& port) const;

  const std::int64_t m_Now = NowMilliseconds();
  const std::map<unsigned int, AnswerRecord> m_Boards;
  const std::map<PortKey, AnswerRecord> m_Ports;
  const std::map<HostKey, AnswerRecord> m_Hosts;
  std::map<std::uint64_t, AnswerRecord> m_UnansweredBoards;  // by the name of their port
  std::set<std::uint64_t> m_Names;                           // of the ports of the boards that are there
  bool m_AllNamed = false;                                   // no board is without a name in it
};

#endif  // MODEL_ANSWERS_H_

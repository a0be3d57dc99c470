#include "discovery/Unanswered.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "discovery/PortRecords.h"
#include "model/WwpnKey.h"
#include "oob/HostEntry.h"
#include "oob/HostList.h"

namespace {

constexpr unsigned int kNoInstance = 0xFFFFFFFF;

void FillHostText(const HostKey& host, char (&text)[48]) {
  if (host == HostKey{}) return;
  inet_ntop(host.back() != 0 ? AF_INET6 : AF_INET, host.data(), text, sizeof text);
}

HBA_NAME NameOf(std::uint64_t key) {
  HBA_NAME name{};
  for (int i = 7; i >= 0; --i, key >>= 8) name.wwn[i] = static_cast<std::uint8_t>(key & 0xFF);
  return name;
}

hbadisc_unanswered RecordOf(unsigned int what, unsigned int instance, const HBA_NAME& port,
                            const AnswerRecord& asked, const HostKey& host = {}) {
  hbadisc_unanswered record{};
  record.what = what;
  record.instance = instance;
  record.port = port;
  record.status = StatusOf(asked);
  record.tries = asked.tries;
  record.since = asked.since != 0 ? asked.since : asked.asking;
  record.last = std::max(asked.last, asked.asking);
  record.lastGood = asked.good;
  FillHostText(host, record.host);
  return record;
}

void AddBoards(const Answers& answers, const AnswerView& view, std::vector<hbadisc_unanswered>* records) {
  const auto& asked = view.Boards();
  bool hangs = false;
  if (const auto count = asked.find(kBoardCount); count != asked.end() && view.IsUnanswered(count->second)) {
    records->push_back(RecordOf(HBADISC_UNANSWERED_BOARDS, kNoInstance, {}, count->second));
  }
  for (const auto& [number, record] : asked) {
    if (number == kBoardCount || !view.IsUnanswered(record)) continue;
    hangs |= !record.Fails();
    records->push_back(RecordOf(HBADISC_UNANSWERED_BOARD, number, record.port, record));
  }
  if (!hangs) return;
  // Those behind one that does not return have not had their turn.
  for (const unsigned int number : answers.GetBoards()) {
    if (asked.contains(number)) continue;
    hbadisc_unanswered record = RecordOf(HBADISC_UNANSWERED_BOARD, number, {}, {});
    record.status = HBADISC_STATUS_NOT_ASKED;
    records->push_back(record);
  }
  std::sort(records->begin(), records->end(), [](const auto& one, const auto& other) {
    return std::pair(one.what, one.instance) < std::pair(other.what, other.instance);
  });
}

// By name; a name that two hosts tell is listed for each.
std::map<std::pair<std::uint64_t, HostKey>, AnswerRecord> UnansweredPorts(const AnswerView& view,
                                                                          CHbaList* kept) {
  std::map<std::pair<std::uint64_t, HostKey>, AnswerRecord> ports;
  for (const auto& [key, record] : view.Ports()) {
    if (view.IsUnanswered(record)) ports.emplace(std::pair(key.second, key.first), record);
  }
  if (kept == nullptr) return ports;
  CHbaList& list = *kept;
  HbaListGuard guard(list);
  list.ForEach([&ports](const CHbaEntry& entry) {
    if (!entry.GetUnanswered()) return;
    const bool isRemote = entry.IsLocalPort() == 0 && entry.GetProxyIpInfo() != nullptr;
    const HostKey host = isRemote ? HostKeyOf(*entry.GetProxyIpInfo()) : HostKey{};
    ports.insert_or_assign({WwpnKey(entry.GetHbaInfo()->portWwn), host}, *entry.GetUnanswered());
  });
  return ports;
}

unsigned int StateOf(const AnswerRecord& asked) {
  if (asked.last == 0) return HBADISC_HOST_ASKED;
  if (asked.answered) {
    if (asked.status == kHostIsThis) return HBADISC_HOST_IS_THIS;
    return asked.status == kHostHasNoPorts ? HBADISC_HOST_NO_PORTS : HBADISC_HOST_ANSWERED;
  }
  if (asked.waited) return HBADISC_HOST_TIMED_OUT;
  return asked.status == RM_STATUS_BUSY ? HBADISC_HOST_BUSY : HBADISC_HOST_REFUSED;
}

// The address of a host as it stands in its line; false when it is none. Only numbers are looked at, as
// discovery does.
bool AddressOf(const char* host, unsigned short port, _RM_IP_INFO* address) {
  // The reader of lines takes none that is shorter than it has always been.
  std::string line = std::string(host) + " #      \n";
  if (ParseHostEntry(line.data(), &port) == 0 || IsBadAddress(line.c_str())) return false;
  return RM_RemoteOOBHostAddrV2(line.c_str(), port, address) == RM_STATUS_OK;
}

std::map<HostKey, unsigned int> CountPorts(CHbaList* ports) {
  std::map<HostKey, unsigned int> counts;
  if (ports == nullptr) return counts;
  CHbaList& list = *ports;
  HbaListGuard guard(list);
  list.ForEach([&counts](const CHbaEntry& entry) {
    if (entry.IsLocalPort() == 0 && entry.GetProxyIpInfo() != nullptr)
      ++counts[HostKeyOf(*entry.GetProxyIpInfo())];
  });
  return counts;
}

}  // namespace

std::vector<hbadisc_unanswered> ListUnanswered(const Answers& answers, CHbaList* kept) {
  const AnswerView view(answers);
  std::vector<hbadisc_unanswered> records;
  AddBoards(answers, view, &records);
  for (const auto& [key, record] : UnansweredPorts(view, kept)) {
    records.push_back(RecordOf(HBADISC_UNANSWERED_PORT, kNoInstance, NameOf(key.first), record, key.second));
  }
  return records;
}

std::vector<hbadisc_host_state> ListHostStates(const Answers& answers, CHbaList* ports, unsigned short port) {
  const AnswerView view(answers);
  const std::map<HostKey, unsigned int> counts = CountPorts(ports);
  std::vector<hbadisc_host_state> states;
  for (const OobHostRecord& host : ReadHostList()) {
    hbadisc_host_state& state = states.emplace_back();
    std::memcpy(state.host, host.host, sizeof state.host);
    std::memcpy(state.name, host.name, sizeof state.name);
    _RM_IP_INFO address{};
    if (!AddressOf(host.host, port, &address)) {
      state.state = HBADISC_HOST_NOT_A_HOST;
      continue;
    }
    const HostKey key = HostKeyOf(address);
    if (const auto count = counts.find(key); count != counts.end()) state.ports = count->second;
    const auto asked = view.Hosts().find(key);
    if (asked == view.Hosts().end()) continue;
    state.state = StateOf(asked->second);
    state.status = asked->second.status < 0 ? RM_STATUS_OK : asked->second.status;
    state.tries = asked->second.tries;
    state.asked = std::max(asked->second.last, asked->second.asking);
    state.answered = asked->second.good;
    state.since = asked->second.since;
  }
  return states;
}

#include "tools/hbadisc/Unanswered.h"

#include <cstring>

#include "include/hbadiscovery.h"

namespace hbadisc {

namespace {

// What the library calls a host of which no name is known.
constexpr std::string_view kUnknownName = "*UNKNOWN HOST NAME*";

template <std::size_t kSize>
std::string FieldText(const char (&field)[kSize]) {
  return {field, strnlen(field, kSize)};
}

std::optional<Moment> Known(std::int64_t moment) {
  return moment == 0 ? std::nullopt : std::optional(moment);
}

// A list that grows while it is read is asked for again, but not for ever.
template <class Record, class Call>
std::vector<Record> ReadList(Call call) {
  constexpr int kAttempts = 4;
  std::vector<Record> records;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    auto count = static_cast<unsigned int>(records.size());
    const int missing = call(records.data(), &count);
    if (missing <= 0) {
      records.resize(count);
      break;
    }
    records.resize(records.size() + static_cast<std::size_t>(missing));
  }
  return records;
}

const char* WhatText(std::uint32_t what) {
  switch (what) {
    case HBADISC_UNANSWERED_BOARDS:
      return "boards";
    case HBADISC_UNANSWERED_BOARD:
      return "board";
    default:
      return "port";
  }
}

Unanswered ToUnanswered(const hbadisc_unanswered& record) {
  constexpr std::uint32_t kNoBoard = 0xFFFFFFFF;
  Unanswered unanswered;
  unanswered.what = WhatText(record.what);
  if (record.instance != kNoBoard) unanswered.board = record.instance;
  unanswered.port = KnownWwn(record.port.wwn);
  unanswered.host = FieldText(record.host);
  unanswered.status = record.status;
  unanswered.reason = HBADisc_GetStatusText(record.status);
  unanswered.tries = record.tries;
  unanswered.since = Known(record.since);
  unanswered.lastAnswer = Known(record.lastGood);
  return unanswered;
}

RemoteHost ToRemoteHost(const hbadisc_host_state& record) {
  RemoteHost host;
  host.host = FieldText(record.host);
  if (const std::string name = FieldText(record.name); name != kUnknownName) host.name = name;
  host.state = record.state;
  host.stateText = HBADisc_GetHostStateText(record.state);
  host.ports = record.ports;
  host.asked = Known(record.asked);
  host.answered = Known(record.answered);
  return host;
}

}  // namespace

std::vector<Unanswered> ReadUnanswered(Scope scope) {
  std::vector<Unanswered> found;
  for (const auto& record : ReadList<hbadisc_unanswered>(HBADisc_GetUnanswered)) {
    Unanswered unanswered = ToUnanswered(record);
    if (scope == Scope::LocalHost && !unanswered.host.empty()) continue;
    if (scope == Scope::RemoteHosts && unanswered.host.empty()) continue;
    found.push_back(std::move(unanswered));
  }
  return found;
}

std::vector<RemoteHost> ReadHosts() {
  std::vector<RemoteHost> hosts;
  for (const auto& record : ReadList<hbadisc_host_state>(HBADisc_GetHostStates)) {
    hosts.push_back(ToRemoteHost(record));
  }
  return hosts;
}

bool HasHosts() {
  hbadisc_oob_host_list list{};
  HBADisc_GetOOBHostList(&list);
  return list.count != 0;
}

bool IsSilent(const RemoteHost& host) {
  switch (host.state) {
    case HBADISC_HOST_ASKED:
    case HBADISC_HOST_REFUSED:
    case HBADISC_HOST_TIMED_OUT:
    case HBADISC_HOST_BUSY:
    case HBADISC_HOST_NOT_A_HOST:
      return true;
    default:
      return false;
  }
}

bool WasAsked(const RemoteHost& host) {
  return host.state != HBADISC_HOST_NOT_ASKED && host.state != HBADISC_HOST_ASKED;
}

std::string Sentence(const Unanswered& unanswered) {
  std::string subject;
  if (unanswered.what == "boards") {
    return "the boards of this host cannot be counted: " + unanswered.reason;
  }
  if (unanswered.board) {
    subject = "board " + std::to_string(*unanswered.board) + " of this host";
    if (unanswered.port) subject += " (port " + ColonText(*unanswered.port) + ')';
  } else {
    subject = "port " + (unanswered.port ? ColonText(*unanswered.port) : "-");
  }
  if (!unanswered.host.empty()) subject += " of " + unanswered.host;
  return subject + " does not answer: " + unanswered.reason;
}

std::string Sentence(const RemoteHost& host) {
  std::string subject = "remote host " + host.host;
  if (host.name && !host.name->empty()) subject += " (" + *host.name + ')';
  return subject + " does not answer: " + host.stateText;
}

}  // namespace hbadisc

// What could not be asked: boards, ports, remote hosts.
//
// Thread safety: plain values; reading is for one thread at a time. Ownership: every structure owns what it
// holds.
#ifndef TOOLS_HBADISC_UNANSWERED_H_
#define TOOLS_HBADISC_UNANSWERED_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/hbadisc/Port.h"
#include "tools/hbadisc/Time.h"

namespace hbadisc {

struct Unanswered {
  std::string what;  // "boards", "board" or "port"
  std::optional<std::uint32_t> board;
  std::optional<Wwn> port;
  std::string host;  // empty: this host
  int status = 0;
  std::string reason;  // in words
  std::uint32_t tries = 0;
  std::optional<Moment> since;
  std::optional<Moment> lastAnswer;
};

struct RemoteHost {
  std::string host;
  std::optional<std::string> name;
  std::uint32_t state = 0;  // HBADISC_HOST_
  std::string stateText;
  std::uint32_t ports = 0;
  std::optional<Moment> asked;
  std::optional<Moment> answered;
};

// Of the scope alone.
std::vector<Unanswered> ReadUnanswered(Scope scope);
// All of the hosts file, in its order.
std::vector<RemoteHost> ReadHosts();
// Whether the hosts file names any.
bool HasHosts();

// It was asked, and did not answer.
bool IsSilent(const RemoteHost& host);
// It has been asked, with whatever result.
bool WasAsked(const RemoteHost& host);

// "board 3 of this host does not answer: in use"; for people.
std::string Sentence(const Unanswered& unanswered);
std::string Sentence(const RemoteHost& host);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_UNANSWERED_H_

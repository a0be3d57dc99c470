#include "oob/HostEntry.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

// Both count the newline.
constexpr std::size_t kShortestHostLine = 6;
constexpr std::size_t kShortestListedLine = 7;
constexpr long kLowestPort = 1025;
constexpr long kHighestPort = 65534;
constexpr char kUnknownName[] = "*UNKNOWN HOST NAME*";
constexpr char kListedHostCharacters[] = "0123456789.:[]abcdefABCDEF";

std::string_view WithoutNewline(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  return line;
}

std::string_view UpToBlank(std::string_view text) {
  return text.substr(0, text.find_first_of(kBlanks));
}

void TakePort(std::string_view number, unsigned short* port) {
  const long value = std::strtol(std::string(number).c_str(), nullptr, 0);
  if (value >= kLowestPort && value <= kHighestPort) *port = static_cast<unsigned short>(value);
}

// The host of a trimmed line that is no comment; empty when there is none.
std::string_view HostOf(std::string_view text, unsigned short* port) {
  if (text.starts_with('[')) {
    const BracketedHost bracketed = SplitBrackets(text);
    const std::string_view rest = SkipBlanks(bracketed.rest);
    if (!bracketed.host.empty() && rest.starts_with(':')) TakePort(rest.substr(1), port);
    return bracketed.host;
  }
  if (HasTwoColons(text)) {
    const std::size_t second = text.find(':', text.find(':') + 1);
    return text.substr(0, text.find_first_of(kBlanks, second));
  }
  Pieces pieces(text, ":");
  const std::string_view host = UpToBlank(pieces.Next());
  // A name is not taken, only a number; the port counts either way.
  if (const std::string_view number = pieces.Next(); !number.empty()) TakePort(number, port);
  return !host.empty() && host[0] >= '0' && host[0] <= '9' ? host : std::string_view();
}

}  // namespace

std::string_view SkipBlanks(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(kBlanks), text.size()));
}

bool IsBadAddress(std::string_view host) {
  if (host.find_first_not_of("0123456789.") != std::string_view::npos) return false;
  int numbers = 0;
  for (bool last = false; !last; ++numbers) {
    const std::size_t end = host.find('.');
    last = end == std::string_view::npos;
    const std::string number(host.substr(0, end));
    if (number.empty() || number.size() > 3 || std::stoi(number) > 255) return true;
    if (!last) host.remove_prefix(end + 1);
  }
  return numbers != 4;
}

bool HasTwoColons(std::string_view text) {
  return std::count(text.begin(), text.end(), ':') >= 2;
}

BracketedHost SplitBrackets(std::string_view text) {
  const std::size_t end = text.find(']');
  if (end == std::string_view::npos) return {};
  return {text.substr(1, end - 1), text.substr(end + 1)};
}

std::string_view Pieces::Next() {
  const std::size_t begin = std::min(m_Rest.find_first_not_of(m_Separators), m_Rest.size());
  const std::size_t end = std::min(m_Rest.find_first_of(m_Separators, begin), m_Rest.size());
  const std::string_view piece = m_Rest.substr(begin, end - begin);
  m_Rest.remove_prefix(std::min(end + 1, m_Rest.size()));
  return piece;
}

int ParseHostEntry(char* line, unsigned short* port) {
  if (line == nullptr || port == nullptr) return 0;
  std::string_view text(line);
  if (text.size() < kShortestHostLine) return 0;
  text = SkipBlanks(WithoutNewline(text));
  if (text.starts_with('#')) return 0;
  const std::string_view host = HostOf(text, port);
  if (host.empty()) return 0;
  std::memmove(line, host.data(), host.size());
  line[host.size()] = '\0';
  return 1;
}

int ParseHostEntry(char* line, char** host, const char** name) {
  if (line == nullptr || host == nullptr || name == nullptr) return 0;
  *name = kUnknownName;
  std::string_view text(line);
  if (text.size() < kShortestListedLine) return 0;
  text = WithoutNewline(text);
  if (text.size() < kShortestListedLine) return 0;
  line[text.size()] = '\0';

  char* at = line + std::strspn(line, kBlanks);
  const std::size_t length = std::strcspn(at, " \t#");
  if (length == 0 || std::strspn(at, kListedHostCharacters) < length) return 0;
  *host = at;
  at += length;
  if (*at == '\0') return 1;
  *at++ = '\0';

  char* comment = std::strchr(at, '#');
  if (comment == nullptr) return 1;
  ++comment;
  comment += std::strspn(comment, kBlanks);
  if (*comment == '\0') return 1;
  *name = comment;
  comment[std::strcspn(comment, kBlanks)] = '\0';
  return 1;
}

int FmtIpAddress(const _RM_IP_INFO* address, char* text) {
  return RM_IPtoStrA(address, text);
}

#include "agent/RequestHeaders.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "provider/host/NetAddress.h"

namespace agent {

using provider::NetAddress;

namespace {

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return Lower(c); });
  return lower;
}

bool IsControl(char c) {
  constexpr char kDelete = 0x7F;
  return (c >= 0 && c < ' ' && c != '\t') || c == kDelete;
}

bool IsName(std::string_view name) {
  constexpr std::string_view kSeparators = " \t\"(),/:;<=>?@[\\]{}";
  return !name.empty() && name.find_first_of(kSeparators) == std::string_view::npos;
}

bool IsPort(std::string_view text) {
  constexpr std::size_t kLongestPort = 5;
  return !text.empty() && text.size() <= kLongestPort &&
         text.find_first_not_of("0123456789") == std::string_view::npos;
}

// While the headers are gone through.
struct Seen {
  RequestHeaders headers;
  bool host = false;
  bool length = false;
};

void TakeHost(Seen& seen, std::string_view host) {
  if (std::exchange(seen.host, true)) seen.headers.areSound = false;
  seen.headers.areByAddress = IsByAddress(host);
}

void TakeLength(Seen& seen, std::string_view length) {
  if (std::exchange(seen.length, true)) seen.headers.areSound = false;
  if (length != "0") seen.headers.haveBody = true;
}

MHD_Result TakeHeader(void* into, MHD_ValueKind /*kind*/, const char* key, const char* value) noexcept {
  Seen& seen = *static_cast<Seen*>(into);
  try {
    const std::string name = Lower(key);
    const std::string_view text = value == nullptr ? "" : value;
    if (!IsName(name) || std::any_of(text.begin(), text.end(), &IsControl)) seen.headers.areSound = false;
    if (name == "host") TakeHost(seen, text);
    // A value on a line of its own is taken for a part of the name.
    if (name.starts_with("content-length")) TakeLength(seen, name == "content-length" ? text : name);
    if (name.starts_with("transfer-encoding")) seen.headers.haveBody = true;
  } catch (...) {
    seen.headers.areSound = false;  // out of memory
  }
  return MHD_YES;
}

}  // namespace

bool IsByAddress(std::string_view host) {
  const bool isBracketed = host.starts_with('[');
  const std::size_t bracket = host.find(']');
  if (isBracketed && bracket == std::string_view::npos) return false;
  const std::size_t end = std::min(isBracketed ? bracket + 1 : host.find(':'), host.size());
  const std::string_view port = host.substr(end);
  if (!port.empty() && (port.front() != ':' || !IsPort(port.substr(1)))) return false;
  const std::string name = Lower(isBracketed ? host.substr(1, bracket - 1) : host.substr(0, end));
  const std::optional<NetAddress> address = NetAddress::Parse(name);
  return address.has_value() ? address->isIpv6 == isBracketed : name == "localhost" && !isBracketed;
}

RequestHeaders ReadHeaders(MHD_Connection* connection) {
  Seen seen;
  MHD_get_connection_values(connection, MHD_HEADER_KIND, &TakeHeader, &seen);
  return seen.headers;
}

}  // namespace agent

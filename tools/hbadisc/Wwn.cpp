#include "tools/hbadisc/Wwn.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace hbadisc {

namespace {

constexpr std::size_t kDigits = 16;
constexpr std::size_t kSeparatedLength = kDigits + 7;

// The 16 digits of a text of 8 two-digit bytes with one and the same separator between them; empty otherwise.
std::string WithoutSeparators(std::string_view text) {
  const char separator = text[2];
  if (separator != ':' && separator != '-') return {};
  std::string digits;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i % 3 != 2) {
      digits += text[i];
    } else if (text[i] != separator) {
      return {};
    }
  }
  return digits;
}

std::string Digits(const Wwn& wwn, std::string_view separator) {
  constexpr char kHex[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : wwn.bytes) {
    if (!text.empty()) text += separator;
    text += kHex[byte >> 4];
    text += kHex[byte & 0xF];
  }
  return text;
}

}  // namespace

std::optional<Wwn> ParseWwn(std::string_view text) {
  std::string digits;
  if (text.size() == kSeparatedLength) {
    digits = WithoutSeparators(text);
  } else {
    if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
    digits = text;
  }
  if (digits.size() != kDigits) return std::nullopt;

  std::uint64_t value = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value, 16);
  if (error != std::errc{} || stop != end) return std::nullopt;
  Wwn wwn;
  for (auto byte = wwn.bytes.rbegin(); byte != wwn.bytes.rend(); ++byte, value >>= 8) {
    *byte = static_cast<std::uint8_t>(value & 0xFF);
  }
  return wwn;
}

std::string HexText(const Wwn& wwn) {
  return "0x" + Digits(wwn, "");
}

std::string ColonText(const Wwn& wwn) {
  return Digits(wwn, ":");
}

std::optional<Wwn> KnownWwn(const std::uint8_t (&bytes)[8]) {
  const Wwn wwn = ToWwn(bytes);
  if (wwn == Wwn{}) return std::nullopt;
  return wwn;
}

Wwn ToWwn(const std::uint8_t (&bytes)[8]) {
  Wwn wwn;
  std::copy(std::begin(bytes), std::end(bytes), wwn.bytes.begin());
  return wwn;
}

}  // namespace hbadisc

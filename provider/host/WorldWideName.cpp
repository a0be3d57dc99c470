#include "provider/host/WorldWideName.h"

#include <algorithm>
#include <charconv>

namespace provider {

namespace {

constexpr std::size_t kDigits = 16;
constexpr std::size_t kColonText = 23;

// The digits without their separators, empty when the separators are not where they belong.
std::string Digits(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  std::string digits;
  if (text.size() == kDigits) digits = text;
  if (text.size() == kColonText) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      const bool separator = i % 3 == 2;
      if (separator != (text[i] == ':')) return {};
      if (!separator) digits += text[i];
    }
  }
  return digits;
}

}  // namespace

Wwn WwnFromBytes(const unsigned char* bytes) {
  Wwn name;
  std::copy_n(bytes, name.size(), name.begin());
  return name;
}

std::uint64_t WwnToNumber(const Wwn& name) {
  std::uint64_t number = 0;
  for (const std::uint8_t byte : name) number = number << 8 | byte;
  return number;
}

Wwn WwnFromNumber(std::uint64_t number) {
  Wwn name;
  for (std::size_t i = name.size(); i-- > 0; number >>= 8) name[i] = static_cast<std::uint8_t>(number & 0xFF);
  return name;
}

std::optional<Wwn> ParseWwn(std::string_view text) {
  const std::string digits = Digits(text);
  std::uint64_t number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, number, 16);
  if (digits.empty() || error != std::errc() || stop != end) return std::nullopt;
  return WwnFromNumber(number);
}

std::string FormatWwn(const Wwn& name) {
  constexpr char kHex[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : name) {
    if (!text.empty()) text += ':';
    text += kHex[byte >> 4];
    text += kHex[byte & 0xF];
  }
  return text;
}

}  // namespace provider

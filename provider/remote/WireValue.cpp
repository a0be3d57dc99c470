#include "provider/remote/WireValue.h"

#include "provider/host/WorldWideName.h"
#include "provider/remote/WireQuery.h"

namespace provider {

namespace {

constexpr const char* kHexKey = "hex";

bool IsUtf8(std::string_view text) {
  if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
    return true;
  }
  try {
    [[maybe_unused]] const std::string written = WireJson(text).dump();
    return true;
  } catch (const WireJson::type_error&) {
    return false;
  }
}

std::string ToHex(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string hex;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 0xF];
  }
  return hex;
}

unsigned DigitOf(char c) {
  constexpr unsigned kTen = 10;
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a') + kTen;
  throw WireError("expected hexadecimal digits");
}

std::string FromHex(const std::string& hex) {
  if (hex.size() % 2 != 0) throw WireError("expected an even number of digits");
  std::string bytes;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    bytes += static_cast<char>(DigitOf(hex[i]) << 4 | DigitOf(hex[i + 1]));
  }
  return bytes;
}

const std::string& StringOf(const WireJson& json) {
  const auto* text = json.get_ptr<const std::string*>();
  if (text == nullptr) throw WireError("expected a text");
  return *text;
}

}  // namespace

WireJson EncodeText(std::string_view text) {
  if (IsUtf8(text)) return text;
  WireJson bytes = WireJson::object();
  bytes[kHexKey] = ToHex(text);
  return bytes;
}

WireJson EncodeName(const Wwn& name) {
  return WireName(name);
}

std::string DecodeText(const WireJson& json, std::size_t most) {
  std::string text = json.is_object() ? FromHex(StringOf(Member(json, kHexKey))) : StringOf(json);
  if (text.size() > most) throw WireError("expected a shorter text");
  return text;
}

Wwn DecodeName(const WireJson& json) {
  const std::optional<Wwn> name = ParseWwn(StringOf(json));
  if (!name.has_value()) throw WireError("expected a name");
  return *name;
}

bool DecodeFlag(const WireJson& json) {
  const auto* flag = json.get_ptr<const bool*>();
  if (flag == nullptr) throw WireError("expected true or false");
  return *flag;
}

std::uint64_t DecodeNumber(const WireJson& json, std::uint64_t most) {
  const auto* number = json.get_ptr<const std::uint64_t*>();
  if (number == nullptr || *number > most) throw WireError("expected a smaller whole number");
  return *number;
}

const WireJson& Member(const WireJson& object, std::string_view key) {
  if (!object.is_object()) throw WireError("expected an object");
  const auto found = object.find(key);
  if (found == object.end()) throw WireError("a key is missing");
  return *found;
}

}  // namespace provider

// Single values of an agent's answer, to JSON and back.
//
// What comes from another host is believed only as far as it can be checked: a value of another type, out of
// range or too long is a WireError.
#ifndef PROVIDER_REMOTE_WIREVALUE_H_
#define PROVIDER_REMOTE_WIREVALUE_H_

#include <algorithm>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "provider/host/Host.h"
#include "provider/remote/WireRecords.h"

namespace provider {

using WireJson = nlohmann::ordered_json;

class WireError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A text as it is when it is UTF-8, else {"hex": its bytes}.
WireJson EncodeText(std::string_view text);
WireJson EncodeName(const Wwn& name);

std::string DecodeText(const WireJson& json, std::size_t most);
Wwn DecodeName(const WireJson& json);
bool DecodeFlag(const WireJson& json);
std::uint64_t DecodeNumber(const WireJson& json, std::uint64_t most);

// The member, which must be there.
const WireJson& Member(const WireJson& object, std::string_view key);

// Writes the fields of a record that VisitFields names.
class FieldWriter {
 public:
  explicit FieldWriter(WireJson& object) : m_Object(object) {}

  void operator()(const char* key, const std::uint8_t (&name)[8]) const {
    Wwn wwn;
    std::copy(std::begin(name), std::end(name), wwn.begin());
    Put(key, EncodeName(wwn));
  }
  template <std::size_t Size>
  void operator()(const char* key, const char (&text)[Size]) const {
    Put(key, EncodeText(WithoutZeros({text, Size})));
  }
  template <std::size_t Size>
  void operator()(const char* key, const std::uint8_t (&text)[Size]) const {
    Put(key, EncodeText(WithoutZeros({reinterpret_cast<const char*>(text), Size})));
  }
  void operator()(const char* key, const FlagBytes& flags) const {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < sizeof(number); ++i) number |= std::uint32_t{flags.bytes[i]} << (8 * i);
    Put(key, number);
  }
  void operator()(const char* key, const std::string& text) const { Put(key, EncodeText(text)); }
  void operator()(const char* key, const std::uint16_t& number) const { Put(key, number); }
  void operator()(const char* key, const std::uint32_t& number) const { Put(key, number); }
  void operator()(const char* key, const std::uint64_t& number) const { Put(key, number); }

 private:
  static std::string_view WithoutZeros(std::string_view field) {
    const std::size_t last = field.find_last_not_of('\0');
    return field.substr(0, last == std::string_view::npos ? 0 : last + 1);
  }

  template <class Value>
  void Put(const char* key, Value&& value) const {
    m_Object[key] = std::forward<Value>(value);
  }

  WireJson& m_Object;
};

// Fills the fields of a record, which is zero, from the members of the same names.
class FieldReader {
 public:
  explicit FieldReader(const WireJson& object) : m_Object(object) {}

  void operator()(const char* key, std::uint8_t (&name)[8]) const {
    const Wwn wwn = DecodeName(Member(m_Object, key));
    std::copy(wwn.begin(), wwn.end(), std::begin(name));
  }
  template <class Character, std::size_t Size>
  void operator()(const char* key, Character (&text)[Size]) const {
    const std::string decoded = DecodeText(Member(m_Object, key), Size);
    std::copy(decoded.begin(), decoded.end(), std::begin(text));
  }
  void operator()(const char* key, const FlagBytes& flags) const {
    const std::uint64_t number = DecodeNumber(Member(m_Object, key), UINT32_MAX);
    for (std::size_t i = 0; i < sizeof(std::uint32_t); ++i) {
      flags.bytes[i] = static_cast<std::uint8_t>(number >> (8 * i));
    }
  }
  void operator()(const char* key, std::string& text) const {
    constexpr std::size_t kLongestText = 4096;
    text = DecodeText(Member(m_Object, key), kLongestText);
  }
  void operator()(const char* key, std::uint16_t& number) const { Take(key, number); }
  void operator()(const char* key, std::uint32_t& number) const { Take(key, number); }
  void operator()(const char* key, std::uint64_t& number) const { Take(key, number); }

 private:
  template <class Number>
  void Take(const char* key, Number& number) const {
    number = static_cast<Number>(DecodeNumber(Member(m_Object, key), std::numeric_limits<Number>::max()));
  }

  const WireJson& m_Object;
};

}  // namespace provider

#endif  // PROVIDER_REMOTE_WIREVALUE_H_

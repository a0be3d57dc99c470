// World-wide names as people write them.
//
// Thread safety: values without shared state. Ownership: plain values.
#ifndef TOOLS_HBADISC_WWN_H_
#define TOOLS_HBADISC_WWN_H_

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace hbadisc {

struct Wwn {
  std::array<std::uint8_t, 8> bytes{};  // most significant first

  bool operator==(const Wwn&) const = default;
  bool operator<(const Wwn& other) const { return bytes < other.bytes; }
};

// Accepts 16 hexadecimal digits, the same after "0x", and 8 two-digit bytes separated by ':' or by '-'; in any
// case, and nothing else.
std::optional<Wwn> ParseWwn(std::string_view text);

// "0x1000025dfa000001", the form of JSON.
std::string HexText(const Wwn& wwn);

// "10:00:02:5d:fa:00:00:01", the form of tables.
std::string ColonText(const Wwn& wwn);

// The name in 8 bytes of a record; none when they are all zero, which says "unknown".
std::optional<Wwn> KnownWwn(const std::uint8_t (&bytes)[8]);

Wwn ToWwn(const std::uint8_t (&bytes)[8]);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_WWN_H_

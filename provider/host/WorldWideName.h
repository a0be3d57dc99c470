// World-wide names as text, as bytes behind a pointer, and as numbers that can be counted up.
#ifndef PROVIDER_HOST_WORLDWIDENAME_H_
#define PROVIDER_HOST_WORLDWIDENAME_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "provider/host/Host.h"

namespace provider {

// The eight bytes behind `bytes`, which must not be null.
Wwn WwnFromBytes(const unsigned char* bytes);

// The number whose most significant byte is the name's first.
std::uint64_t WwnToNumber(const Wwn& name);
Wwn WwnFromNumber(std::uint64_t number);

// Sixteen hexadecimal digits, with or without "0x", or eight pairs of them with ":" between; else nothing.
std::optional<Wwn> ParseWwn(std::string_view text);

// Eight pairs of lower-case digits with ":" between.
std::string FormatWwn(const Wwn& name);

}  // namespace provider

#endif  // PROVIDER_HOST_WORLDWIDENAME_H_

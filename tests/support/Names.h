// World wide names as tests write them.
#ifndef TESTS_SUPPORT_NAMES_H_
#define TESTS_SUPPORT_NAMES_H_

#include "rmapi/rmapi.h"
#include "tests/support/Testing.h"

inline HBA_NAME Name(std::uint64_t wwn) {
  HBA_NAME name{};
  for (int i = 0; i < 8; ++i) name.wwn[i] = static_cast<std::uint8_t>(wwn >> (56 - 8 * i));
  return name;
}

// Sixteen hexadecimal digits.
inline HBA_NAME Name(const std::string& digits) {
  return Name(std::stoull(digits, nullptr, 16));
}

inline std::string Digits(const std::uint8_t* wwn) {
  std::string text;
  for (int i = 0; i < 8; ++i) {
    char digits[3];
    std::snprintf(digits, sizeof(digits), "%02x", wwn[i]);
    text += digits;
  }
  return text;
}

#endif  // TESTS_SUPPORT_NAMES_H_

// A world-wide port name as a number: the order of the numbers is the bytewise order of the names.
#ifndef MODEL_WWPNKEY_H_
#define MODEL_WWPNKEY_H_

#include <cstdint>

inline std::uint64_t WwpnKey(const unsigned char* wwpn) {
  std::uint64_t key = 0;
  for (int i = 0; i < 8; ++i) key = (key << 8) | wwpn[i];
  return key;
}

#endif  // MODEL_WWPNKEY_H_

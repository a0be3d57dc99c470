// Fields of the boundary's records.
#ifndef PROVIDER_SYSFS_SYSFSRECORDS_H_
#define PROVIDER_SYSFS_SYSFSRECORDS_H_

#include <algorithm>
#include <cstddef>
#include <string>

#include "provider/host/Host.h"

namespace provider {

// Into a zeroed field; a text as long as the field has no NUL.
template <class Letter, std::size_t Size>
void CopyText(Letter (&field)[Size], const std::string& text) {
  std::copy_n(text.begin(), std::min(text.size(), Size), field);
}

inline void CopyName(std::uint8_t (&field)[8], const Wwn& name) {
  std::copy(name.begin(), name.end(), field);
}

}  // namespace provider

#endif  // PROVIDER_SYSFS_SYSFSRECORDS_H_

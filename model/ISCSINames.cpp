#include "model/ISCSINames.h"

#include <cstring>

namespace {

constexpr std::size_t kMaxNameBytes = 256;

std::optional<std::string> KeepName(const char* name) {
  if (name == nullptr) return std::nullopt;
  return std::string(name, strnlen(name, kMaxNameBytes));
}

}  // namespace

void CDiscISCSINames::SetNames(const char* initiatorName, const char* defaultName, const char* alias) {
  if (initiatorName == nullptr && defaultName == nullptr && alias == nullptr) {
    m_Names.reset();
    return;
  }
  // All three are built before the old ones go, which may be among the arguments.
  m_Names =
      std::make_shared<const Names>(Names{KeepName(initiatorName), KeepName(defaultName), KeepName(alias)});
}

// What the boundary's functions have in common: they ask a host and translate, and nothing is thrown out of
// them.
#ifndef PROVIDER_BOUNDARY_ENTRY_H_
#define PROVIDER_BOUNDARY_ENTRY_H_

#include <algorithm>
#include <cstring>

#include "provider/boundary/HostLookup.h"
#include "provider/host/WorldWideName.h"

namespace provider {

// Runs a function's body. Whatever it throws (there is little but a lack of memory) becomes `failed`.
template <class Body, class Result = int>
Result Guarded(Body body, Result failed = RM_STATUS_FAILED) noexcept {
  try {
    return body();
  } catch (...) {
    return failed;
  }
}

// Asks the host behind `proxy` about the port behind `wwn`; `ask` returns the status.
template <class Ask>
int AskHost(const unsigned char* proxy, const unsigned char* wwn, Ask ask) noexcept {
  return Guarded([&]() -> int {
    if (wwn == nullptr) return RM_STATUS_FAILED;
    const FoundHost found = FindHost(proxy);
    if (found.status != RM_STATUS_OK) return found.status;
    return ask(*found.host, WwnFromBytes(wwn));
  });
}

// Hands a list out: the records when there is room for them, else only how many there are. In: `count` is the
// room.
template <class Record>
int CopyList(const ListAnswer<Record>& answer, std::uint32_t& count, void* records) {
  const std::size_t room = count;
  const auto needed = static_cast<std::uint32_t>(answer.records.size());
  if (answer.status != RM_STATUS_OK) {
    if (answer.claimedCount.has_value()) count = *answer.claimedCount;
    return answer.status;
  }
  count = answer.claimedCount.value_or(needed);
  if (needed > room) return RM_STATUS_BUFFER_TOO_SMALL;
  if (needed > 0) std::memcpy(records, answer.records.data(), needed * sizeof(Record));
  return RM_STATUS_OK;
}

// Copies a text into a field of `size` bytes and fills the rest with zeros; a text that long has no NUL.
inline void CopyField(char* field, std::size_t size, const std::string& text) {
  std::memset(field, 0, size);
  std::copy_n(text.data(), std::min(size, text.size()), field);
}

}  // namespace provider

#endif  // PROVIDER_BOUNDARY_ENTRY_H_

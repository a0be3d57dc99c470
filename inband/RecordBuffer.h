// The blocks in which the provider returns lists: a header with a count, then the records.
//
// Thread safety: one thread at a time per buffer.
// Ownership: a buffer owns its block; pointers into it hold until it is allocated anew.
#ifndef INBAND_RECORDBUFFER_H_
#define INBAND_RECORDBUFFER_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>

#include "rmapi/rmapi.h"

// More records than any adapter has. A greater count is a provider's mistake, which overcommitted memory would
// let pass and the first touch punish.
inline constexpr std::uint32_t kMaxRecords = 1048576;

// Zeroed; null when that many cannot be had.
template <typename Record>
std::unique_ptr<Record[]> AllocateRecords(std::uint32_t count) {
  if (count > kMaxRecords) return nullptr;
  return std::unique_ptr<Record[]>(new (std::nothrow) Record[count]());
}

template <typename Header, typename Record>
class RecordBuffer {
 public:
  // A fresh zeroed block for `room` records; false, and no block, when it cannot be had.
  bool Allocate(std::uint32_t room) {
    m_Room = room;
    // Pages of calloc that nobody writes to cost nothing, however large a count the provider asks for.
    m_Block.reset(room > kMaxRecords
                      ? nullptr
                      : static_cast<Header*>(std::calloc(1, sizeof(Header) + room * sizeof(Record))));
    return m_Block != nullptr;
  }

  // A fresh block with the room that the last call asked for.
  bool Grow() { return Allocate(ReturnedCount()); }

  // The block as a call takes it, its room in the count.
  Header* Request() {
    m_Block->count = m_Room;
    return m_Block.get();
  }

  // The room that was asked for last, whether or not there was memory for it.
  std::uint32_t Room() const { return m_Room; }

  // The count as the last call left it; may be above the room.
  std::uint32_t ReturnedCount() const { return m_Block->count; }

  // How many records may be read.
  std::uint32_t Count() const { return std::min(ReturnedCount(), m_Room); }

  Record& operator[](std::uint32_t index) { return Records()[index]; }

 private:
  // Records directly follow the header, so the header has to end where a record may begin.
  static_assert(sizeof(Header) % alignof(Record) == 0);

  struct Free {
    void operator()(Header* block) const { std::free(block); }
  };

  Record* Records() {
    return reinterpret_cast<Record*>(reinterpret_cast<std::byte*>(m_Block.get()) + sizeof(Header));
  }

  std::unique_ptr<Header, Free> m_Block;
  std::uint32_t m_Room = 0;
};

// Calls `ask`, and once more with a grown buffer when the first room was too small. The last status, or nothing
// when there is no memory for the room wanted.
template <typename Header, typename Record, typename Ask>
std::optional<int> AskGrowing(RecordBuffer<Header, Record>& buffer, std::uint32_t room, Ask ask) {
  if (!buffer.Allocate(room)) return std::nullopt;
  const int status = ask(buffer.Request());
  if (status != RM_STATUS_BUFFER_TOO_SMALL) return status;
  if (!buffer.Grow()) return std::nullopt;
  return ask(buffer.Request());
}

using NodeBuffer = RecordBuffer<RM_NodeInfoList, RM_NodeInfoEntry>;
using ISCSITargetBuffer = RecordBuffer<RM_ISCSI_TargetList, _RM_ISCSI_TARGET>;
using VPortBuffer = RecordBuffer<RM_VPortList, RM_VPortEntry>;
using VPortTargetBuffer = RecordBuffer<RM_VPortTargetList, RM_VPortTargetEntry>;
using VFBuffer = RecordBuffer<RM_VFList, HBA_NAME>;

#endif  // INBAND_RECORDBUFFER_H_

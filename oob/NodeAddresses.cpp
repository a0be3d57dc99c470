#include "oob/NodeAddresses.h"

#include <algorithm>
#include <cstdlib>

namespace {

// A provider that always wants more must not be asked for ever.
constexpr std::uint32_t kMostAddresses = 65536;
constexpr int kMostGrowths = 8;

static_assert(sizeof(RM_NodeAddrList) % alignof(HBA_NAME) == 0);

}  // namespace

void NodeAddresses::Free::operator()(RM_NodeAddrList* block) const {
  std::free(block);
}

bool NodeAddresses::Allocate(std::uint32_t room) {
  m_Room = room;
  m_Block.reset(
      static_cast<RM_NodeAddrList*>(std::calloc(1, sizeof(RM_NodeAddrList) + room * sizeof(HBA_NAME))));
  return m_Block != nullptr;
}

bool NodeAddresses::Begin() {
  m_Growths = 0;
  m_Count = 0;
  return m_Block != nullptr || Allocate(kFirstRoom);
}

std::optional<int> NodeAddresses::Ask(const _RM_IP_INFO& host, const std::function<bool()>& goOn) {
  for (;;) {
    m_Block->capacity = m_Room;
    m_Block->count = 0;
    const int status = RM_GetAllNodeAddr(&host, m_Block.get());
    m_Count = status == RM_STATUS_OK ? std::min(m_Block->count, m_Room) : 0;
    const std::uint32_t needed = m_Block->capacity;
    if (status != RM_STATUS_MORE_DATA || needed <= m_Room || needed > kMostAddresses ||
        m_Growths == kMostGrowths || !goOn()) {
      return status;
    }
    ++m_Growths;
    if (!Allocate(needed + 1)) return std::nullopt;
  }
}

const HBA_NAME& NodeAddresses::operator[](std::uint32_t index) const {
  return reinterpret_cast<const HBA_NAME*>(m_Block.get() + 1)[index];
}

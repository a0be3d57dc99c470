#include "discovery/HbaDiscoveryListMemory.h"

#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

namespace {

constinit CZylThreadLock headsLock;  // no lock is taken while it is held

// Never destroyed: threads may outlive the end of main.
std::pmr::memory_resource* Heads() REQUIRES(headsLock) {
  static std::pmr::memory_resource* heads =
      kPackMemory ? new std::pmr::unsynchronized_pool_resource : std::pmr::new_delete_resource();
  return heads;
}

}  // namespace

void* AllocateListHead(std::size_t size, std::size_t alignment) {
  const CZylLockGuard guard(headsLock);
  return Heads()->allocate(size, alignment);
}

void FreeListHead(void* head, std::size_t size, std::size_t alignment) noexcept {
  const CZylLockGuard guard(headsLock);
  Heads()->deallocate(head, size, alignment);
}

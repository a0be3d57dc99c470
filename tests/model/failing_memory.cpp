#include "tests/model/failing_memory.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr int kNever = -1;
thread_local constinit int t_UntilFailure = kNever;

void* Allocate(std::size_t size, std::size_t alignment) {
  if (t_UntilFailure != kNever && t_UntilFailure-- == 0) throw std::bad_alloc();
  void* memory = nullptr;
  if (posix_memalign(&memory, std::max(alignment, sizeof(void*)), size) != 0) throw std::bad_alloc();
  return memory;
}

}  // namespace

FailingMemory::FailingMemory(unsigned int after) {
  t_UntilFailure = static_cast<int>(after);
}

FailingMemory::~FailingMemory() {
  t_UntilFailure = kNever;
}

void* operator new(std::size_t size) {
  return Allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return Allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  std::free(memory);
}

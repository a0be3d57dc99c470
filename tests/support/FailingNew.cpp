#include "tests/support/FailingNew.h"

#include <cstdlib>
#include <new>

// All other forms come here.
void* operator new(std::size_t size) {
  int& left = FailingMemory::s_Left;
  if (left != FailingMemory::kNever && left-- == 0) throw std::bad_alloc();
  void* memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

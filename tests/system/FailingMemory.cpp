#include "tests/system/FailingMemory.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define HAS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define HAS_SANITIZER 1
#endif
#endif

namespace systemtest {

namespace {

// How much quicker the library's pauses pass.
constexpr long kHaste = 100;

constinit thread_local bool t_Ours = false;
constinit thread_local bool t_Exposed = false;

constinit std::atomic<long> gs_Left{0};  // allocations up to and including the failing one
constinit std::atomic<bool> gs_Armed{false};
constinit std::atomic<bool> gs_AllFromThere{false};
constinit std::atomic<bool> gs_OtherThreads{false};

bool Fails() {
  if (!gs_Armed || !(gs_OtherThreads ? !t_Ours : t_Exposed)) return false;
  const long left = gs_Left.fetch_sub(1);
  if (left > 1 || (left < 1 && !gs_AllFromThere)) return false;
  errno = ENOMEM;  // the C library asserts this
  return true;
}

}  // namespace

void FailAllocation(unsigned int nth, Victims victims, Failures failures) {
  gs_Left = static_cast<long>(nth);
  gs_OtherThreads = victims == Victims::kOtherThreads;
  gs_AllFromThere = failures == Failures::kAllFromThere;
  gs_Armed = true;
}

bool StopFailing() {
  gs_Armed = false;
  return gs_Left < 1;
}

void OursHere() {
  t_Ours = true;
}

Exposed::Exposed() {
  t_Exposed = true;
}

Exposed::~Exposed() {
  t_Exposed = false;
}

}  // namespace systemtest

#define REPLACEMENT __attribute__((visibility("default")))

extern "C" REPLACEMENT int nanosleep(const timespec* request, timespec* remaining) {
  using namespace systemtest;
  constexpr long kSecond = 1'000'000'000;
  timespec wanted = *request;
  if (!t_Ours || t_Exposed) {
    const long hasty = (wanted.tv_sec * kSecond + wanted.tv_nsec) / kHaste;
    wanted = {hasty / kSecond, hasty % kSecond};
  }
  return static_cast<int>(syscall(SYS_nanosleep, &wanted, remaining));
}

#ifdef HAS_SANITIZER

namespace {

void* Allocate(std::size_t size) noexcept {
  return systemtest::Fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* AllocateOrThrow(std::size_t size) {
  void* block = Allocate(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

REPLACEMENT void* operator new(std::size_t size) {
  return AllocateOrThrow(size);
}
REPLACEMENT void* operator new[](std::size_t size) {
  return AllocateOrThrow(size);
}
REPLACEMENT void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
REPLACEMENT void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
REPLACEMENT void operator delete(void* block) noexcept {
  std::free(block);
}
REPLACEMENT void operator delete[](void* block) noexcept {
  std::free(block);
}
REPLACEMENT void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
REPLACEMENT void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}

#else

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

REPLACEMENT void* malloc(std::size_t size) {
  return systemtest::Fails() ? nullptr : __libc_malloc(size);
}

REPLACEMENT void* calloc(std::size_t count, std::size_t size) {
  return systemtest::Fails() ? nullptr : __libc_calloc(count, size);
}

REPLACEMENT void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return systemtest::Fails() ? nullptr : __libc_memalign(alignment, size);
}

}  // extern "C"

#endif

// Allocations that fail on request, and pauses of the library that pass quickly.
//
// Linked into a program, this replaces malloc and calloc of the whole process, and with them what libstdc++ and
// the C library allocate: operator new, files, threads. A sanitizer has an allocator of its own that only its
// operator new leaves to us: there the C functions never fail.
//
// A thread of ours (OursHere) never meets a failure and sleeps as long as it says, unless it is Exposed.
#ifndef TESTS_SYSTEM_FAILINGMEMORY_H_
#define TESTS_SYSTEM_FAILINGMEMORY_H_

namespace systemtest {

enum class Victims { kExposedThread, kOtherThreads };
enum class Failures { kOne, kAllFromThere };

// From now on the `nth` allocation of the victims fails, and perhaps all that follow. Counted from 1.
void FailAllocation(unsigned int nth, Victims victims, Failures failures);
// No more failures. False when the victims did not get as far as the nth allocation.
bool StopFailing();

// Marks the calling thread as ours, for good.
void OursHere();

// The calling thread counts as one of the library's while one of these lives.
class Exposed {
 public:
  Exposed();
  ~Exposed();
  Exposed(const Exposed&) = delete;
  Exposed& operator=(const Exposed&) = delete;
};

// Calls the library so that its allocations here may fail and its pauses here pass quickly.
template <class Call>
auto AsLibrary(Call call) {
  const Exposed exposed;
  return call();
}

}  // namespace systemtest

#endif  // TESTS_SYSTEM_FAILINGMEMORY_H_

// Clang's thread-safety attributes, no-ops for other compilers.
//
// Every locked field is GUARDED_BY its lock, every function that expects a lock REQUIRES it, every function
// that takes one EXCLUDES it. Lock order is stated where the lock is born.
#ifndef THREAD_THREAD_ANNOTATIONS_H_
#define THREAD_THREAD_ANNOTATIONS_H_

#if defined(__clang__)
#define HBADISC_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define HBADISC_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) HBADISC_THREAD_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY HBADISC_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) HBADISC_THREAD_ATTRIBUTE(guarded_by(x))
#define PT_GUARDED_BY(x) HBADISC_THREAD_ATTRIBUTE(pt_guarded_by(x))
#define ACQUIRED_BEFORE(...) HBADISC_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define ACQUIRED_AFTER(...) HBADISC_THREAD_ATTRIBUTE(acquired_after(__VA_ARGS__))
#define REQUIRES(...) HBADISC_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) HBADISC_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) HBADISC_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) HBADISC_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define EXCLUDES(...) HBADISC_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ASSERT_CAPABILITY(x) HBADISC_THREAD_ATTRIBUTE(assert_capability(x))
#define RETURN_CAPABILITY(x) HBADISC_THREAD_ATTRIBUTE(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS HBADISC_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif  // THREAD_THREAD_ANNOTATIONS_H_

#ifndef TESTS_THREAD_NO_NEW_THREADS_H_
#define TESTS_THREAD_NO_NEW_THREADS_H_

#include <pthread.h>

#include <cstddef>

// While one exists, no thread can be created: the default stack is larger than the address space.
class NoNewThreads {
 public:
  NoNewThreads() {
    pthread_attr_t huge;
    pthread_getattr_default_np(&huge);
    pthread_attr_getstacksize(&huge, &m_StackSize);
    SetStackSize(std::size_t{1} << 50);
    pthread_attr_destroy(&huge);
  }
  ~NoNewThreads() { SetStackSize(m_StackSize); }
  NoNewThreads(const NoNewThreads&) = delete;
  NoNewThreads& operator=(const NoNewThreads&) = delete;

 private:
  static void SetStackSize(std::size_t size) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, size);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
  }

  std::size_t m_StackSize = 0;
};

#endif  // TESTS_THREAD_NO_NEW_THREADS_H_

#ifndef TESTS_SUPPORT_NONEWTHREADS_H_
#define TESTS_SUPPORT_NONEWTHREADS_H_

#include <pthread.h>

#include <cstddef>

// While one exists, no thread can be created: the default stack is larger than the address space.
class NoNewThreads {
 public:
  NoNewThreads() {
    pthread_getattr_default_np(&m_Attributes);
    pthread_attr_getstacksize(&m_Attributes, &m_StackSize);
    SetStackSize(std::size_t{1} << 50);
  }
  ~NoNewThreads() {
    SetStackSize(m_StackSize);
    pthread_attr_destroy(&m_Attributes);
  }
  NoNewThreads(const NoNewThreads&) = delete;
  NoNewThreads& operator=(const NoNewThreads&) = delete;

 private:
  void SetStackSize(std::size_t size) {
    pthread_attr_setstacksize(&m_Attributes, size);
    pthread_setattr_default_np(&m_Attributes);
  }

  pthread_attr_t m_Attributes{};
  std::size_t m_StackSize = 0;
};

#endif  // TESTS_SUPPORT_NONEWTHREADS_H_

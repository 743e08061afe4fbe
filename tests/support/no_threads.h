#ifndef KEELSTONE_TESTS_SUPPORT_NO_THREADS_H
#define KEELSTONE_TESTS_SUPPORT_NO_THREADS_H

#include <pthread.h>

#include <cstddef>

namespace keelstone::testing {

/// While it lives no thread can be started in this process: its stack would be larger than
/// all addresses.
class NoThreads {
 public:
  NoThreads() {
    pthread_getattr_default_np(&usual_);
    pthread_attr_t huge;
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, std::size_t{1} << 60U);
    pthread_setattr_default_np(&huge);
    pthread_attr_destroy(&huge);
  }
  ~NoThreads() {
    pthread_setattr_default_np(&usual_);
    pthread_attr_destroy(&usual_);
  }
  NoThreads(const NoThreads&) = delete;
  NoThreads& operator=(const NoThreads&) = delete;

 private:
  pthread_attr_t usual_{};
};

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_NO_THREADS_H

#ifndef KEELSTONE_THREAD_OWNED_H
#define KEELSTONE_THREAD_OWNED_H

#include <pthread.h>

#include <memory>
#include <new>

namespace keelstone {

/// One T a thread, made when the thread first asks for it and destroyed when the thread
/// ends; the thread that ends the process leaves its own. In place of a thread_local object
/// with a destructor: to register that takes memory, and the process is aborted where there
/// is none. Any thread.
template <class T>
class ThreadOwned {
 public:
  /// std::bad_alloc when it cannot be made.
  static T& Get() {
    if (mine_ == nullptr) Make();
    return *mine_;
  }

 private:
  static void Make() {
    static const pthread_key_t key = NewKey();
    auto made = std::make_unique<T>();
    if (pthread_setspecific(key, made.get()) != 0) throw std::bad_alloc();
    mine_ = made.release();
  }

  static pthread_key_t NewKey() {
    pthread_key_t key{};
    if (pthread_key_create(&key, Destroy) != 0) throw std::bad_alloc();
    return key;
  }

  static void Destroy(void* object) {
    mine_ = nullptr;
    delete static_cast<T*>(object);
  }

  static inline constinit thread_local T* mine_ = nullptr;
};

}  // namespace keelstone

#endif  // KEELSTONE_THREAD_OWNED_H

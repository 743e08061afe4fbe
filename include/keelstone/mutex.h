#ifndef KEELSTONE_MUTEX_H
#define KEELSTONE_MUTEX_H

#include <boost/chrono/chrono.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/shared_mutex.hpp>
#include <boost/thread/thread_only.hpp>

// Clang checks these annotations with -Wthread-safety; other compilers see nothing.
#if defined(__clang__)
#define KEELSTONE_TSA(x) __attribute__((x))
#else
#define KEELSTONE_TSA(x)
#endif

#define KS_CAPABILITY(name) KEELSTONE_TSA(capability(name))
#define KS_SCOPED_CAPABILITY KEELSTONE_TSA(scoped_lockable)
#define KS_GUARDED_BY(mutex) KEELSTONE_TSA(guarded_by(mutex))
#define KS_PT_GUARDED_BY(mutex) KEELSTONE_TSA(pt_guarded_by(mutex))
#define KS_REQUIRES(...) KEELSTONE_TSA(requires_capability(__VA_ARGS__))
#define KS_REQUIRES_SHARED(...) KEELSTONE_TSA(requires_shared_capability(__VA_ARGS__))
#define KS_ACQUIRE(...) KEELSTONE_TSA(acquire_capability(__VA_ARGS__))
#define KS_ACQUIRE_SHARED(...) KEELSTONE_TSA(acquire_shared_capability(__VA_ARGS__))
#define KS_RELEASE(...) KEELSTONE_TSA(release_capability(__VA_ARGS__))
#define KS_RELEASE_SHARED(...) KEELSTONE_TSA(release_shared_capability(__VA_ARGS__))
#define KS_RELEASE_GENERIC(...) KEELSTONE_TSA(release_generic_capability(__VA_ARGS__))
#define KS_EXCLUDES(...) KEELSTONE_TSA(locks_excluded(__VA_ARGS__))
#define KS_NO_THREAD_SAFETY_ANALYSIS KEELSTONE_TSA(no_thread_safety_analysis)

namespace keelstone {

/// A plain mutex (boost::mutex) that clang's thread-safety analysis knows.
class KS_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock() KS_ACQUIRE() { mutex_.lock(); }
  void Unlock() KS_RELEASE() { mutex_.unlock(); }

 private:
  friend class Condition;
  boost::mutex mutex_;
};

/// A reader/writer mutex (boost::shared_mutex) that clang's analysis knows.
class KS_CAPABILITY("shared_mutex") SharedMutex {
 public:
  SharedMutex() = default;
  SharedMutex(const SharedMutex&) = delete;
  SharedMutex& operator=(const SharedMutex&) = delete;

  void Lock() KS_ACQUIRE() { mutex_.lock(); }
  void Unlock() KS_RELEASE() { mutex_.unlock(); }
  void LockShared() KS_ACQUIRE_SHARED() { mutex_.lock_shared(); }
  void UnlockShared() KS_RELEASE_SHARED() { mutex_.unlock_shared(); }

 private:
  boost::shared_mutex mutex_;
};

/// Holds a Mutex for a scope.
class KS_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) KS_ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
  ~MutexLock() KS_RELEASE() { mutex_.Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

/// Holds the exclusive side of a SharedMutex for a scope.
class KS_SCOPED_CAPABILITY WriterLock {
 public:
  explicit WriterLock(SharedMutex& mutex) KS_ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
  ~WriterLock() KS_RELEASE() { mutex_.Unlock(); }
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;

 private:
  SharedMutex& mutex_;
};

/// Holds the shared side of a SharedMutex for a scope.
class KS_SCOPED_CAPABILITY ReaderLock {
 public:
  explicit ReaderLock(SharedMutex& mutex) KS_ACQUIRE_SHARED(mutex) : mutex_(mutex) {
    mutex_.LockShared();
  }
  ~ReaderLock() KS_RELEASE_GENERIC() { mutex_.UnlockShared(); }
  ReaderLock(const ReaderLock&) = delete;
  ReaderLock& operator=(const ReaderLock&) = delete;

 private:
  SharedMutex& mutex_;
};

/// A condition variable for use with Mutex. The caller holds the mutex; waits
/// release it while they sleep and hold it again when they return. Wake-ups can
/// be spurious: test the awaited state in a loop.
class Condition {
 public:
  void NotifyOne() { condition_.notify_one(); }
  void NotifyAll() { condition_.notify_all(); }

  void Wait(Mutex& mutex) KS_REQUIRES(mutex) {
    Borrowed borrowed(mutex.mutex_);
    condition_.wait(borrowed.lock);
  }

  /// Waits until `deadline` on the steady clock at the latest; false when the
  /// deadline has passed.
  bool WaitUntil(Mutex& mutex, boost::chrono::steady_clock::time_point deadline)
      KS_REQUIRES(mutex) {
    Borrowed borrowed(mutex.mutex_);
    return condition_.wait_until(borrowed.lock, deadline) == boost::cv_status::no_timeout;
  }

 private:
  /// The caller's hold on the mutex for the time of a wait. A host's boost::thread that
  /// is interrupted does not break off a wait of the library: the exception would pass
  /// through code that cannot be left half done.
  struct Borrowed {
    explicit Borrowed(boost::mutex& mutex) : lock(mutex, boost::adopt_lock) {}
    ~Borrowed() { lock.release(); }
    Borrowed(const Borrowed&) = delete;
    Borrowed& operator=(const Borrowed&) = delete;

    boost::this_thread::disable_interruption uninterrupted;
    boost::unique_lock<boost::mutex> lock;
  };

  boost::condition_variable condition_;
};

}  // namespace keelstone

#endif  // KEELSTONE_MUTEX_H

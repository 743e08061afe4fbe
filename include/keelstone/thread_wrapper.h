#ifndef KEELSTONE_THREAD_WRAPPER_H
#define KEELSTONE_THREAD_WRAPPER_H

#include <boost/thread/thread_only.hpp>

#include "keelstone/export.h"
#include "keelstone/mutex.h"

namespace keelstone {

/// A thread that sleeps and works in turn until it is stopped: thread_sleep, then
/// inner_thread_func, and so on. A stop during the sleep ends it at once; one during the
/// work lets that come to its end. What either throws is logged and goes no further.
///
/// Start and Stop may be called by any thread, in any order, also again. The destructor of
/// the most derived class must call Stop first, while what the thread works on still
/// lives.
class KEELSTONE_EXPORT ThreadWrapper {
 public:
  ThreadWrapper() = default;
  virtual ~ThreadWrapper();
  ThreadWrapper(const ThreadWrapper&) = delete;
  ThreadWrapper& operator=(const ThreadWrapper&) = delete;

  /// False when the thread runs already, or cannot be made (logged).
  bool Start();
  /// Whether there is a thread: started, and not joined by Stop.
  bool IsStarted();
  /// Ends the thread and returns when it has ended; called by the thread itself, it ends
  /// when its present step does.
  void Stop();

 protected:
  /// Waits on wake_ until there is work to do or `stopping_`.
  virtual void thread_sleep() = 0;
  /// One pass of the work.
  virtual void inner_thread_func() = 0;

  Mutex mutex_;     // guards stopping_ and what a derived class waits for
  Condition wake_;  // notified by Stop, and by a derived class
  bool stopping_ KS_GUARDED_BY(mutex_) = false;

 private:
  void Run() noexcept;
  bool IsStopping();
  template <class Step>
  void RunStep(const Step& step) noexcept;

  // Held while the thread is started or joined; taken before mutex_.
  Mutex controlMutex_;
  boost::thread thread_ KS_GUARDED_BY(controlMutex_);
};

}  // namespace keelstone

#endif  // KEELSTONE_THREAD_WRAPPER_H

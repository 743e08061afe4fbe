#ifndef KEELSTONE_PROGRAM_STOP_REQUEST_H
#define KEELSTONE_PROGRAM_STOP_REQUEST_H

#include <atomic>
#include <functional>
#include <thread>

#include "program/file_descriptor.h"

namespace keelstone::host {

/// A wish to stop that wakes whoever polls it. It is never taken back. Any thread.
class StopRequest {
 public:
  StopRequest();

  /// Also in a signal handler.
  void Request() noexcept;
  bool Requested() const noexcept { return requested_.load(std::memory_order_acquire); }
  /// Readable from the request on.
  int fd() const noexcept { return event_.get(); }

 private:
  std::atomic<bool> requested_{false};
  FileDescriptor event_;
};

/// Takes SIGINT, SIGTERM and SIGHUP for the life of the object: the first calls `onSignal`
/// on a thread of its own, a second one ends the process as ever. A signal that was
/// ignored when the program began stays ignored. Make it before any other thread, which
/// would otherwise take the signals. One at a time.
class SignalWatch {
 public:
  /// The first signal is a request to stop, before `onSignal` is told. When no thread can
  /// be started for it, the request is all that comes of a signal.
  SignalWatch(StopRequest& stop, std::function<void(int signal)> onSignal);
  ~SignalWatch();
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;

 private:
  void Watch();
  void TakeByHandler();

  StopRequest& stop_;
  std::function<void(int)> onSignal_;
  FileDescriptor signals_;
  StopRequest end_;
  std::thread thread_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_STOP_REQUEST_H

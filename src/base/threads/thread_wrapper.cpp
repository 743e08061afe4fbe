#include "keelstone/thread_wrapper.h"

#include <exception>
#include <new>
#include <optional>

#include "keelstone/logger.h"

namespace keelstone {

namespace {

constexpr const char* kSource = "thread_wrapper";

// The wrapper whose thread this is.
thread_local const ThreadWrapper* current = nullptr;

}  // namespace

ThreadWrapper::~ThreadWrapper() { Stop(); }

bool ThreadWrapper::Start() {
  const MutexLock control(controlMutex_);
  if (thread_.joinable()) return false;
  {
    const MutexLock lock(mutex_);
    stopping_ = false;
  }
  try {
    thread_ = boost::thread([this] { Run(); });
    return true;
  } catch (const std::exception& error) {
    KS_LOG("FS_Keelstone", "ThreadWrapper::Start", kSource, kLogError,
           "The thread cannot be started: %s", error.what());
    return false;
  }
}

bool ThreadWrapper::IsStarted() {
  const MutexLock control(controlMutex_);
  return thread_.joinable();
}

void ThreadWrapper::Stop() {
  const auto tell = [this] {
    const MutexLock lock(mutex_);
    stopping_ = true;
    wake_.NotifyAll();
  };
  if (current == this) return tell();  // it cannot wait for itself
  const MutexLock control(controlMutex_);
  if (!thread_.joinable()) return;
  tell();
  std::optional<boost::this_thread::disable_interruption> uninterrupted;
  try {
    uninterrupted.emplace();  // the thread must not outlive us
  } catch (const std::bad_alloc&) {
    // What is unknown to the thread library is interrupted by nobody.
  }
  thread_.join();
}

bool ThreadWrapper::IsStopping() {
  const MutexLock lock(mutex_);
  return stopping_;
}

void ThreadWrapper::Run() noexcept {
  current = this;
  while (!IsStopping()) {
    RunStep([this] { thread_sleep(); });
    if (IsStopping()) break;
    RunStep([this] { inner_thread_func(); });
  }
}

template <class Step>
void ThreadWrapper::RunStep(const Step& step) noexcept {
  try {
    step();
    return;
  } catch (const std::exception& error) {
    KS_LOG("FS_Keelstone", "ThreadWrapper::Run", kSource, kLogError, "c++ exception in rw:%s.",
           error.what());
  } catch (...) {
    KS_LOG("FS_Keelstone", "ThreadWrapper::Run", kSource, kLogError, "unkown error.");
  }
  // A step that fails at once each time must not fill the log.
  const auto deadline = boost::chrono::steady_clock::now() + boost::chrono::seconds(1);
  const MutexLock lock(mutex_);
  while (!stopping_ && wake_.WaitUntil(mutex_, deadline)) {
  }
}

}  // namespace keelstone

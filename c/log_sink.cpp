#include "c/log_sink.h"

#include <memory>
#include <string>
#include <utility>

#include "platform/logger.h"
#include "platform/mutex.h"

namespace keelstone::c {

namespace {

// How many callbacks this thread is inside: one may log itself.
thread_local int callbackDepth = 0;

/// A host's callback and who is inside it. Shared by the logger's function and whoever
/// replaces it.
class LogSink {
 public:
  LogSink(ks_log_callback callback, void* user) : callback_(callback), user_(user) {}

  void Take(const LogLine& line) {
    if (!Enter()) return;
    const Leaver leaver(*this);
    std::string text(line.function);
    text.append(": ").append(line.message);
    callback_(line.level, text.c_str(), user_);
  }

  /// Lets nobody in any more, and waits for those who are inside unless this thread is
  /// inside a callback: two that wait for each other would wait for ever.
  void Close() {
    const MutexLock lock(mutex_);
    closed_ = true;
    while (inside_ > 0 && callbackDepth == 0) left_.Wait(mutex_);
  }

 private:
  struct Leaver {
    explicit Leaver(LogSink& entered) : sink(entered) { ++callbackDepth; }
    ~Leaver() {
      --callbackDepth;
      sink.Leave();
    }
    Leaver(const Leaver&) = delete;
    Leaver& operator=(const Leaver&) = delete;
    LogSink& sink;
  };

  bool Enter() {
    const MutexLock lock(mutex_);
    if (closed_) return false;
    ++inside_;
    return true;
  }

  void Leave() {
    const MutexLock lock(mutex_);
    if (--inside_ == 0) left_.NotifyAll();
  }

  const ks_log_callback callback_;
  void* const user_;
  Mutex mutex_;  // guards the two below; innermost, not held during the callback
  Condition left_;
  int inside_ KS_GUARDED_BY(mutex_) = 0;
  bool closed_ KS_GUARDED_BY(mutex_) = false;
};

/// The sink that is in place.
class CurrentSink {
 public:
  static CurrentSink& Instance() {
    static CurrentSink* const instance = new CurrentSink;
    return *instance;
  }

  std::shared_ptr<LogSink> Exchange(std::shared_ptr<LogSink> next) {
    const MutexLock lock(mutex_);
    Logger::Callback callback;
    if (next) callback = [next](const LogLine& line) { next->Take(line); };
    Logger::Instance().SetCallback(std::move(callback));
    return std::exchange(sink_, std::move(next));
  }

 private:
  Mutex mutex_;  // guards sink_ and its being what the logger calls; the logger's is inside
  std::shared_ptr<LogSink> sink_ KS_GUARDED_BY(mutex_);
};

}  // namespace

void SetLogSink(ks_log_callback callback, void* user) {
  std::shared_ptr<LogSink> next;
  if (callback != nullptr) next = std::make_shared<LogSink>(callback, user);
  const std::shared_ptr<LogSink> before = CurrentSink::Instance().Exchange(std::move(next));
  if (before) before->Close();
}

}  // namespace keelstone::c

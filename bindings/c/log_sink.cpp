#include "bindings/c/log_sink.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "base/threads/fork_gate.h"
#include "keelstone/logger.h"
#include "keelstone/mutex.h"

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

  /// Another with the same callback, and nobody inside.
  std::shared_ptr<LogSink> Again() const { return std::make_shared<LogSink>(callback_, user_); }

  /// Lets nobody in any more, and waits for those who are inside unless this thread is
  /// inside a callback: two that wait for each other would wait for ever.
  void Close() {
    std::uint32_t seen = inside_.fetch_or(kClosed) | kClosed;
    if (callbackDepth > 0) return;
    const ForkGate::Outside outside;
    while (seen != kClosed) {
      inside_.wait(seen);
      seen = inside_.load();
    }
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
    if ((inside_.fetch_add(1) & kClosed) == 0) return true;
    Leave();
    return false;
  }

  void Leave() {
    inside_.fetch_sub(1);
    inside_.notify_all();
  }

  static constexpr std::uint32_t kClosed = 0x80000000;

  const ks_log_callback callback_;
  void* const user_;
  std::atomic<std::uint32_t> inside_{0};  // how many; and kClosed. No lock: a fork may come
};

/// The sink that is in place.
class CurrentSink {
 public:
  static CurrentSink& Instance() {
    static CurrentSink* const instance = [] {
      auto* const made = new CurrentSink;
      ForkGate::InChild([](void* current) { static_cast<CurrentSink*>(current)->Renew(); }, made);
      return made;
    }();
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
  /// In a forked child: threads that were inside the callback never leave it.
  void Renew() {
    std::shared_ptr<LogSink> next;
    {
      const MutexLock lock(mutex_);
      if (!sink_) return;
      next = sink_->Again();
    }
    Exchange(std::move(next));
  }

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

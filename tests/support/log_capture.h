#ifndef KEELSTONE_TESTS_SUPPORT_LOG_CAPTURE_H
#define KEELSTONE_TESTS_SUPPORT_LOG_CAPTURE_H

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "keelstone/logger.h"

namespace keelstone::testing {

/// Takes the log's lines while it lives.
class LogCapture {
 public:
  struct Line {
    std::string module, function, source, message;
    int level = 0;
  };

  /// Keeps lines of this level and above. `onLine` runs on the logging thread after the line has
  /// been kept.
  explicit LogCapture(int level = Logger::Instance().GetLevel(),
                      std::function<void(const Line&)> onLine = {})
      : previousLevel_(Logger::Instance().GetLevel()), state_(std::make_shared<State>()) {
    state_->onLine = std::move(onLine);
    // Another thread may be in the callback when this object goes: it shares the state.
    Logger::Instance().SetCallback([state = state_](const LogLine& line) { state->Take(line); });
    Logger::Instance().SetLevel(level);
  }
  ~LogCapture() {
    Logger::Instance().SetLevel(previousLevel_);
    Logger::Instance().SetCallback({});
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<Line> Lines() const {
    const std::lock_guard lock(state_->mutex);
    return state_->lines;
  }
  /// The messages of a module, in order.
  std::vector<std::string> Messages(const std::string& module = "FS_Keelstone") const {
    std::vector<std::string> messages;
    for (const Line& line : Lines()) {
      if (line.module == module) messages.push_back(line.message);
    }
    return messages;
  }
  bool Has(const std::string& message) const {
    const std::lock_guard lock(state_->mutex);
    return state_->Has(message);
  }
  /// Waits for the message; false when it has not come within a minute.
  bool WaitFor(const std::string& message) {
    std::unique_lock lock(state_->mutex);
    return state_->came.wait_for(lock, std::chrono::minutes(1),
                                 [&] { return state_->Has(message); });
  }

 private:
  struct State {
    std::function<void(const Line&)> onLine;
    std::mutex mutex;
    std::condition_variable came;
    std::vector<Line> lines;

    bool Has(const std::string& message) const {
      return std::any_of(lines.begin(), lines.end(),
                         [&](const Line& line) { return line.message == message; });
    }
    void Take(const LogLine& from) {
      const Line line{std::string(from.module), std::string(from.function),
                      std::string(from.source), std::string(from.message), from.level};
      {
        const std::lock_guard lock(mutex);
        lines.push_back(line);
      }
      came.notify_all();
      if (onLine) onLine(line);
    }
  };

  int previousLevel_;
  std::shared_ptr<State> state_;
};

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_LOG_CAPTURE_H

#ifndef KEELSTONE_TESTS_SUPPORT_LOG_CAPTURE_H
#define KEELSTONE_TESTS_SUPPORT_LOG_CAPTURE_H

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/logger.h"

namespace keelstone::testing {

/// Takes every log line while it lives, in place of the file.
class LogCapture {
 public:
  struct Line {
    std::string module;
    std::string function;
    std::string source;
    int level;
    std::string message;
  };

  LogCapture() {
    Logger::Instance().SetCallback([taken = taken_](const LogLine& line) {
      const std::lock_guard<std::mutex> lock(taken->mutex);
      taken->lines.push_back({std::string(line.module), std::string(line.function),
                              std::string(line.source), line.level, std::string(line.message)});
    });
  }
  ~LogCapture() { Logger::Instance().SetCallback({}); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<Line> Lines() const {
    const std::lock_guard<std::mutex> lock(taken_->mutex);
    return taken_->lines;
  }

 private:
  /// Shared with calls of the callback that still run when the capture ends.
  struct Taken {
    std::mutex mutex;
    std::vector<Line> lines;
  };
  std::shared_ptr<Taken> taken_ = std::make_shared<Taken>();
};

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_LOG_CAPTURE_H

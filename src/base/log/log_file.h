#ifndef KEELSTONE_BASE_LOG_LOG_FILE_H
#define KEELSTONE_BASE_LOG_LOG_FILE_H

#include <memory>
#include <string>
#include <string_view>

#include "keelstone/mutex.h"

namespace spdlog {
class logger;
}

namespace keelstone {

/// The file `log/keelstone.log` below the system root folder, with three old ones. It is
/// opened with the first line and follows the root folder when that changes. What cannot
/// be written is dropped; the next line tries anew. Any thread.
class LogFile {
 public:
  LogFile();
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
  ~LogFile();

  /// Writes one line with the time in front of it; `flush` brings it to the file at once.
  void Write(std::string_view line, bool flush);
  void Flush();

 private:
  bool OpenBelow(const std::string& root) KS_REQUIRES(mutex_);
  void DropWhenBroken() KS_REQUIRES(mutex_);

  Mutex mutex_;  // guards all below; held while the file is written; innermost
  std::unique_ptr<spdlog::logger> out_ KS_GUARDED_BY(mutex_);
  std::string root_ KS_GUARDED_BY(mutex_);  // below which out_ lies
  bool broken_ KS_GUARDED_BY(mutex_) = false;
};

}  // namespace keelstone

#endif  // KEELSTONE_BASE_LOG_LOG_FILE_H

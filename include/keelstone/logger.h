#ifndef KEELSTONE_LOGGER_H
#define KEELSTONE_LOGGER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "keelstone/export.h"

namespace keelstone {

/// Severity of a log line; the numbers are part of the interface.
enum LogLevel : int {
  kLogProgress = 0,     // progress of the write-behind flush
  kLogInformation = 1,  // information and timings
  kLogNotice = 2,       // block times, refused results, tables made
  kLogError = 3,
};

/// One line as a host's callback gets it; the views live during the call.
struct LogLine {
  std::string_view module;    // "FS_Keelstone", "Performance", "FS_AllRD"
  std::string_view function;  // "KSRuleInstance::ProcessVariable"
  std::string_view source;    // stem of the source file, "ksruleinstance"
  int line = 0;
  int level = 0;
  std::string_view message;
};

/// The process-wide log. Lines go to `log/keelstone.log` under the system root folder
/// (the folder is made with the first line; the file turns over at 16 MiB, three old
/// ones are kept), or to a host's callback instead. A line below the level costs one
/// relaxed load and formats nothing. Control characters in a message are written
/// escaped, so that one call is one line. A log that cannot be written never disturbs
/// its caller. Any thread; never destroyed.
class KEELSTONE_EXPORT Logger {
 public:
  /// Takes a line in place of the file; called on the thread that logs.
  using Callback = std::function<void(const LogLine&)>;

  static Logger& Instance();

  /// Lines of this level and above are kept; 1 at the start, 4 keeps none.
  void SetLevel(int level) noexcept { level_.store(level, std::memory_order_relaxed); }
  int GetLevel() const noexcept { return level_.load(std::memory_order_relaxed); }
  bool IsOn(int level) const noexcept { return level >= GetLevel(); }

  /// Hands every line to `callback` instead of the file; an empty one goes back to the
  /// file. The callback runs on the logging thread, from several threads at once, under
  /// no lock of the library, and may log itself; exceptions it throws are dropped.
  void SetCallback(Callback callback);

  /// Writes one line; `format` and what follows as for printf.
  void Log(const char* module, const char* second, const char* function, const char* source,
           int line, int level, const char* format, ...) __attribute__((format(printf, 8, 9)));

  /// Brings what has been logged to the file.
  void Flush();

 private:
  struct State;
  Logger();
  ~Logger() = delete;

  std::atomic<int> level_;
  State* state_;
};

}  // namespace keelstone

/// Logs from a function whose qualified name and source stem are given; the arguments
/// are not evaluated when the level is off.
#define KS_LOG(module, function, source, level, ...)                                     \
  do {                                                                                   \
    if (::keelstone::Logger::Instance().IsOn(level)) {                                   \
      ::keelstone::Logger::Instance().Log(module, "", function, source, __LINE__, level, \
                                          __VA_ARGS__);                                  \
    }                                                                                    \
  } while (false)

#endif  // KEELSTONE_LOGGER_H

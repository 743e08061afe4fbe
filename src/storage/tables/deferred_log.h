#ifndef KEELSTONE_STORAGE_TABLES_DEFERRED_LOG_H
#define KEELSTONE_STORAGE_TABLES_DEFERRED_LOG_H

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace keelstone {

/// Keeps log lines back while locks are held that evaluation waits for: a host's log
/// callback may do anything, evaluate values too. Make one before such a lock is taken;
/// its lines are written when it goes, in their order. One made inside another on the
/// same thread hands its lines to that one instead. A line that finds no memory is
/// dropped. A local variable of one thread.
class DeferredLog {
 public:
  /// Both texts must outlive the process's logging: literals.
  DeferredLog(const char* function, const char* source) noexcept;
  ~DeferredLog();
  DeferredLog(const DeferredLog&) = delete;
  DeferredLog& operator=(const DeferredLog&) = delete;

  /// Keeps the pieces as one line; joins nothing when the level is off.
  void Add(int level, int line, const char* before, const char* what, const char* after) noexcept {
    Add(level, line, {before, what, after});
  }
  void Add(int level, int line, std::initializer_list<std::string_view> pieces) noexcept;

 private:
  struct Line {
    const char* function;
    const char* source;
    int line;
    int level;
    std::string message;
  };

  static thread_local DeferredLog* innermost_;

  const char* function_;
  const char* source_;
  DeferredLog* enclosing_;
  std::vector<Line> lines_;
};

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_TABLES_DEFERRED_LOG_H

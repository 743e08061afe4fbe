#ifndef KEELSTONE_PROGRAM_CONSOLE_H
#define KEELSTONE_PROGRAM_CONSOLE_H

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "keelstone/mutex.h"
#include "program/evaluate/run.h"

namespace keelstone::host {

/// What is known while an evaluation runs.
struct EvaluationProgress {
  std::uint64_t runs = 0;
  RunTally tally;
  std::uint64_t inputBytes = 0;  // of what is evaluated
  std::uint64_t inputTotal = 0;  // of all inputs; 0: not known
};

/// Standard error: messages, and below them a line of progress when it is a terminal.
/// Any thread.
class Console {
 public:
  explicit Console(bool showProgress);

  /// One message, on a line of its own. The text must be printable.
  void Say(std::string_view message) noexcept;
  /// Shows how far the work is; a few times a second at most.
  void Show(const EvaluationProgress& progress) noexcept;
  /// Takes the line of progress away for good.
  void EndProgress();

  /// Seconds since the console was made.
  double Elapsed() const;

 private:
  using Clock = std::chrono::steady_clock;
  static void Write(std::string_view text) noexcept;
  std::string ProgressText(const EvaluationProgress& progress) const;

  const Clock::time_point start_ = Clock::now();
  Mutex mutex_;  // guards what follows and the order of what is written; innermost
  bool showProgress_ KS_GUARDED_BY(mutex_);
  Clock::time_point shown_ KS_GUARDED_BY(mutex_);
  std::string progressLine_ KS_GUARDED_BY(mutex_);
};

/// "12 runs, 48 values (1 rejected), 2 alerts, …" for the end of an evaluation.
std::string SummaryText(const EvaluationProgress& progress, std::uint64_t skippedLines,
                        double seconds);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_CONSOLE_H

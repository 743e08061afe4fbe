#include "program/console.h"

#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <new>

namespace keelstone::host {

namespace {

constexpr std::chrono::milliseconds kProgressInterval(200);
constexpr std::string_view kClearLine = "\r\x1b[K";

std::string Count(std::uint64_t number, std::string_view one, std::string_view many) {
  return std::to_string(number).append(" ").append(number == 1 ? one : many);
}

std::uint64_t PerSecond(std::uint64_t number, double seconds) {
  return seconds > 0
             ? static_cast<std::uint64_t>(std::llround(static_cast<double>(number) / seconds))
             : 0;
}

}  // namespace

Console::Console(bool showProgress) : showProgress_(showProgress) {}

double Console::Elapsed() const {
  return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Console::Write(std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t count = ::write(STDERR_FILENO, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;  // nobody is there to be told
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

void Console::Say(std::string_view message) noexcept {
  const MutexLock lock(mutex_);
  try {
    // At once, so that what other processes say does not come between.
    std::string text(progressLine_.empty() ? std::string_view() : kClearLine);
    text.append(message).append("\n").append(progressLine_);
    Write(text);
  } catch (const std::bad_alloc&) {
    Write(message);
    Write("\n");
  }
}

std::string Console::ProgressText(const EvaluationProgress& progress) const {
  std::string text = Count(progress.runs, "run", "runs") + ", " +
                     std::to_string(PerSecond(progress.tally.variables, Elapsed())) +
                     " values/s, " + Count(progress.tally.alerts, "alert", "alerts");
  if (progress.inputTotal > 0) {
    const double share =
        100.0 * static_cast<double>(progress.inputBytes) / static_cast<double>(progress.inputTotal);
    text += ", " + std::to_string(std::lround(share)) + " % of the input";
  }
  return text;
}

void Console::Show(const EvaluationProgress& progress) noexcept {
  const MutexLock lock(mutex_);
  const Clock::time_point now = Clock::now();
  if (!showProgress_ || now - shown_ < kProgressInterval) return;
  shown_ = now;
  try {
    progressLine_ = ProgressText(progress);
  } catch (const std::bad_alloc&) {
    return;
  }
  Write(kClearLine);
  Write(progressLine_);
}

void Console::EndProgress() {
  const MutexLock lock(mutex_);
  showProgress_ = false;
  if (!progressLine_.empty()) Write(kClearLine);
  progressLine_.clear();
}

std::string SummaryText(const EvaluationProgress& progress, std::uint64_t skippedLines,
                        double seconds) {
  const RunTally& tally = progress.tally;
  std::string text =
      Count(progress.runs, "run", "runs") + ", " + Count(tally.variables, "value", "values") +
      ", " + Count(tally.rejected, "value rejected", "values rejected") +
      (tally.repeated > 0 ? ", " + Count(tally.repeated, "value", "values") + " repeated; "
                          : "; ") +
      Count(tally.alerts, "alert", "alerts") + ", " +
      Count(tally.goldenValues, "golden-value change", "golden-value changes") + ", " +
      Count(tally.rules, "rule learned", "rules learned");
  if (skippedLines > 0) text += "; " + Count(skippedLines, "line skipped", "lines skipped");
  const auto tenths = static_cast<std::uint64_t>(std::llround(seconds * 10));
  return text + "; " + std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s, " +
         std::to_string(PerSecond(tally.variables, seconds)) + " values/s";
}

}  // namespace keelstone::host

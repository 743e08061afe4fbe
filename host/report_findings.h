#ifndef KEELSTONE_HOST_REPORT_FINDINGS_H
#define KEELSTONE_HOST_REPORT_FINDINGS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/json_value.h"

namespace keelstone::host {

/// What a variable of a report is found by: domain, device, interface, source, param, name.
using ReportKey = std::array<std::string, 6>;

/// One alert as its result line gives it. Texts are places in VariableFindings::texts.
struct FoundAlert {
  std::int64_t time = 0;
  int type = -1;  // EnumRuleType of the broken rule; -1: learned by the run itself
  std::size_t parameter = 0;
  std::size_t expectation = 0;       // the rule in words
  std::optional<std::size_t> value;  // the value's text, of a table its digest
  bool blocked = false;              // the device was in a block period
  std::string explanation;           // JSON that is safe in a page; empty when there is none
};

/// Alerts of one variable that follow each other.
struct FoundEpisode {
  enum class End {
    kOpen,     // nothing follows in the results
    kCleared,  // the results say so, or a later run of the variable's unit did not alert
    kUnseen,   // other alerts follow after a pause, in which a run without findings lay
  };
  std::int64_t opened = 0;
  std::int64_t last = 0;
  std::uint64_t count = 0;
  End end = End::kOpen;
  std::int64_t cleared = 0;  // time of the run that cleared it
  std::vector<FoundAlert> first;
  std::deque<FoundAlert> newest;  // those that follow, but for what lies between
};

struct FoundRule {
  std::int64_t time = 0;  // of the run that learned it
  int type = -1;
  std::size_t parameter = 0;
  std::size_t expectation = 0;
};

struct FoundGoldenValue {
  std::int64_t time = 0;  // at which the value was read
  std::size_t value = 0;
};

/// What the results say of one variable. What is kept of it is bounded; counts are not.
struct VariableFindings {
  std::vector<std::string> texts;
  std::deque<FoundEpisode> episodes;
  std::uint64_t episodesDropped = 0;  // the oldest, beyond the bound
  std::uint64_t alerts = 0;
  std::deque<FoundRule> rules;
  std::deque<FoundGoldenValue> goldenValues;
  std::uint64_t refused = 0;     // values
  std::int64_t refusedTime = 0;  // of the latest run that refused one
  std::size_t refusedReason = 0;

  /// The place of a text; a long one may be cut when the variable holds many already.
  std::size_t Text(std::string_view text);

  std::size_t textBytes = 0;
  std::uint64_t lastLine = 0;  // the line that gave the last alert
};

/// How many alerts fell into each of a bounded number of equal spans of time.
class AlertHistogram {
 public:
  void Add(std::int64_t time);
  /// Seconds of a span; a power of two.
  std::int64_t width() const noexcept { return width_; }
  /// Alerts by the start of their span.
  const std::map<std::int64_t, std::uint64_t>& counts() const noexcept { return counts_; }

 private:
  std::int64_t width_ = 1;
  std::map<std::int64_t, std::uint64_t> counts_;
};

/// Gathers what result lines of `evaluate` say, in the order of the lines, variable by
/// variable. One thread.
class ReportFindings {
 public:
  /// Takes one line; false when it is no result line, and fault() says what is wrong in
  /// printable characters. Lines of other domains than `domains` count for nothing.
  [[nodiscard]] bool Take(std::string_view line, const std::vector<std::string>& domains);
  const std::string& fault() const noexcept { return fault_; }

  const std::map<ReportKey, VariableFindings>& variables() const noexcept { return variables_; }
  const AlertHistogram& histogram() const noexcept { return histogram_; }
  std::uint64_t runs() const noexcept { return runs_; }
  std::uint64_t alerts() const noexcept { return alerts_; }
  /// Times of the earliest and latest run; nothing without runs.
  std::optional<std::int64_t> from() const { return Bound(from_); }
  std::optional<std::int64_t> to() const { return Bound(to_); }
  /// Whether runs without findings are among the lines (`evaluate --all`).
  bool hasQuietRuns() const noexcept { return hasQuietRuns_; }
  /// Whether an episode's end is the first value that fits again: every line says what it
  /// cleared (`evaluate --explain`), or runs without findings are among the lines (`--all`).
  /// Else that value may have come earlier.
  bool hasExactEnds() const noexcept { return hasQuietRuns_ || isEveryLineTold_; }

 private:
  /// Device, source and param of a domain.
  using UnitKey = std::array<std::string, 4>;
  struct Unit {
    std::vector<std::pair<const ReportKey*, VariableFindings*>> open;
    std::optional<std::int64_t> lastTime;
    std::int64_t spacing = std::numeric_limits<std::int64_t>::max();  // smallest of its runs
  };
  struct Line;

  bool ReadLine(std::string_view text, Line& line);
  void TakeAlert(const Line& line, const JsonValue& item, const JsonValue& explanation, Unit& unit);
  void TakeRule(const Line& line, const JsonValue& item);
  void TakeRefused(const Line& line, const JsonValue& item);
  void TakeGoldenValue(const Line& line, const JsonValue& item);
  void ClearTold(const Line& line, const JsonValue& cleared, Unit& unit);
  void ClearOthers(const Line& line, Unit& unit) const;
  std::optional<std::int64_t> Bound(std::int64_t time) const {
    return runs_ > 0 ? std::optional(time) : std::nullopt;
  }

  std::map<ReportKey, VariableFindings> variables_;
  std::map<UnitKey, Unit> units_;
  AlertHistogram histogram_;
  std::uint64_t lines_ = 0;
  std::uint64_t runs_ = 0;
  std::uint64_t alerts_ = 0;
  std::int64_t from_ = std::numeric_limits<std::int64_t>::max();
  std::int64_t to_ = std::numeric_limits<std::int64_t>::min();
  bool hasQuietRuns_ = false;
  bool isEveryLineTold_ = true;  // each has "cleared"
  std::string fault_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_REPORT_FINDINGS_H

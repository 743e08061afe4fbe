#ifndef KEELSTONE_PROGRAM_REPORT_REPORT_FINDINGS_H
#define KEELSTONE_PROGRAM_REPORT_REPORT_FINDINGS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "keelstone/json_value.h"
#include "program/report/alert_histogram.h"
#include "program/report/fingerprint.h"
#include "program/report/report_details.h"

namespace keelstone::host {

/// What a variable of a report is found by: domain, device, interface, source, param, name.
using ReportKey = std::array<std::string, 6>;

/// Tells devices of a report apart.
std::uint64_t DeviceHash(std::string_view domain, std::string_view device);

/// How much a variable of the results matters. Of each there is one, so it is kept small.
struct FoundVariable {
  std::int64_t lastAlert = 0;  // time of its newest alert
  std::uint64_t lastLine = 0;  // the line that gave it
  std::uint64_t alerts = 0;
  std::uint64_t device = 0;  // hash of domain and device
  std::uint64_t name = 0;    // hash of its name
  std::uint32_t episodes = 0;
  std::uint32_t order = 0;              // of appearance in the results, from 1
  bool isOpen = false;                  // alerts up to the last line of its unit
  VariableFindings* details = nullptr;  // where they are kept
};

/// Gathers what result lines of `evaluate` say, in the order of the lines, variable by
/// variable. Of every variable it keeps how much it matters; the rest only as long as there
/// are no more variables than a bound. Where there are more, the lines are read once more
/// for the ones that were chosen. One thread.
class ReportFindings {
 public:
  using FoundVariables = std::unordered_map<Fingerprint, FoundVariable, FingerprintHash>;
  using Chosen = std::unordered_set<Fingerprint, FingerprintHash>;

  explicit ReportFindings(std::size_t limit);

  /// Takes one line; false when it is no result line, and fault() says what is wrong in
  /// printable characters. Lines of other domains than `domains` count for nothing.
  [[nodiscard]] bool Take(std::string_view line, const std::vector<std::string>& domains);
  const std::string& fault() const noexcept { return fault_; }

  /// Whether the results name more variables than the bound: no details are kept then.
  bool isCrowded() const noexcept { return isCrowded_; }
  /// Forgets all lines; from here on the chosen variables count alone, with their details.
  void Restart(const Chosen& chosen);

  const FoundVariables& found() const noexcept { return found_; }
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
  struct Unit {
    std::vector<FoundVariable*> open;
    std::optional<std::int64_t> lastTime;
    std::int64_t spacing = std::numeric_limits<std::int64_t>::max();  // smallest of its runs
  };
  struct Line;

  bool ReadLine(std::string_view text, Line& line);
  FoundVariable* Touch(ReportKey key);
  void TakeAlert(const Line& line, const JsonValue& item, const JsonValue& explanation, Unit& unit);
  void AddDetails(const Line& line, const JsonValue& item, const JsonValue& explanation, bool opens,
                  VariableFindings& variable);
  void TakeRule(const Line& line, const JsonValue& item);
  void TakeRefused(const Line& line, const JsonValue& item);
  void TakeGoldenValue(const Line& line, const JsonValue& item);
  void ClearTold(const Line& line, const JsonValue& cleared, Unit& unit);
  void ClearOthers(const Line& line, Unit& unit) const;
  std::optional<std::int64_t> Bound(std::int64_t time) const {
    return runs_ > 0 ? std::optional(time) : std::nullopt;
  }

  const std::size_t limit_;
  DetailBudget budget_;
  const Chosen* chosen_ = nullptr;  // all, while there is none
  bool isCrowded_ = false;
  FoundVariables found_;
  std::map<ReportKey, VariableFindings> variables_;
  std::unordered_map<Fingerprint, Unit, FingerprintHash> units_;
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

#endif  // KEELSTONE_PROGRAM_REPORT_REPORT_FINDINGS_H

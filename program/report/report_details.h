#ifndef KEELSTONE_PROGRAM_REPORT_REPORT_DETAILS_H
#define KEELSTONE_PROGRAM_REPORT_REPORT_DETAILS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keelstone::host {

/// A place in VariableFindings::texts.
using TextPlace = std::uint32_t;

/// One alert as its result line gives it.
struct FoundAlert {
  std::int64_t time = 0;
  int type = -1;  // EnumRuleType of the broken rule; -1: learned by the run itself
  TextPlace parameter = 0;
  TextPlace expectation = 0;       // the rule in words
  std::optional<TextPlace> value;  // the value's text, of a table its digest
  bool blocked = false;            // the device was in a block period
  std::string explanation;         // JSON that is safe in a page; empty when there is none
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
  std::vector<FoundAlert> newest;  // those that follow, but for what lies between
};

struct FoundRule {
  std::int64_t time = 0;  // of the run that learned it
  int type = -1;
  TextPlace parameter = 0;
  TextPlace expectation = 0;
};

struct FoundGoldenValue {
  std::int64_t time = 0;  // at which the value was read
  TextPlace value = 0;
};

/// The memory that the findings of all variables may take up together: a share is set aside
/// for each, and what they need beyond comes from a pool, until it is used up. One thread.
class DetailBudget {
 public:
  explicit DetailBudget(std::size_t variables);

  /// Whether a variable that holds `held` bytes may take `more`.
  bool Allows(std::size_t held, std::size_t more) const noexcept {
    return held + more <= share_ || total_ + more <= kPoolBytes;
  }
  void Take(std::size_t& held, std::size_t bytes) noexcept {
    held += bytes;
    total_ += bytes;
  }
  void Return(std::size_t& held, std::size_t bytes) noexcept {
    held -= bytes;
    total_ -= bytes;
  }

 private:
  static constexpr std::size_t kPoolBytes = 48U << 20U;

  std::size_t share_;
  std::size_t total_ = 0;
};

/// What the results say of one variable. What is kept of it is bounded, by less when the
/// budget is used up; counts are not.
struct VariableFindings {
  std::vector<std::string> texts;
  std::vector<FoundEpisode> episodes;
  std::uint64_t episodesDropped = 0;  // the oldest, beyond the bound
  std::uint64_t alerts = 0;
  std::vector<FoundRule> rules;
  std::vector<FoundGoldenValue> goldenValues;
  std::uint64_t refused = 0;     // values
  std::int64_t refusedTime = 0;  // of the latest run that refused one
  TextPlace refusedReason = 0;

  /// The place of a text; a long one may be cut when the variable holds many already.
  TextPlace Text(std::string_view text, DetailBudget& budget);
  /// `opens`: the alert follows none, and begins an episode.
  void AddAlert(FoundAlert alert, bool opens, DetailBudget& budget);
  void AddRule(const FoundRule& rule, DetailBudget& budget);
  void AddGoldenValue(const FoundGoldenValue& golden, DetailBudget& budget);

 private:
  void BeginEpisode(std::int64_t time, DetailBudget& budget);
  void DropExplanation(FoundAlert& alert, DetailBudget& budget);
  template <class Item>
  void AppendBounded(std::vector<Item>& items, const Item& item, DetailBudget& budget);

  std::size_t textBytes_ = 0;
  std::size_t held_ = 0;  // of the budget
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_REPORT_REPORT_DETAILS_H

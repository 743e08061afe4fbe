#ifndef KEELSTONE_ENGINE_RESIDENT_UNIT_H
#define KEELSTONE_ENGINE_RESIDENT_UNIT_H

#include <boost/unordered/unordered_flat_map.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "keelstone/history_data.h"
#include "keelstone/mutex.h"
#include "keelstone/rule_records.h"
#include "model/history/packed_history.h"
#include "storage/pending/row_source.h"

namespace keelstone {

/// What is stored of one variable: its row of the rule table and that of the history table, as
/// far as there are any.
struct ResidentVariable {
  std::uint32_t interface = 0;  // its place among the unit's interfaces
  // The place of the variable that came behind it the last time.
  mutable std::uint32_t next = 0;
  std::uint32_t schema = 0;  // of its newest rule row: its place among the unit's schemas
  // Of both rows as they were read or written last, 0 without one.
  std::uint32_t storedRule = 0;
  std::uint32_t storedHistory = 0;
  bool hasRule = false;
  // What of it is not on disk; guarded by the unit's mutex.
  bool isRuleUnwritten = false;
  bool isHistoryUnwritten = false;
  bool isRuleBeingWritten = false;
  bool isHistoryBeingWritten = false;
  std::int32_t ruleType = kRuleTypeNone;
  std::int32_t generateType = kRuleLearned;
  std::int32_t variableType = -1;
  std::string name;
  std::string ruleParam;
  PackedHistory history;

  /// Gives a new record what reading the row of the rule table gives.
  void FillRecord(RuleDefinitionData& record) const;
};

/// A rule that a run has changed, over a unit in memory: the record, and the history that it
/// carries. Whatever history text the record has counts more.
struct ResidentCopy {
  std::shared_ptr<RuleDefinitionData> record;
  PackedHistory history;
};

/// A row that a run has for a unit in memory.
struct ResidentRow {
  const ResidentVariable* stored = nullptr;  // nullptr: its names
  std::string interfaceValue;
  std::string variableName;
  std::shared_ptr<ResidentCopy> rule;  // empty: a history alone
  PackedHistory history;               // of a history alone
};

/// The rules and histories of one unit (a device, source and parameter of a domain) that stay
/// in memory from run to run: always exactly what the tables would give if all that was
/// evaluated were written, and which of it is not written yet.
///
/// A unit that came for one run keeps history texts as they were read. From its second run on
/// they are points: smaller, and nothing has to be read or written as text but for the disk.
///
/// A run reads the variables and changes nothing of them; when it is stored, Apply takes in its
/// rows as one step. One run at a time, whose thread calls all but the three calls of the
/// writer; these may come from one other thread at any time.
class ResidentUnit {
 public:
  static constexpr std::uint32_t kNoPlace = 0xFFFFFFFFU;
  /// How far a run has come: variables mostly come in the order of the run before.
  struct Course {
    std::uint32_t expected = 0;  // the place of the next variable
    std::uint32_t last = kNoPlace;
  };

  explicit ResidentUnit(UnitKey key) : key_(std::move(key)) {}
  ResidentUnit(const ResidentUnit&) = delete;
  ResidentUnit& operator=(const ResidentUnit&) = delete;

  const UnitKey& key() const noexcept { return key_; }

  /// One more run begins.
  Course BeginRun();
  /// What is stored of the run's next variable, until the next change; nullptr when there is
  /// nothing.
  const ResidentVariable* Next(std::string_view interfaceValue, std::string_view variableName,
                               Course& course) const;
  /// The same for any variable.
  const ResidentVariable* Find(std::string_view interfaceValue,
                               std::string_view variableName) const;
  bool HasRules() const noexcept { return ruleCount_ > 0; }
  const std::vector<ResidentVariable>& variables() const noexcept { return variables_; }

  /// What the tables hold, put in by whoever has read them. Nothing is unwritten then.
  void SetRules(const DevParserRule& rules);
  void SetHistories(const DevParserHistory& histories);
  bool AreRulesLoaded() const noexcept { return areRulesLoaded_; }
  bool AreHistoriesLoaded() const noexcept { return areHistoriesLoaded_; }
  /// Whether all was loaded, and what is written will be found again: such a unit may stay.
  bool IsWhole() const noexcept { return areRulesLoaded_ && areHistoriesLoaded_ && !isRefused_; }
  /// What is stored cannot be read, or what is learned cannot be stored: nothing may stay.
  void Refuse() noexcept { isRefused_ = true; }
  /// Forgets what was loaded.
  void Drop() noexcept;

  /// Takes in the rows of one run, all or, for want of memory, none: the rules with the
  /// histories that they carry, then the histories, the later row of a key in the place of an
  /// earlier one. `nodePathSchema` goes into the rows of rules.
  void Apply(std::vector<ResidentRow>& rules, std::vector<ResidentRow>& histories,
             const std::string& nodePathSchema);
  /// How many rows have been applied since the last call.
  std::int64_t TakeRowCount() noexcept;
  /// About what the unit occupies.
  std::size_t bytes() const noexcept;

  // The writer's: Written after each Append. Append adds the newest state of all that is not
  // written, or nothing.
  bool HasUnwritten() const;
  /// Before an Append, what the tables hold now: of rows that others have changed since they were
  /// read or written, theirs stand, and what is not written is dropped. How many such rows.
  std::size_t GiveWay(const DevParserRule& rules, const DevParserHistory& histories);
  void Append(SourceRows& rows);
  void Written(bool isOnDisk) noexcept;

 private:
  using Places = std::vector<std::uint32_t>;
  /// Of what is stored of a variable once it is written.
  struct Digests {
    std::uint32_t rule;
    std::uint32_t history;
  };

  static std::uint64_t KeyOf(std::string_view interfaceValue, std::string_view variableName);
  bool IsAt(std::uint32_t place, std::string_view interfaceValue,
            std::string_view variableName) const;
  bool FindPlace(std::string_view interfaceValue, std::string_view variableName,
                 std::uint32_t& place) const;
  std::uint32_t PlaceOf(const std::string& interfaceValue, const std::string& variableName);
  Places PlacesOf(const std::vector<ResidentRow>& rows);
  std::uint32_t SchemaOf(const std::string& nodePathSchema);
  void Reserve(std::size_t count);
  void Pack();
  std::uint32_t InterfaceOf(const std::string& interfaceValue) KS_REQUIRES(mutex_);
  static std::size_t HeapOf(const ResidentVariable& variable) noexcept;
  void TakeRule(std::uint32_t place, ResidentCopy& rule, std::uint32_t schema) noexcept
      KS_REQUIRES(mutex_);
  void TakeHistory(std::uint32_t place, PackedHistory& history) noexcept KS_REQUIRES(mutex_);
  void NoteUnwritten(std::uint32_t place, bool rule, bool history) noexcept KS_REQUIRES(mutex_);
  void NoteStored();
  Digests AppendRows(const ResidentVariable& variable, SourceRows& rows) const KS_REQUIRES(mutex_);

  const UnitKey key_;
  mutable Mutex mutex_;  // guards what follows while it changes; innermost
  // Read without the lock by the thread of the run, which alone changes them.
  std::vector<std::string> interfaces_;
  std::vector<std::string> schemas_;  // texts of rule rows; mostly one
  std::vector<ResidentVariable> variables_;
  boost::unordered_flat_map<std::uint64_t, std::uint32_t> places_;  // the first of each key
  // Variables with what is not on disk, and those that the writer has taken; both have room for
  // all variables.
  Places unwritten_ KS_GUARDED_BY(mutex_);
  Places writing_ KS_GUARDED_BY(mutex_);
  std::vector<Digests> writingDigests_ KS_GUARDED_BY(mutex_);
  bool areRulesLoaded_ = false;
  bool areHistoriesLoaded_ = false;
  bool isRefused_ = false;
  bool isPacked_ = false;
  mutable std::uint32_t first_ = 0;  // the place of the variable that came first the last time
  std::uint32_t runs_ = 0;           // since it was loaded, as far as it matters
  std::size_t ruleCount_ = 0;
  std::int64_t rowCount_ = 0;
  std::size_t heapBytes_ = 0;  // of the variables
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_RESIDENT_UNIT_H

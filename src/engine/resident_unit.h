#ifndef KEELSTONE_ENGINE_RESIDENT_UNIT_H
#define KEELSTONE_ENGINE_RESIDENT_UNIT_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "keelstone/mutex.h"
#include "keelstone/rule_records.h"
#include "storage/pending/row_source.h"

namespace keelstone {

/// The rules and histories of one unit (a device, source and parameter of a domain) that stay
/// in memory from run to run: always exactly what the tables would give if all that was
/// evaluated were written, and which of it is not written yet.
///
/// A run reads rules() and histories() and changes nothing of them; when it is stored, Apply
/// takes in its rows as one step. One run at a time, whose thread calls all but the three calls
/// of the writer; these may come from one other thread at any time.
class ResidentUnit {
 public:
  explicit ResidentUnit(UnitKey key) : key_(std::move(key)) {}
  ResidentUnit(const ResidentUnit&) = delete;
  ResidentUnit& operator=(const ResidentUnit&) = delete;

  const UnitKey& key() const noexcept { return key_; }
  /// Records are not changed while they stand here; who wants to change one takes a copy.
  const DevParserRule& rules() const noexcept { return rules_; }
  const DevParserHistory& histories() const noexcept { return histories_; }

  /// What the tables hold, put in by whoever has read them. Nothing is unwritten then.
  void SetRules(DevParserRule rules);
  void SetHistories(DevParserHistory histories);
  bool AreRulesLoaded() const noexcept { return areRulesLoaded_; }
  bool AreHistoriesLoaded() const noexcept { return areHistoriesLoaded_; }
  /// Whether all was loaded, and what is written will be found again: such a unit may stay.
  bool IsWhole() const noexcept { return areRulesLoaded_ && areHistoriesLoaded_ && !isRefused_; }
  /// What is stored cannot be read, or what is learned cannot be stored: nothing may stay.
  void Refuse() noexcept { isRefused_ = true; }
  /// Forgets what was loaded.
  void Drop() noexcept;

  /// Takes in the rows of one run, all or, for want of memory, none: the rules, the histories
  /// that they carry, then the histories, the later row of a key in the place of an earlier one.
  void Apply(const std::vector<ObjectRuleData>& rules,
             std::vector<ObjectRuleHistoryData> histories);
  /// How many rows have been applied since the last call.
  std::int64_t TakeRowCount() noexcept;
  /// About what the unit occupies.
  std::size_t bytes() const noexcept { return bytes_; }

  // The writer's: Written after each Append. Append adds the newest state of all that is not
  // written, or nothing.
  bool HasUnwritten() const;
  void Append(SourceRows& rows);
  void Written(bool isOnDisk) noexcept;

 private:
  /// What of a variable is not written. The texts are those of its newest rule row.
  struct Unwritten {
    bool rule = false;
    bool history = false;
    std::string interfacePath;
    std::string nodePathSchema;
  };
  using UnwrittenMap = std::map<std::string, std::map<std::string, Unwritten>>;
  struct Change;

  void AppendKey(const std::string& interfaceValue, const std::string& variableName,
                 const Unwritten& what, SourceRows& rows) const KS_REQUIRES(mutex_);

  const UnitKey key_;
  mutable Mutex mutex_;  // guards unwritten_ and writing_, and the maps while they change; innermost
  // Read without the lock by the thread of the run, which alone changes them.
  DevParserRule rules_;
  DevParserHistory histories_;
  UnwrittenMap unwritten_ KS_GUARDED_BY(mutex_);
  UnwrittenMap writing_ KS_GUARDED_BY(mutex_);  // taken by the writer
  bool areRulesLoaded_ = false;
  bool areHistoriesLoaded_ = false;
  bool isRefused_ = false;
  std::int64_t rowCount_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_RESIDENT_UNIT_H

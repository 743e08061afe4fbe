#ifndef KEELSTONE_ENGINE_LOOK_UP_H
#define KEELSTONE_ENGINE_LOOK_UP_H

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "engine/resident_unit.h"
#include "engine/subject.h"
#include "engine/taken_definition.h"
#include "keelstone/data_manager.h"
#include "keelstone/rule_records.h"
#include "keelstone/write_behind.h"

namespace keelstone {

/// What is there of a variable, where it lies; until the next change of the LookUp. Another
/// source of definitions answers the same: the short check needs no more.
struct Found {
  std::shared_ptr<RuleDefinitionData> record;  // pending or loaded; empty without either
  const std::string* loadedHistory = nullptr;  // nullptr: nothing was loaded
  // In the place of both: what a unit in memory has of the variable.
  const ResidentVariable* resident = nullptr;
  bool mayHavePending = false;  // rows of the unit wait to be written
  bool isPending = false;       // the record is one of them
  bool isOurs = false;          // nobody else holds the record now
  bool needsLock = false;       // somebody else holds it, or may have held it
};

/// The first step of a value's way: what the domain's storage holds of one device and parser,
/// as far as it was loaded, handed over by a host, or waits to be written. Over a unit that is
/// resident it asks nobody else: the unit is newer than whatever waits to be written.
///
/// It belongs to one evaluation and shares the records it finds with whoever else holds them:
/// the host that handed them over, the write-behind cache, other evaluations through it. One
/// thread.
class LookUp {
 public:
  /// `subject` stays with the owner.
  explicit LookUp(const Subject& subject);

  /// The domain's data; nullptr when it cannot be had: then nothing is found.
  const KSDataManagerSql* manager() const { return manager_.get(); }

  // What KSRuleInstance says of these under its own names.
  bool IsInBlockTime() const;
  bool IsDefineRule() const;
  bool LoadRules();
  bool LoadHistories();
  void SetRules(DevParserRule rules);
  void SetHistories(DevParserHistory histories);
  /// Before anything is loaded: works on a unit that stays in memory. The unit stays as it is
  /// until Store; records that a value is judged by are copied, and found again by later values.
  void Attach(std::shared_ptr<ResidentUnit> unit);
  bool IsAttached() const { return unit_ != nullptr; }
  /// Puts a run's rows into the unit.
  void Store(std::vector<ResidentRow>& rules, std::vector<ResidentRow>& histories);
  bool IsVarDefineRule(const std::string& variableName);
  /// Until the next call of this object.
  const std::string* LoadedHistory(const std::string& interfaceValue,
                                   const std::string& variableName) const;
  /// About when the newest value of what LoadedHistory answers was; nothing where that would
  /// have to be read.
  std::optional<std::int64_t> GuessNewestTime(const std::string& interfaceValue,
                                              const std::string& variableName) const;
  void ReplaceHistory(const std::string& interfaceValue, const std::string& variableName,
                      std::string history);

  /// Whether rules or histories are there and could not be read.
  bool isUnreadable() const { return isUnreadable_; }
  /// Whether the domain's filter names an interface, as it stands now.
  bool IsFiltered(const std::string& interfaceValue);
  /// Pending definitions come first, then those that were loaded.
  Found Find(const VarInfo& variable);
  /// Makes ready what was found, or what the variable rules say of a variable that nobody has
  /// learned yet. False when it has no enabled definition.
  bool Take(const VarInfo& variable, Found& found, TakenDefinition& definition);
  /// Over a unit in memory, once a value was judged: later values of the run find what has
  /// become of its rule.
  void Keep(const TakenDefinition& definition);
  /// Others may hold the records from here on: some wait to be written.
  void NoteHandedOver() { mayBeShared_ = true; }

 private:
  template <class Read>
  bool Load(const char* label, Read read);
  void ForgetPlaces();
  void FindLoaded(const VarInfo& variable, Found& found);
  Found FindResident(const VarInfo& variable);
  bool TakeResident(const VarInfo& variable, const Found& found, TakenDefinition& definition);
  bool TakeNew(const VarInfo& variable, TakenDefinition& definition) const;
  void TakeHistory(const VarInfo& variable, const Found& found, TakenDefinition& definition) const;

  const Subject& subject_;
  const std::shared_ptr<KSDataManagerSql> manager_;
  DevParserRule rules_;
  DevParserHistory histories_;
  std::shared_ptr<ResidentUnit> unit_;  // empty, or in the place of the two
  ResidentUnit::Course course_;
  Workbench workbench_;
  // Over a unit in memory: its rules that the run has changed, and the texts that have taken the
  // place of its histories.
  std::unordered_map<const ResidentVariable*, std::shared_ptr<ResidentCopy>> copies_;
  DevParserHistory replaced_;
  mutable std::string historyText_;  // that was answered last
  // Where the last variable was: they mostly come interface by interface.
  DevParserRule::const_iterator rulesOfInterface_ = rules_.end();
  DevParserHistory::const_iterator historiesOfInterface_ = histories_.end();
  std::optional<PendingMark> pendingMark_;  // from the first variable on
  // Whether others may have come to hold records of rules_: a host that handed them over,
  // the write-behind cache after it got rows.
  bool mayBeShared_ = false;
  bool areRulesGiven_ = false;
  bool areHistoriesGiven_ = false;
  bool isUnreadable_ = false;
  std::optional<std::set<std::string>> definedVariables_;
  std::shared_ptr<const InterfaceFilterSet> filter_;
  std::uint64_t filterGeneration_ = 0;
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_LOOK_UP_H

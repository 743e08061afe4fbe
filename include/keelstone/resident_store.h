#ifndef KEELSTONE_RESIDENT_STORE_H
#define KEELSTONE_RESIDENT_STORE_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/rule_records.h"

namespace keelstone {

class ResidentUnit;

/// Keeps the rules and histories of units (a device, source and parameter of a domain) in
/// memory from run to run. A run whose RunRequest names the store finds there what the runs
/// before it have stored, without a flush and a reading between them; results, rules and
/// histories are those of runs that lie far apart.
///
/// What runs change waits in the store, the newest state of each variable once, and is written
/// by every flush of DBWriteWrapper: its worker's ("CacheTime", "CacheSize", where each row
/// counts that a run has stored), WriteDomain and ForceWriteDisk. All that is written of a unit
/// ends at the same run. Rows that cannot be written are counted like any other, and tried again
/// at the next flush.
///
/// Changes by others count: those of this process (tables, merges, removals, rows of other rule
/// instances) at the unit's next run; those of other processes, and replaced files, within a
/// second. Rows that others have changed stand: what was learned of them and is not written is
/// dropped. All else is written first, and the unit is read again.
///
/// Units that were not used for longest leave when they take more than the budget; what they
/// hold unwritten is written first. Units in the midst of a run, and those that cannot be
/// written, stay.
///
/// Any thread; a unit is one run's at a time, others wait for it. A domain belongs to the first
/// store that is asked for a unit of it. Give back all units before the store ends; it writes
/// what is unwritten then. A child of fork() begins with an empty store.
class KEELSTONE_EXPORT ResidentStore {
 public:
  /// `budget` in bytes, about: rules, histories, names, and the tables that find them.
  explicit ResidentStore(std::size_t budget);
  ~ResidentStore();
  ResidentStore(const ResidentStore&) = delete;
  ResidentStore& operator=(const ResidentStore&) = delete;

  /// The unit for one run (KSRuleInstance::Attach), until the pointer is dropped. What is not in
  /// memory, the run loads into it. Empty where the caller must do without: the domain is
  /// another store's, or this thread has the unit already; all that is unwritten of the domain
  /// is written then. EvaluateRun calls it.
  std::shared_ptr<ResidentUnit> Take(const std::string& domainId, const UnitKey& key);

  /// Loads those of the units that are not in memory and are no run's now, with one opening of
  /// each database, as many as fit well. Others, and those that cannot be loaded this way, their
  /// runs load.
  void LoadAhead(const std::string& domainId, const std::vector<UnitKey>& keys);

  /// Another budget from here on. Units for which there is no room leave, as above.
  void SetBudget(std::size_t budget);
  /// Lets all units go that are written and are no run's now. Writes nothing.
  void LetGo() noexcept;

  /// What is in memory now; a unit that is a run's counts as it was before the run.
  std::size_t bytes() const;
  std::size_t units() const;

 private:
  struct State;
  void Renew(State& old);
  std::shared_ptr<State> state_;
};

}  // namespace keelstone

#endif  // KEELSTONE_RESIDENT_STORE_H

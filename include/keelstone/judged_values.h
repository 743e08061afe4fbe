#ifndef KEELSTONE_JUDGED_VALUES_H
#define KEELSTONE_JUDGED_VALUES_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/mutex.h"
#include "keelstone/run_line.h"

namespace keelstone {

/// The newest value of a variable that was judged.
struct NewestValue {
  std::int64_t time = 0;       // seconds since the epoch
  std::uint64_t identity = 0;  // a number for the value, equal for equal ones
};

/// A number for the interface and the name of a variable within its unit.
KEELSTONE_EXPORT std::uint64_t VariableKeyOf(const VarInfo& variable);

/// What was judged last of each variable of one unit (domain, device, source, param). A
/// variable is forgotten once `reach` values of all units have come after its latest one: so
/// what is known depends on the input alone, and not on when memory is given back. Any thread.
class KEELSTONE_EXPORT UnitMemory {
 public:
  /// What is known of a variable.
  struct Known {
    bool isKnown = false;
    NewestValue newest;
    // Values that came in order of time while the newest one lay ahead of the clock.
    std::uint32_t behindCount = 0;
    std::int64_t behindTime = 0;
  };
  /// What a judged value does to it.
  enum class Step : std::uint8_t {
    kNewest,  // it is the newest, unless a newer one is known
    kBehind,  // it came behind a newest value that lies ahead of the clock
    kReset,   // it is the newest, whatever was known
  };
  /// A value that was judged.
  struct Judged {
    std::uint64_t key = 0;
    NewestValue value;
    Step step = Step::kNewest;
  };

  explicit UnitMemory(std::uint64_t reach);
  ~UnitMemory();
  UnitMemory(const UnitMemory&) = delete;
  UnitMemory& operator=(const UnitMemory&) = delete;

  /// What is known of variables to a run at `position`; one element a key.
  std::vector<Known> Look(const std::vector<std::uint64_t>& keys, std::uint64_t position) const;
  /// Takes down what a run at `position` has judged.
  void Note(const std::vector<Judged>& values, std::uint64_t position);

 private:
  struct Table;
  mutable Mutex mutex_;  // guards the table; innermost
  const std::unique_ptr<Table> table_ KS_PT_GUARDED_BY(mutex_);
};

/// The memories of all units that a host evaluates, of at most about two million variables
/// (twice the reach). Any thread; what is found follows the order of the calls of Of.
class KEELSTONE_EXPORT JudgedValues {
 public:
  /// A run's place: the memory of its unit, and how many values came before.
  struct Place {
    std::shared_ptr<UnitMemory> unit;
    std::uint64_t position = 0;
  };

  static constexpr std::uint64_t kReach = 1U << 20U;
  explicit JudgedValues(std::uint64_t reach = kReach) : reach_(reach) {}

  /// The place of the next run of the input.
  Place Of(const ParsedRun& run);
  /// The same for a run of so many values on the unit with this key (AssignUnitKey).
  Place Of(const std::string& unitKey, std::size_t values);
  /// Forgets everything.
  void Clear();

 private:
  struct Unit {
    std::string key;
    std::shared_ptr<UnitMemory> memory;
    std::uint64_t position = 0;  // of its latest run
  };

  const std::uint64_t reach_;
  Mutex mutex_;                                  // guards what follows; innermost
  std::list<Unit> units_ KS_GUARDED_BY(mutex_);  // latest first
  std::unordered_map<std::string_view, std::list<Unit>::iterator> places_ KS_GUARDED_BY(mutex_);
  std::uint64_t position_ KS_GUARDED_BY(mutex_) = 0;
};

}  // namespace keelstone

#endif  // KEELSTONE_JUDGED_VALUES_H

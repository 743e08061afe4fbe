#ifndef KEELSTONE_BENCH_ENGINE_LOAD_H
#define KEELSTONE_BENCH_ENGINE_LOAD_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "keelstone/cleaner.h"
#include "keelstone/data_cache_queue.h"
#include "keelstone/rule_records.h"
#include "tests/support/domain_files.h"

namespace keelstone::testing {

/// One parser on one device of one domain.
struct LoadUnit {
  std::string device;
  std::string source;
};

/// Parsers that stay, on devices of which each has two.
std::vector<LoadUnit> SteadyUnits(int devices);

/// A domain whose variables have values of every type, which follow from the unit and the
/// number of the run alone. Any thread.
class LoadedDomain {
 public:
  explicit LoadedDomain(const std::string& id);
  ~LoadedDomain();
  LoadedDomain(const LoadedDomain&) = delete;
  LoadedDomain& operator=(const LoadedDomain&) = delete;

  const std::string& id() const { return files_.domainId(); }

  /// One run of a unit: loaded, evaluated, printed, and handed to the write-behind cache.
  /// `isAhead`: the unit is taken from the cache queue where that has it. Answers how many
  /// values were refused.
  int Evaluate(const LoadUnit& unit, int run, bool isAhead = false);
  /// What was handed over before is on disk afterwards.
  void Flush() const;

  // What goes on beside the evaluation: each is one step of it.
  void OverwriteSettings() const;    // with the same content
  void MergeDeliveredRules() const;  // of a device of its own
  void Invalidate() const;
  /// A parser that the cleaner does not know comes and is cleaned away.
  void HaveCleaned(int run);

  /// The rows of both tables as texts, in order, without those of the device `without`.
  std::vector<std::string> Rows(const std::string& without = {}) const;

 private:
  std::string Delivered(EnumDbType type) const;

  DomainFiles files_;
  std::unique_ptr<DomainFiles> delivered_;  // a domain folder to merge from
  KSDataCacheQueue queue_;
  CKSCleaner cleaner_;
};

/// Everything at once on several domains: merges, invalidations, cleanings, flushes of all
/// and of one. Each goes on by a step when the evaluation has gone on, so that none takes
/// all of the disk.
class Disturbance {
 public:
  explicit Disturbance(const std::vector<std::unique_ptr<LoadedDomain>>& domains);
  ~Disturbance() { Stop(); }
  /// The evaluation has gone on. Any thread.
  void Pulse();
  void Stop();
  std::uint64_t steps() const { return steps_; }

 private:
  template <class Step>
  void Repeat(Step step);

  std::atomic<bool> stopping_{false};
  std::atomic<std::uint64_t> pulse_{0};
  std::atomic<std::uint64_t> steps_{0};
  std::vector<std::thread> threads_;
};

/// A root whose write-behind worker flushes every few rows. Before the cache's first use.
void SetTinyCache(const std::string& root);

}  // namespace keelstone::testing

#endif  // KEELSTONE_BENCH_ENGINE_LOAD_H

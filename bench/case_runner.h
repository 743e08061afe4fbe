#ifndef KEELSTONE_BENCH_CASE_RUNNER_H
#define KEELSTONE_BENCH_CASE_RUNNER_H

#include <benchmark/benchmark.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bench/bench_case.h"

namespace keelstone::bench {

/// What the rounds of one case measured; every list has a value a round.
struct CaseResult {
  std::vector<double> ours;
  std::vector<double> reference;
  std::vector<double> ratios;
  std::map<std::string, std::vector<double>> figures;
};

/// Runs cases with Google Benchmark, one after the other in the order of the list: it
/// filters, repeats the rounds, and finds out how often a short round has to be run.
class CaseRunner final : private benchmark::BenchmarkReporter {
 public:
  CaseRunner(const BenchCases& cases, const BenchSettings& settings, int rounds);

  /// Runs what `filter`, a regular expression, finds in the ids; what fails is said on
  /// stderr. True when something ran and nothing failed.
  bool RunCases(const std::string& filter);

  /// Nothing when the case was left out or failed.
  const CaseResult* Result(const BenchCase& one) const;

 private:
  void Register(const BenchCase& one, int rounds);
  void RunRound(const BenchCase& one, benchmark::State& state);
  void Finish();
  void Fail(const std::string& id, const std::string& why);

  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override;

  const BenchCases& cases_;
  const BenchSettings settings_;
  const BenchCase* current_ = nullptr;
  std::optional<Rounds> rounds_;  // of the current case
  std::map<std::string, CaseResult> results_;
  std::set<std::string> failed_;
};

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_CASE_RUNNER_H

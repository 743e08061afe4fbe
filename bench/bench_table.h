#ifndef KEELSTONE_BENCH_BENCH_TABLE_H
#define KEELSTONE_BENCH_BENCH_TABLE_H

#include <string>
#include <utility>
#include <vector>

#include "bench/bench_case.h"
#include "bench/case_runner.h"

namespace keelstone::bench {

/// What the figures hold for: "processor", "Intel …".
using BenchContext = std::vector<std::pair<std::string, std::string>>;

/// The results as tables in Markdown: the ratios with their goals, and below them both
/// sides of each and the plain figures. With `judge` off only what ran is told.
std::string TableText(const BenchCases& cases, const CaseRunner& runner, bool judge);

/// Everything as one JSON document: context, and for each case its row and every round.
std::string JsonText(const BenchContext& context, const BenchCases& cases, const CaseRunner& runner,
                     bool judge);

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_BENCH_TABLE_H

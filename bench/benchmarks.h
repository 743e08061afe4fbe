#ifndef KEELSTONE_BENCH_BENCHMARKS_H
#define KEELSTONE_BENCH_BENCHMARKS_H

#include "bench/learned_domain.h"
#include "bench/work_root.h"

namespace keelstone::bench {

// Each registers its benchmarks; what it is given lives until they have run.

/// The way of one value through the engine beside a JSON round trip of its history.
void RegisterEvaluation(const LearnedDomain& domain, int repetitions);
/// Flushing the write-behind cache, beside the same inserts with SQLite's C interface.
void RegisterFlush(const WorkRoot& root, int repetitions);
/// Loading what is stored of a device, beside the same reads with SQLite's C interface.
void RegisterLoad(const WorkRoot& root, const LearnedDomain& domain, int repetitions);

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_BENCHMARKS_H

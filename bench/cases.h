#ifndef KEELSTONE_BENCH_CASES_H
#define KEELSTONE_BENCH_CASES_H

#include "bench/bench_case.h"

namespace keelstone::bench {

// Each appends its cases; see bench_case.h for what a case is.

/// The way of one value through the engine.
void AddEvaluationCases(BenchCases& cases);
/// Reading and writing history texts.
void AddHistoryCases(BenchCases& cases);
/// What the engine does as a whole: on two threads, and with memory.
void AddEngineCases(BenchCases& cases);
/// Reading and writing JSON documents with the platform's value.
void AddJsonCases(BenchCases& cases);
/// Writing the pending rows.
void AddFlushCases(BenchCases& cases);
/// Loading what is stored of units, one at once or many ahead.
void AddUnitCases(BenchCases& cases);
/// Looking up the pending rows.
void AddPendingCases(BenchCases& cases);
/// Units that stay in memory.
void AddResidentCases(BenchCases& cases);
/// The whole program.
void AddProgramCases(BenchCases& cases);
/// The program with the state of devices in memory.
void AddStateCases(BenchCases& cases);
/// What a value costs among many of something.
void AddGrowthCases(BenchCases& cases);

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_CASES_H

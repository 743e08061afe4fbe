#ifndef KEELSTONE_PROGRAM_EVALUATE_RUN_H
#define KEELSTONE_PROGRAM_EVALUATE_RUN_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "keelstone/domain_snapshot.h"
#include "keelstone/judged_values.h"
#include "keelstone/run_line.h"
#include "keelstone/unit_data.h"

namespace keelstone::host {

/// What one run came to.
struct RunTally {
  std::uint64_t variables = 0;  // handed to the engine
  std::uint64_t rejected = 0;
  std::uint64_t repeated = 0;  // judged before, and not again
  std::uint64_t alerts = 0;
  std::uint64_t goldenValues = 0;
  std::uint64_t rules = 0;
};

/// One run on its way from the reader over a worker to the output.
struct Run {
  ParsedRun parsed;
  std::string unitKey;  // AssignUnitKey
  const DomainSnapshot* domain = nullptr;
  std::size_t bytes = 0;            // length of its line
  std::uint64_t inputPosition = 0;  // bytes of all inputs up to its end

  JudgedValues::Place judged;
  std::unique_ptr<UnitData> data;  // of its unit, when it was loaded ahead
  std::string output;              // what is to be written for it
  RunTally tally;
  bool lacksMemory = false;  // it was not evaluated, or not all of it is stored

  // The scheduler's own: place in the input, whether it is evaluated, next of its unit.
  std::uint64_t sequence = 0;
  bool done = false;
  Run* next = nullptr;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_RUN_H

#ifndef KEELSTONE_PROGRAM_EVALUATE_UNIT_DATA_H
#define KEELSTONE_PROGRAM_EVALUATE_UNIT_DATA_H

#include <memory>
#include <vector>

#include "keelstone/domain.h"
#include "keelstone/rule_records.h"
#include "keelstone/run_evaluation.h"

namespace keelstone::host {

/// Loads units of one domain with one opening of each database; one element a key. Empty
/// where a unit must be loaded by itself: after a read that failed, and for names whose key
/// text may stand for another unit too. Any thread.
std::vector<std::unique_ptr<UnitData>> LoadUnits(const Domain& domain,
                                                 const std::vector<UnitKey>& keys);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_UNIT_DATA_H

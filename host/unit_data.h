#ifndef KEELSTONE_HOST_UNIT_DATA_H
#define KEELSTONE_HOST_UNIT_DATA_H

#include <memory>
#include <vector>

#include "engine/ksrulerecords.h"

namespace keelstone::host {

struct Domain;

/// What the databases hold of one unit at a moment when nothing of it is pending.
struct UnitData {
  DevParserRule rules;
  DevParserHistory histories;
};

/// Loads units of one domain with one opening of each database; one element a key. Empty
/// where a unit must be loaded by itself: after a read that failed, and for names whose key
/// text may stand for another unit too. Any thread.
std::vector<std::unique_ptr<UnitData>> LoadUnits(const Domain& domain,
                                                 const std::vector<UnitKey>& keys);

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_UNIT_DATA_H

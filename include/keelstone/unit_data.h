#ifndef KEELSTONE_UNIT_DATA_H
#define KEELSTONE_UNIT_DATA_H

#include <memory>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/object_rule_table.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// What the databases hold of one unit at a moment when nothing of it is pending.
struct KEELSTONE_EXPORT UnitData {
  DevParserRule rules;
  DevParserHistory histories;
};

/// Loads units of one domain with one opening of each database; one element a key. Empty
/// where a unit must be loaded by itself: after a read that failed, where there is no rule
/// table, and for names whose key text may stand for another unit too. Any thread.
KEELSTONE_EXPORT std::vector<std::unique_ptr<UnitData>> LoadUnits(KSObjectRuleSql& table,
                                                                  const std::vector<UnitKey>& keys);

}  // namespace keelstone

#endif  // KEELSTONE_UNIT_DATA_H

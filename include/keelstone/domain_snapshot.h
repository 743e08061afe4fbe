#ifndef KEELSTONE_DOMAIN_SNAPSHOT_H
#define KEELSTONE_DOMAIN_SNAPSHOT_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "keelstone/data_manager.h"
#include "keelstone/export.h"
#include "keelstone/rule_records.h"
#include "keelstone/run_line.h"

namespace keelstone {

/// A domain as the evaluation of its runs needs it; fixed once it is made.
struct KEELSTONE_EXPORT DomainSnapshot {
  std::string id;
  std::shared_ptr<KSDataManagerSql> data;  // empty when the domain is not usable
  bool usable = true;                      // else all values of its runs are rejected
  bool engineOn = true;
  bool definesNothing = false;       // there are no variable rules
  std::int64_t tableRowLimit = 0;    // a table with more rows is rejected
  std::int64_t stringLineLimit = 0;  // a string with more lines is rejected

  /// The domain with its switch and limits as they are now. Reads its databases when it is
  /// the first to ask for them. Any thread.
  static DomainSnapshot Of(const std::string& id);
};

/// The definition that enrolls a variable of a source: enabled, without a rule yet, of the
/// type code that the variable has.
KEELSTONE_EXPORT RuleDefinitionData NewDefinition(const std::string& source,
                                                  const VarInfo& variable);

/// Definitions for the variables of the run that have none, each name once. Any thread.
KEELSTONE_EXPORT std::vector<RuleDefinitionData> MissingDefinitions(const ParsedRun& run,
                                                                    const KSDataManagerSql& data);

}  // namespace keelstone

#endif  // KEELSTONE_DOMAIN_SNAPSHOT_H

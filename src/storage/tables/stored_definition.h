#ifndef KEELSTONE_STORAGE_TABLES_STORED_DEFINITION_H
#define KEELSTONE_STORAGE_TABLES_STORED_DEFINITION_H

#include <cstdint>
#include <memory>
#include <string_view>

#include "keelstone/rule_records.h"

namespace keelstone {

/// What a row of the rule table keeps of a definition, and so what reading it back gives:
/// everything else has its default, the history is in a table of its own.
inline std::shared_ptr<RuleDefinitionData> StoredDefinition(std::int32_t ruleType,
                                                            std::string_view ruleParam,
                                                            std::int32_t generateType,
                                                            std::int32_t variableType) {
  auto definition = std::make_shared<RuleDefinitionData>();
  definition->ruleType = ruleType;
  definition->ruleParam = ruleParam;
  definition->ruleGenerateType = generateType;
  definition->variableType = variableType;
  return definition;
}

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_TABLES_STORED_DEFINITION_H

#ifndef KEELSTONE_STORAGE_OBJECT_RULE_TABLES_H
#define KEELSTONE_STORAGE_OBJECT_RULE_TABLES_H

#include "platform/filesystem.h"
#include "storage/table_frame.h"

/// What the sources of KSObjectRuleSql share about its two tables.
namespace keelstone {

inline constexpr const char* kRuleTable = "KSObjectRule";
inline constexpr const char* kHistoryTable = "KSObjectHistory";
inline constexpr const char* kObjectRuleSource = "ksobjectrulesql";

constexpr TableOperation RuleOperation(const char* function,
                                       TableAccess access = TableAccess::kRead) {
  return {.table = kRuleTable,
          .dbType = kDbObjectRule,
          .function = function,
          .source = kObjectRuleSource,
          .access = access};
}

constexpr TableOperation HistoryOperation(const char* function,
                                          TableAccess access = TableAccess::kRead) {
  return {.table = kHistoryTable,
          .dbType = kDbObjectHistory,
          .function = function,
          .source = kObjectRuleSource,
          .access = access};
}

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_OBJECT_RULE_TABLES_H

#ifndef KEELSTONE_STORAGE_TABLES_OBJECT_RULE_SCHEMA_H
#define KEELSTONE_STORAGE_TABLES_OBJECT_RULE_SCHEMA_H

#include "keelstone/database_files.h"
#include "storage/tables/table_frame.h"

/// What the sources of KSObjectRuleSql share about its two tables.
namespace keelstone {

inline constexpr const char* kRuleTable = "KSObjectRule";
inline constexpr const char* kHistoryTable = "KSObjectHistory";
inline constexpr const char* kObjectRuleSource = "ksobjectrulesql";

// The rule table; {0} is its name.
inline constexpr const char* kCreateRules =
    "create table {0} (deviceName TEXT NOT NULL ,interfaceValue TEXT ,variableSource TEXT NOT "
    "NULL ,param TEXT ,variableName TEXT NOT NULL ,variableSourceType INTEGER NOT NULL "
    ",variableDataType INTEGER NOT NULL ,interfacePath TEXT ,vxNodePathSchema TEXT NOT NULL "
    ",ruleGenerateType INTEGER NOT NULL ,ruleTypeId INTEGER NOT NULL ,ruleAlgParameter TEXT "
    ",isEnable INTEGER NOT NULL ,isDel INTEGER NOT NULL,PRIMARY "
    "KEY(deviceName,interfaceValue,variableSource,param,variableName,variableSourceType))";

// A unit is found by its device, source and param; the primary key would lead through all
// rows of the device. The interface is there for the queries of one object, which would
// else lead through all rows of its unit. {0}: the schema.
inline constexpr const char* kRuleIndex = "KSObjectRuleByUnit";
inline constexpr const char* kHistoryIndex = "KSObjectHistoryByUnit";
inline constexpr const char* kIndexRules =
    "create index if not exists {0}.KSObjectRuleByUnit on KSObjectRule "
    "(deviceName,variableSource,param,variableSourceType,interfaceValue)";
inline constexpr const char* kIndexHistories =
    "create index if not exists {0}.KSObjectHistoryByUnit on KSObjectHistory "
    "(deviceName,variableSource,param,variableSourceType,interfaceValue)";

constexpr TableOperation RuleOperation(const char* function,
                                       TableAccess access = TableAccess::kRead) {
  return {.table = kRuleTable,
          .dbType = kDbObjectRule,
          .function = function,
          .source = kObjectRuleSource,
          .access = access,
          .indexSql = kIndexRules};
}

constexpr TableOperation HistoryOperation(const char* function,
                                          TableAccess access = TableAccess::kRead) {
  return {.table = kHistoryTable,
          .dbType = kDbObjectHistory,
          .function = function,
          .source = kObjectRuleSource,
          .access = access,
          .indexSql = kIndexHistories};
}

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_TABLES_OBJECT_RULE_SCHEMA_H

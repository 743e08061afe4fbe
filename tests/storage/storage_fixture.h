#ifndef KEELSTONE_TESTS_STORAGE_STORAGE_FIXTURE_H
#define KEELSTONE_TESTS_STORAGE_STORAGE_FIXTURE_H

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "keelstone/cppsqlite3.h"
#include "keelstone/database_files.h"
#include "keelstone/filesystem.h"
#include "keelstone/rule_records.h"
#include "keelstone/table_base.h"

namespace keelstone::testing {

/// The rule table as a domain's initialisation makes it.
inline constexpr const char* kCreateRuleTable =
    "create table KSObjectRule (deviceName TEXT NOT NULL ,interfaceValue TEXT ,variableSource "
    "TEXT NOT NULL ,param TEXT ,variableName TEXT NOT NULL ,variableSourceType INTEGER NOT NULL "
    ",variableDataType INTEGER NOT NULL ,interfacePath TEXT ,vxNodePathSchema TEXT NOT NULL "
    ",ruleGenerateType INTEGER NOT NULL ,ruleTypeId INTEGER NOT NULL ,ruleAlgParameter TEXT "
    ",isEnable INTEGER NOT NULL ,isDel INTEGER NOT NULL,PRIMARY "
    "KEY(deviceName,interfaceValue,variableSource,param,variableName,variableSourceType))";

inline void Execute(const std::string& file, const std::vector<std::string>& statements) {
  std::filesystem::create_directories(std::filesystem::path(file).parent_path());
  CppSQLite3DB db;
  db.open(file);
  for (const std::string& sql : statements) db.execDML(sql);
}

/// The first column of the first row as text; "" without a row.
inline std::string Ask(const std::string& file, const std::string& sql) {
  CppSQLite3DB db;
  db.open(file, CppSQLite3DB::Mode::kReadWrite);
  auto statement = db.compileStatement(sql);
  const auto query = statement.execQuery();
  return query.eof() ? "" : std::string(query.getStringField(0));
}

/// A settings table with these texts in its column "data", ids counting from 1.
inline void MakeDataTable(const std::string& file, const std::string& table,
                          const std::vector<std::string>& rows) {
  Execute(file, {"drop table if exists " + table,
                 "create table " + table + " (id INTEGER PRIMARY KEY, data TEXT)"});
  CppSQLite3DB db;
  db.open(file);
  for (const std::string& row : rows) {
    auto insert = db.compileStatement("insert into " + table + " (data) values(?)");
    insert.bind(1, row);
    insert.execDML();
  }
}

/// The file of a domain's database below the parser process's folder.
inline std::string DomainFile(int dbType, const std::string& domainId) {
  return FSResFileSystem(VXFileSystem::GetSystemRootFolder() + "data/FSParserData")
      .GetDBFile(dbType, domainId);
}

inline void MakeRuleTable(const std::string& domainId) {
  Execute(DomainFile(kDbObjectRule, domainId), {kCreateRuleTable});
}

inline ObjectDefine Object(const std::string& device, const std::string& interface = "") {
  ObjectDefine object;
  object.deviceName = device;
  object.interfaceValue = interface;
  object.interfacePath = "path of " + interface;
  object.nodePathSchema = "schema";
  return object;
}

inline std::shared_ptr<RuleDefinitionData> Definition(const std::string& param,
                                                      const std::string& history = "") {
  auto definition = std::make_shared<RuleDefinitionData>(kIntRange, kRuleLearned, param);
  definition->variableType = 1;
  definition->history = history;
  return definition;
}

/// A row of one definition.
inline ObjectRuleData RuleRow(const std::string& device, const std::string& variable,
                              std::shared_ptr<RuleDefinitionData> definition,
                              const std::string& interface = "") {
  return {{{variable, std::move(definition)}},
          Object(device, interface),
          "source",
          "param",
          kVariableSourceParser};
}

inline ObjectRuleHistoryData HistoryRow(const std::string& device, const std::string& variable,
                                        const std::string& history,
                                        const std::string& interface = "") {
  return {history, Object(device, interface), "source", variable, "param", kVariableSourceParser};
}

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_STORAGE_STORAGE_FIXTURE_H

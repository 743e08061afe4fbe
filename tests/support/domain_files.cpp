#include "tests/support/domain_files.h"

#include <filesystem>
#include <utility>

#include "keelstone/cppsqlite3.h"
#include "keelstone/filesystem.h"
#include "keelstone/json_value.h"

namespace keelstone::testing {

namespace {

FSResFileSystem Files() {
  return FSResFileSystem(VXFileSystem::GetSystemRootFolder() + "data/FSParserData");
}

}  // namespace

DomainFiles::DomainFiles(std::string domainId) : domainId_(std::move(domainId)) {
  std::filesystem::create_directories(Files().GetDomainFolder(domainId_));
  for (const auto& [type, table] : {std::pair{kDbGlobalSetting, "KSGlobalSetting"},
                                    std::pair{kDbVariableRule, "KSVariableRule"},
                                    std::pair{kDbBlockSetting, "KSBlockSetting"}}) {
    Execute(type, std::string("create table ") + table + " (id INTEGER PRIMARY KEY, data TEXT)");
  }
  const std::string key =
      "deviceName TEXT NOT NULL, interfaceValue TEXT, variableSource TEXT NOT NULL, param TEXT, "
      "variableName TEXT NOT NULL, variableSourceType INTEGER NOT NULL, ";
  const std::string primary =
      ", PRIMARY KEY(deviceName, interfaceValue, variableSource, param, variableName, "
      "variableSourceType))";
  Execute(kDbObjectRule,
          "create table KSObjectRule (" + key +
              "variableDataType INTEGER NOT NULL, interfacePath TEXT, vxNodePathSchema TEXT NOT "
              "NULL, ruleGenerateType INTEGER NOT NULL, ruleTypeId INTEGER NOT NULL, "
              "ruleAlgParameter TEXT, isEnable INTEGER NOT NULL, isDel INTEGER NOT NULL" +
              primary);
  Execute(kDbObjectHistory, "create table KSObjectHistory (" + key + "HistoryData TEXT" + primary);
}

std::string DomainFiles::Path(EnumDbType type) const { return Files().GetDBFile(type, domainId_); }

void DomainFiles::SetGlobal(const std::string& name, const std::string& value) {
  Execute(kDbGlobalSetting,
          "delete from KSGlobalSetting where data like '{\"name\":\"" + name + "\"%'");
  InsertData(kDbGlobalSetting, "KSGlobalSetting",
             "{\"name\":" + JsonValue(name).toString() + ",\"value\":" + value + "}");
}

void DomainFiles::AddVariableRule(const VariableRule& rule) {
  JsonValue data(JsonType::Object);
  data["variableSource"] = rule.source;
  data["variableName"] = rule.name;
  data["param"] = "";
  data["variableSourceType"] = 2;
  data["ruleTypeId"] = rule.ruleType;
  data["ruleAlgParameter"] = rule.param;
  data["variableDataType"] = rule.dataType;
  data["isCustomerEnable"] = rule.customerEnable;
  data["isInitialEnable"] = rule.initialEnable;
  InsertData(kDbVariableRule, "KSVariableRule", data.toString());
}

void DomainFiles::AddBlock(const std::vector<std::string>& devices, std::int64_t start,
                           std::int64_t end) {
  JsonValue data(JsonType::Object);
  data["nodes"] = JsonValue(JsonType::Array);
  for (const std::string& device : devices) {
    JsonValue node(JsonType::Object);
    node["deviceName"] = device;
    data["nodes"].append(node);
  }
  data["blockTimeStart"] = start;
  data["blockTimeEnd"] = end;
  InsertData(kDbBlockSetting, "KSBlockSetting", data.toString());
}

void DomainFiles::Execute(EnumDbType type, const std::string& sql) {
  CppSQLite3DB db;
  db.open(Path(type));
  db.execDML("PRAGMA synchronous=OFF");
  db.execDML(sql);
}

std::vector<std::string> DomainFiles::Select(EnumDbType type, const std::string& sql) const {
  CppSQLite3DB db;
  db.open(Path(type));
  CppSQLite3Statement statement = db.compileStatement(sql);
  std::vector<std::string> rows;
  for (CppSQLite3Query row = statement.execQuery(); !row.eof(); row.nextRow()) {
    rows.emplace_back(row.getStringField(0));
  }
  return rows;
}

DomainFiles DomainFiles::CopyAs(const std::string& domainId) const {
  std::filesystem::copy(Files().GetDomainFolder(domainId_), Files().GetDomainFolder(domainId));
  return DomainFiles(domainId, Existing());
}

void DomainFiles::InsertData(EnumDbType type, const std::string& table, const std::string& data) {
  CppSQLite3DB db;
  db.open(Path(type));
  db.execDML("PRAGMA synchronous=OFF");
  CppSQLite3Statement insert = db.compileStatement("insert into " + table + " (data) values(?)");
  insert.bind(1, data);
  insert.execDML();
}

}  // namespace keelstone::testing

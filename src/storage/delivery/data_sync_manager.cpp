#include "keelstone/data_sync_manager.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <exception>
#include <memory>

#include "base/text/strings.h"
#include "keelstone/database_files.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/filesystem.h"
#include "keelstone/interface_translator.h"
#include "keelstone/logger.h"
#include "keelstone/write_behind.h"
#include "storage/delivery/database_overwrite.h"
#include "storage/load/unit_changes.h"
#include "storage/resource_adaptor.h"
#include "storage/tables/data_rows.h"
#include "storage/tables/deferred_log.h"
#include "storage/tables/note_failure.h"
#include "storage/tables/object_rule_schema.h"

namespace keelstone {

namespace {

constexpr const char* kSource = "fs_ksdatasyncmanager";
constexpr const char* kMergeFunction = "FSKSDataSyncManager::MergeObjectRule";
constexpr const char* kSettingColumns = "data";
constexpr const char* kRuleColumns =
    "deviceName, interfaceValue, variableSource, param, variableName, variableSourceType, "
    "variableDataType, interfacePath, vxNodePathSchema, ruleGenerateType, ruleTypeId, "
    "ruleAlgParameter, isEnable, isDel";
constexpr int kRuleColumnCount = 14;
constexpr int kRuleKeyColumns = 6;  // the first ones

// By name: a table with its columns in another order gives the same rows.
constexpr const char* kSelectRules = "select {0} from KSObjectRule";
constexpr const char* kDeleteRule =
    "delete from KSObjectRule where deviceName = ? and interfaceValue = ? and variableSource = ? "
    "and param = ? and variableName = ? and variableSourceType = ?";
constexpr const char* kInsertRule =
    "insert into KSObjectRule ({0}) values(?,?,?,?,?,?,?,?,?,?,?,?,?,?)";

constexpr TableOperation kMerge{.table = kRuleTable,
                                .dbType = kDbObjectRule,
                                .function = kMergeFunction,
                                .source = kSource,
                                .access = TableAccess::kCreate};

constexpr bool IsNumberColumn(int column) {
  return column == 5 || column == 6 || column == 9 || column == 10 || column >= 12;
}

// NULL is a number here: it is taken over as 0.
bool HoldsNumber(const CppSQLite3Query& row, int column) {
  if (row.fieldIsNull(column)) return true;
  const std::string_view text = row.getStringField(column);
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

std::string RuleRowFault(CppSQLite3DB& source) {
  auto select = source.compileStatement(FormatPositional(kSelectRules, {kRuleColumns}));
  std::int64_t place = 1;
  for (auto row = select.execQuery(); !row.eof(); row.nextRow(), ++place) {
    for (int column = 0; column < kRuleColumnCount; ++column) {
      if (!IsNumberColumn(column) || HoldsNumber(row, column)) continue;
      return "row " + std::to_string(place) + " of " + kRuleTable + ": its column " +
             row.fieldName(column) + " holds \"" + std::string(row.getStringField(column)) +
             "\", which is no whole number of 32 bits";
    }
  }
  return {};
}

DeliveredTable ExpectedTable(int dbType) {
  switch (dbType) {
    case kDbGlobalSetting:
      return {"KSGlobalSetting", kSettingColumns, [](CppSQLite3DB& source) {
                return DataRowFault(source, "KSGlobalSetting", KSGlobalSettingSql::RequireRow);
              }};
    case kDbVariableRule:
      return {"KSVariableRule", kSettingColumns, [](CppSQLite3DB& source) {
                return DataRowFault(source, "KSVariableRule", KSVariableRuleSql::RequireRow);
              }};
    case kDbBlockSetting:
      return {"KSBlockSetting", kSettingColumns, [](CppSQLite3DB& source) {
                return DataRowFault(source, "KSBlockSetting", KSBlockSettingSql::RequireRow);
              }};
    case kDbObjectRule:
      return {kRuleTable, kRuleColumns, RuleRowFault};
    default:
      return {"KSInterfaceType", kSettingColumns};
  }
}

void BindColumn(CppSQLite3Statement& statement, const CppSQLite3Query& row, int column) {
  if (IsNumberColumn(column)) {
    statement.bind(column + 1, row.getIntField(column));
  } else {
    statement.bindStatic(column + 1, row.getStringField(column));  // until the next row
  }
}

void CopyRow(const CppSQLite3Query& row, CppSQLite3Statement& remove, CppSQLite3Statement& insert) {
  for (int column = 0; column < kRuleKeyColumns; ++column) BindColumn(remove, row, column);
  remove.execDML();
  for (int column = 0; column < kRuleColumnCount; ++column) BindColumn(insert, row, column);
  insert.execDML();
  insert.reset();
  remove.reset();
}

void MergeRows(CppSQLite3DB& source, CppSQLite3DB& destination, const std::string& to) {
  // At once for writing, so that another writer is waited for.
  destination.execDML("begin immediate transaction;");
  FSKSDataSyncManager::CreateObjectRule(destination, to);
  {
    auto select = source.compileStatement(FormatPositional(kSelectRules, {kRuleColumns}));
    auto remove = destination.compileStatement(kDeleteRule);
    auto insert = destination.compileStatement(FormatPositional(kInsertRule, {kRuleColumns}));
    for (auto row = select.execQuery(); !row.eof(); row.nextRow()) CopyRow(row, remove, insert);
  }
  destination.execDML("commit transaction;");
  destination.execDML("VACUUM;");
}

// A merge that failed leaves no empty file behind where none was.
void RemoveIfEmpty(CppSQLite3DB& db, const std::string& file) {
  struct stat status = {};
  if (!db.isOpen() || ::stat(file.c_str(), &status) != 0 || status.st_size != 0) return;
  try {
    db.execDML("begin exclusive transaction;");  // another process may be filling it
    if (::stat(file.c_str(), &status) == 0 && status.st_size == 0) ::unlink(file.c_str());
  } catch (const CppSQLite3Exception&) {
    return;  // in use by another process, whose file it is now
  }
}

bool MergeRuleDatabase(const std::string& from, const std::string& to,
                       const std::string& domainId) {
  DeferredLog log(kMergeFunction, kSource);  // goes after the lock
  const auto record = FSResourceAdaptor::Instance().RegisterTable(GuidFromText(domainId),
                                                                  kDbObjectRule, kDbObjectRule);
  CppSQLite3DB source;
  CppSQLite3DB destination;
  const MutexLock lock(record->mutex);
  const bool isNew = PathError(to) == ENOENT;
  const bool merged = TableFrame::Attempt(destination, kMerge, log, [&] {
    try {
      OpenDelivered(source, from, to, ExpectedTable(kDbObjectRule));
    } catch (const DeliveryError& error) {
      throw DeliveryError(from + ": " + error.what());
    }
    if (!MakeParentFolders(to)) throw DeliveryError("the folder of " + to + " cannot be made");
    destination.open(to);
    destination.requireKnownSchema();
    MergeRows(source, destination, to);
  });
  if (!merged && isNew) RemoveIfEmpty(destination, to);
  return merged;
}

// What lies outside the databases (memory that cannot be had, say) ends here too.
template <class Step>
bool Guarded(const char* module, const char* function, const Step& step) {
  try {
    if (step()) return true;
  } catch (const std::exception& error) {
    NoteFailure({}, function, error.what());
    KS_LOG(module, function, kSource, kLogError, "c++ exception in rw:%s.", error.what());
  } catch (...) {
    KS_LOG(module, function, kSource, kLogError, "unkown error.");
  }
  CountFailedWrite();
  return false;
}

std::shared_ptr<KSDataManagerSql> ManagerOf(const std::string& domainId) {
  return KSDomainDataManager::Instance()->GetKSDataManager(domainId);
}

}  // namespace

FSKSDataSyncManager* FSKSDataSyncManager::Instance() {
  static auto* const instance = new FSKSDataSyncManager;
  return instance;
}

bool FSKSDataSyncManager::MergeGlobalSetting(const std::string& from, const std::string& to,
                                             const std::string& domainId, bool invalidate) {
  if (!OverWriteDBFile(from, to, domainId, kDbGlobalSetting, kDbGlobalSetting)) return false;
  if (invalidate) InvalidateKSGlobalSettingCaches(domainId);
  return true;
}

bool FSKSDataSyncManager::MergeVariableRule(const std::string& from, const std::string& to,
                                            const std::string& domainId, bool invalidate) {
  if (!OverWriteDBFile(from, to, domainId, kDbVariableRule, kDbVariableRule)) return false;
  if (invalidate) InvalidateKSVariableRuleCaches(domainId);
  return true;
}

bool FSKSDataSyncManager::MergeBlockSetting(const std::string& from, const std::string& to,
                                            const std::string& domainId, bool invalidate) {
  if (!OverWriteDBFile(from, to, domainId, kDbBlockSetting, kDbBlockSetting)) return false;
  if (invalidate) InvalidateKSBlockSettingCaches(domainId);
  return true;
}

bool FSKSDataSyncManager::MergeInterfaceType(const std::string& from, const std::string& to,
                                             const std::string& domainId, bool invalidate) {
  if (!OverWriteDBFile(from, to, domainId, kDbInterfaceType, kDbInterfaceType)) return false;
  if (invalidate) InvalidateInterfaceTypeCaches(domainId, to);
  return true;
}

bool FSKSDataSyncManager::MergeObjectRule(const std::string& from, const std::string& to,
                                          const std::string& domainId, bool invalidate) {
  KS_LOG("FS_Keelstone", kMergeFunction, kSource, kLogInformation, "Start Merge KSObjectRule db.");
  const bool merged = Guarded("FS_Keelstone", kMergeFunction, [&] {
    // Before the lock is taken: what was learned before the merge is merged into.
    DBWriteWrapper::Instance()->WriteDomain(domainId);
    return MergeRuleDatabase(from, to, domainId);
  });
  NoteChangeOfAllUnits();
  if (merged && invalidate) InvalidateKSObjectRuleCaches(domainId);
  return merged;
}

std::string FSKSDataSyncManager::DeliveryFault(const std::string& from, const std::string& to,
                                               int dbType, std::int64_t* rows) {
  try {
    CppSQLite3DB source;
    const DeliveredTable expected = ExpectedTable(dbType);
    OpenDelivered(source, from, to, expected);
    if (rows != nullptr) {
      auto count = source.compileStatement(std::string("select count(*) from ") + expected.table);
      *rows = count.execQuery().getInt64Field(0);
    }
    return {};
  } catch (const CppSQLite3Exception& error) {
    return error.errorMessage();
  } catch (const std::exception& error) {
    return error.what();
  }
}

void FSKSDataSyncManager::InvalidateKSGlobalSettingCaches(const std::string& domainId) {
  ManagerOf(domainId)->InvalidateKSGlobalSettingCaches();
}

void FSKSDataSyncManager::InvalidateKSVariableRuleCaches(const std::string& domainId) {
  ManagerOf(domainId)->InvalidateKSVariableRuleCaches();
}

void FSKSDataSyncManager::InvalidateKSObjectRuleCaches(const std::string& domainId) {
  ManagerOf(domainId)->InvalidateKSObjectRuleCaches();
}

void FSKSDataSyncManager::InvalidateKSBlockSettingCaches(const std::string& domainId) {
  ManagerOf(domainId)->InvalidateKSBlockSettingCaches();
}

void FSKSDataSyncManager::InvalidateInterfaceTypeCaches(const std::string& domainId,
                                                        const std::string& path) {
  InterfaceTranslator::Instance()->LoadDataFromDB(domainId, path);
}

void FSKSDataSyncManager::CreateObjectRule(CppSQLite3DB& db, const std::string& dbPath) {
  if (db.tableExists(kRuleTable)) return;
  DeferredLog log("FSKSDataSyncManager::CreateObjectRule", kSource);
  const std::string where = std::string(kRuleTable) + " table in " + dbPath + " db";
  log.Add(kLogNotice, __LINE__, "No ", where.c_str(), ".");
  db.execDML(FormatPositional(kCreateRules, {kRuleTable}));
  db.execDML(FormatPositional(kIndexRules, {"main"}));
  log.Add(kLogNotice, __LINE__, "", where.c_str(), " has been created.");
}

bool FSKSDataSyncManager::OverWriteDBFile(const std::string& from, const std::string& to,
                                          const std::string& domainId, int dbType, int tableType) {
  constexpr const char* kModule = "FS_AllRD";
  constexpr const char* kFunction = "FSKSDataSyncManager::OverWriteDBFile";
  return Guarded(kModule, kFunction, [&] {
    const auto record =
        FSResourceAdaptor::Instance().RegisterTable(GuidFromText(domainId), dbType, tableType);
    if (record == nullptr) {
      KS_LOG(kModule, kFunction, kSource, kLogError, "%d has not registered.", dbType);
      return false;
    }
    std::string failure;
    CppSQLite3DB source;
    try {
      const MutexLock lock(record->mutex);
      OverwriteDatabase(source, from, to, ExpectedTable(dbType));
      return true;
    } catch (const CppSQLite3Exception& error) {
      failure = error.file().empty() ? "" : error.file() + ": ";
      failure += error.errorMessage();
    } catch (const DeliveryError& error) {
      failure = error.what();
    }
    NoteFailure({}, kFunction, failure);
    KS_LOG(kModule, kFunction, kSource, kLogError,
           "Failed to copy database from %s to %s, error: %s", from.c_str(), to.c_str(),
           failure.c_str());
    return false;
  });
}

}  // namespace keelstone

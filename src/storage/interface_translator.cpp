#include "keelstone/interface_translator.h"

#include <stdexcept>
#include <utility>

#include "keelstone/database_files.h"
#include "keelstone/json_reader.h"
#include "keelstone/logger.h"
#include "storage/tables/table_frame.h"

namespace keelstone {

namespace {

constexpr const char* kModule = "FS_Keelstone";
constexpr const char* kFunction = "InterfaceTranslator::LoadDataFromDB";
constexpr const char* kSource = "interface_translator";
constexpr const char* kTable = "KSInterfaceType";
constexpr const char* kSelect = "select data from KSInterfaceType";
constexpr TableOperation kLoad{.table = kTable,
                               .dbType = kDbInterfaceType,
                               .function = kFunction,
                               .source = kSource,
                               .access = TableAccess::kAsk};

// Reads one row into `names`; false when it holds no name.
bool TakeRow(std::string_view text, std::unordered_map<std::string, std::string>& names) {
  JsonValue row;
  if (!JsonReader::Parse(text, row)) return false;
  const JsonValue* name = row.find("name");
  const JsonValue* alias = row.find("alias");
  if (name == nullptr || !name->isString() || alias == nullptr || !alias->isString()) return false;
  names.insert_or_assign(name->stringRef(), alias->stringRef());
  return true;
}

// How many rows were passed over.
int ReadNames(CppSQLite3DB& db, std::unordered_map<std::string, std::string>& names) {
  auto statement = db.compileStatement(kSelect);
  int refused = 0;
  for (auto query = statement.execQuery(); !query.eof(); query.nextRow()) {
    if (!TakeRow(query.getStringField(0), names)) ++refused;
  }
  return refused;
}

}  // namespace

InterfaceTranslator* InterfaceTranslator::Instance() {
  static auto* const instance = new InterfaceTranslator;
  return instance;
}

bool InterfaceTranslator::LoadDataFromDB(const std::string& domainId, const std::string& path) {
  int refused = 0;
  try {
    auto names = std::make_shared<Names>();
    TableFault fault;
    const MutexLock load(loadMutex_);
    const TableOutcome outcome = TableFrame::RunAt(
        domainId, path, kLoad, [&](CppSQLite3DB& db) { refused = ReadNames(db, *names); }, &fault);
    if (IsFailure(outcome)) throw std::runtime_error(fault.message);
    const WriterLock lock(mutex_);
    domains_[domainId] = std::move(names);
  } catch (const std::exception& error) {
    KS_LOG(kModule, kFunction, kSource, kLogError, "The interface names in %s cannot be read: %s",
           path.c_str(), error.what());
    return false;
  }
  if (refused != 0) {
    KS_LOG(kModule, kFunction, kSource, kLogError, "%s: %d rows of %s hold no name.", path.c_str(),
           refused, kTable);
  }
  return true;
}

std::string InterfaceTranslator::Translate(const std::string& domainId,
                                           const std::string& name) const {
  std::shared_ptr<const Names> names;
  {
    const ReaderLock lock(mutex_);
    const auto domain = domains_.find(domainId);
    if (domain == domains_.end()) return name;
    names = domain->second;
  }
  const auto found = names->find(name);
  return found != names->end() ? found->second : name;
}

}  // namespace keelstone

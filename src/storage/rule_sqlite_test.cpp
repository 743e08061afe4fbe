#include "keelstone/rule_sqlite_test.h"

#include <algorithm>
#include <exception>

#include "keelstone/filesystem.h"

namespace keelstone {

namespace {

constexpr const char* kTable = "KSGoldenValue";
constexpr const char* kCreate =
    "create table KSGoldenValue (\t\t   'id' INTEGER PRIMARY KEY AUTOINCREMENT,\t\t   'domain' "
    "TEXT "
    "NOT NULL,\t\t   'parser' TEXT NOT NULL,\t\t   'devName' TEXT NOT NULL,\t\t   'varName' TEXT "
    "NOT NULL,\t\t   'goldenValue' TEXT NOT NULL,\t\t   'liveTime' NUMERIC NOT NULL \t\t   )";
constexpr const char* kInsert =
    "insert or replace into KSGoldenValue (domain, parser, devName, varName, goldenValue, "
    "liveTime) \t\t\tvalues(?,?,?,?,?,?)";

// The texts of the path are written with backslashes; the root folder stands as it is.
std::string FileIn(const std::string& folder) {
  std::string below = "data\\FSParserData\\" + folder + "\\KSGoldenValue.db";
  std::replace(below.begin(), below.end(), '\\', '/');
  return VXFileSystem::GetSystemRootFolder() + below;
}

}  // namespace

TestKSRuleSqlit::TestKSRuleSqlit(const std::string& folder) : file_(FileIn(folder)) {}

std::string TestKSRuleSqlit::CreateTableString() { return kCreate; }

bool TestKSRuleSqlit::InitTable() {
  const MutexLock lock(mutex_);
  return InitTableLocked();
}

bool TestKSRuleSqlit::InitTableLocked() {
  try {
    if (!db_.isOpen()) {
      if (!MakeParentFolders(file_)) return false;
      db_.open(file_);
    }
    if (!db_.tableExists(kTable)) db_.execDML(CreateTableString());
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

void TestKSRuleSqlit::Insert(const std::string& domain, const std::string& parser,
                             const std::string& deviceName, const std::string& variableName,
                             const std::string& goldenValue, std::int64_t liveTime) {
  db_.execDML("begin transaction;");
  try {
    auto statement = db_.compileStatement(kInsert);
    int parameter = 0;
    for (const auto* text : {&domain, &parser, &deviceName, &variableName, &goldenValue}) {
      statement.bindStatic(++parameter, *text);
    }
    statement.bind(++parameter, liveTime);
    statement.execDML();
  } catch (const std::exception&) {
    db_.execDML("commit transaction;");
    throw;
  }
  db_.execDML("commit transaction;");
}

void TestKSRuleSqlit::SaveGoldenValue(const std::string& domain, const std::string& parser,
                                      const std::string& deviceName,
                                      const std::string& variableName,
                                      const std::string& goldenValue, std::int64_t liveTime) {
  const MutexLock lock(mutex_);
  try {
    if (InitTableLocked()) {
      Insert(domain, parser, deviceName, variableName, goldenValue, liveTime);
    }
  } catch (const std::exception&) {
    // A tester's database: nothing depends on it.
  }
  db_.close();
}

}  // namespace keelstone

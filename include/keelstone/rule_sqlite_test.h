#ifndef KEELSTONE_RULE_SQLITE_TEST_H
#define KEELSTONE_RULE_SQLITE_TEST_H

#include <cstdint>
#include <string>

#include "keelstone/cppsqlite3.h"
#include "keelstone/export.h"
#include "keelstone/mutex.h"

namespace keelstone {

/// Writes golden values into a database of its own (table "KSGoldenValue"), so that a
/// tester can look at what was learned. (The name is part of the interface.) Any thread.
class KEELSTONE_EXPORT TestKSRuleSqlit {
 public:
  /// The file is KSGoldenValue.db in the folder data/FSParserData/`folder` below the system
  /// root folder; backslashes in `folder` separate folders as "/" does. Nothing is opened
  /// yet.
  explicit TestKSRuleSqlit(const std::string& folder);

  /// The statement that makes the table.
  static std::string CreateTableString();
  /// Opens the database (made with its folder when it is missing) and makes the table
  /// unless it is there; false when that fails.
  bool InitTable();
  /// Adds one row; `liveTime` in seconds since the epoch. What fails is not told.
  void SaveGoldenValue(const std::string& domain, const std::string& parser,
                       const std::string& deviceName, const std::string& variableName,
                       const std::string& goldenValue, std::int64_t liveTime);

 private:
  bool InitTableLocked() KS_REQUIRES(mutex_);
  void Insert(const std::string& domain, const std::string& parser, const std::string& deviceName,
              const std::string& variableName, const std::string& goldenValue,
              std::int64_t liveTime) KS_REQUIRES(mutex_);

  const std::string file_;
  Mutex mutex_;  // guards the database and its file
  CppSQLite3DB db_ KS_GUARDED_BY(mutex_);
};

}  // namespace keelstone

#endif  // KEELSTONE_RULE_SQLITE_TEST_H

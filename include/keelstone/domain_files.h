#ifndef KEELSTONE_DOMAIN_FILES_H
#define KEELSTONE_DOMAIN_FILES_H

#include <map>
#include <string>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/json_value.h"

namespace keelstone {

/// How the databases of a domain stand.
struct KEELSTONE_EXPORT DomainCheck {
  /// Of the domain as a whole; the worst of its files counts.
  enum class Condition {
    kAbsent,      // not one file is there
    kIncomplete,  // a file or a table is missing
    kComplete,
    kUnusable,  // a file is no database, or cannot be read or written
  };
  Condition condition = Condition::kAbsent;
  std::string detail;  // which file or table, and why
};

/// Looks at the files that an evaluation uses, without changing them but for rolling back
/// what a crash has left. `forWriting`: those
/// that it writes must be writable.
KEELSTONE_EXPORT DomainCheck CheckDomain(const std::string& domainId, bool forWriting);

/// What MakeDomain did to one file.
struct KEELSTONE_EXPORT DomainFileReport {
  std::string file;
  bool changed = false;  // a table or a setting was added
};

/// Makes what is missing of a domain's databases: files, tables and settings. What is
/// there is left as it is, also the general settings. One transaction a file: a file is
/// either whole or made whole by the next call. The text says why it failed; empty when
/// all is well.
[[nodiscard]] KEELSTONE_EXPORT std::string MakeDomain(
    const std::string& domainId, const JsonValue& generalSettings,
    std::vector<DomainFileReport>* reports = nullptr);

/// The rows of the global settings by their names, as the domain has them stored; none where
/// it has no such database yet. The text says why they cannot be read.
[[nodiscard]] KEELSTONE_EXPORT std::string StoredSettings(const std::string& domainId,
                                                          std::map<std::string, JsonValue>& rows);
/// The value that `init` gives such a row; Null for the general settings and for no row.
KEELSTONE_EXPORT JsonValue DefaultSetting(const std::string& name);

/// The folder of a domain's databases.
KEELSTONE_EXPORT std::string DomainFolder(const std::string& domainId);

/// The file of one of a domain's databases (EnumDbType), whether it is there or not.
KEELSTONE_EXPORT std::string DomainDatabase(int dbType, const std::string& domainId);

}  // namespace keelstone

#endif  // KEELSTONE_DOMAIN_FILES_H

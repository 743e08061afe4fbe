#ifndef KEELSTONE_DATABASE_FILES_H
#define KEELSTONE_DATABASE_FILES_H

#include <string>
#include <string_view>

#include "keelstone/export.h"

namespace keelstone {

/// The database files of a domain; the numbers are part of the interface.
enum EnumDbType : int {
  kDbGlobalSetting = 9,
  kDbVariableRule = 10,
  kDbObjectRule = 11,
  kDbBlockSetting = 12,
  kDbInterfaceType = 13,
  kDbObjectHistory = 1000,
};

/// Resolves where the databases of the domains lie below one folder. Immutable; any
/// thread.
class KEELSTONE_EXPORT FSResFileSystem {
 public:
  explicit FSResFileSystem(std::string folder);

  /// `<folder>/<domain>/KSObjectRule.db` and its like. A domain id that is no plain file
  /// name is percent-encoded, so that no id names a file outside the folder and no two
  /// ids share one. The empty text for an unknown type.
  std::string GetDBFile(int dbType, const std::string& domainId) const;
  /// The folder of the domain's databases.
  std::string GetDomainFolder(const std::string& domainId) const;
  const std::string& GetFolder() const noexcept { return folder_; }

 private:
  std::string folder_;
};

/// A domain id as a file name: '/', '\', '%', control characters and the dots of "."
/// and ".." as %XX, the empty id as "%"; every other byte as it is.
KEELSTONE_EXPORT std::string DomainFolderName(std::string_view domainId);

/// The file name of a database ("KSObjectRule.db"); nullptr when the type is none of
/// EnumDbType.
[[nodiscard]] KEELSTONE_EXPORT const char* DBFileName(int dbType) noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_DATABASE_FILES_H

#ifndef KEELSTONE_FILESYSTEM_H
#define KEELSTONE_FILESYSTEM_H

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

/// The system root folder, below which configuration, data and log lie. Any thread.
class KEELSTONE_EXPORT VXFileSystem {
 public:
  /// The folder with a separator at its end. Until a host sets one: the environment
  /// variable KEELSTONE_ROOT, else "./keelstone-root".
  static std::string GetSystemRootFolder();
  /// Set it before the first use of a domain: what is open keeps the folder it has.
  /// The empty text goes back to the default.
  static void SetSystemRootFolder(const std::string& folder);
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
[[nodiscard]] const char* DBFileName(int dbType) noexcept;

/// The rights of what the library makes: nothing for others than owner and group. The
/// process's umask may take more away.
inline constexpr unsigned kFileRights = 0640;
inline constexpr unsigned kFolderRights = 0750;

/// Makes the folder of `path` and those above it, with kFolderRights; false when that
/// cannot be done, and errno says why.
[[nodiscard]] KEELSTONE_EXPORT bool MakeParentFolders(const std::string& path);
/// Whether a plain file stands there; false also when its status cannot be had.
[[nodiscard]] bool FileExists(const std::string& path);
/// 0 when something stands there, of whatever kind; ENOENT when nothing does, which a name
/// too long for any file counts as; else the errno that says why that cannot be found out
/// (links that lead round in a circle, a closed folder on the way).
[[nodiscard]] int PathError(const std::string& path);

}  // namespace keelstone

#endif  // KEELSTONE_FILESYSTEM_H

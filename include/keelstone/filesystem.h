#ifndef KEELSTONE_FILESYSTEM_H
#define KEELSTONE_FILESYSTEM_H

#include <string>

#include "keelstone/export.h"

namespace keelstone {

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

/// The rights of what the library makes: nothing for others than owner and group. The
/// process's umask may take more away.
inline constexpr unsigned kFileRights = 0640;
inline constexpr unsigned kFolderRights = 0750;

/// Makes the folder of `path` and those above it, with kFolderRights; false when that
/// cannot be done, and errno says why.
[[nodiscard]] KEELSTONE_EXPORT bool MakeParentFolders(const std::string& path);
/// Whether a plain file stands there; false also when its status cannot be had.
[[nodiscard]] KEELSTONE_EXPORT bool FileExists(const std::string& path);
/// 0 when something stands there, of whatever kind; ENOENT when nothing does, which a name
/// too long for any file counts as; else the errno that says why that cannot be found out
/// (links that lead round in a circle, a closed folder on the way).
[[nodiscard]] KEELSTONE_EXPORT int PathError(const std::string& path);

}  // namespace keelstone

#endif  // KEELSTONE_FILESYSTEM_H

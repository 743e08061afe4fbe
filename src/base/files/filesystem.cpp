#include "keelstone/filesystem.h"

#include <sys/stat.h>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "keelstone/mutex.h"

namespace keelstone {

namespace {

/// The root folder in force. Never destroyed: threads of the library outlive main.
struct RootFolder {
  Mutex mutex;  // guards folder; innermost
  std::string folder KS_GUARDED_BY(mutex);
};

std::string WithSeparator(std::string folder) {
  if (folder.empty() || folder.back() != '/') folder += '/';
  return folder;
}

std::string DefaultRootFolder() {
  const char* const fromEnvironment = std::getenv("KEELSTONE_ROOT");
  const bool given = fromEnvironment != nullptr && *fromEnvironment != '\0';
  return WithSeparator(given ? fromEnvironment : "./keelstone-root");
}

RootFolder& Root() {
  static RootFolder* const root = [] {
    auto* made = new RootFolder;
    const MutexLock lock(made->mutex);
    made->folder = DefaultRootFolder();
    return made;
  }();
  return *root;
}

bool IsFolder(const std::string& path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

std::string VXFileSystem::GetSystemRootFolder() {
  RootFolder& root = Root();
  const MutexLock lock(root.mutex);
  return root.folder;
}

void VXFileSystem::SetSystemRootFolder(const std::string& folder) {
  std::string next = folder.empty() ? DefaultRootFolder() : WithSeparator(folder);
  RootFolder& root = Root();
  const MutexLock lock(root.mutex);
  root.folder.swap(next);
}

bool MakeParentFolders(const std::string& path) {
  const std::string folder = boost::filesystem::path(path).parent_path().string();
  if (folder.empty() || IsFolder(folder)) return true;
  if (!MakeParentFolders(folder)) return false;
  // Asked again: another process may have made it meanwhile, or a file may stand there.
  if (::mkdir(folder.c_str(), kFolderRights) == 0) return true;
  const int error = errno == EEXIST ? ENOTDIR : errno;
  if (IsFolder(folder)) return true;
  errno = error;
  return false;
}

bool FileExists(const std::string& path) {
  boost::system::error_code error;
  return boost::filesystem::is_regular_file(path, error);
}

int PathError(const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) == 0) return 0;
  return errno == ENAMETOOLONG ? ENOENT : errno;
}

}  // namespace keelstone

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

/// `folder` with single separators and none at its end.
std::string NormalisedFolder(std::string_view folder) {
  std::string normalised;
  normalised.reserve(folder.size());
  for (const char c : folder) {
    if (c != '/' || normalised.empty() || normalised.back() != '/') normalised += c;
  }
  if (normalised.size() > 1 && normalised.back() == '/') normalised.pop_back();
  return normalised.empty() ? "." : normalised;
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

const char* DBFileName(int dbType) noexcept {
  switch (dbType) {
    case kDbGlobalSetting:
      return "KSGlobalSetting.db";
    case kDbVariableRule:
      return "KSVariableRule.db";
    case kDbObjectRule:
      return "KSObjectRule.db";
    case kDbBlockSetting:
      return "KSBlockSetting.db";
    case kDbInterfaceType:
      return "KSInterfaceType.db";
    case kDbObjectHistory:
      return "KSObjectHistory.db";
    default:
      return nullptr;
  }
}

FSResFileSystem::FSResFileSystem(std::string folder) : folder_(NormalisedFolder(folder)) {}

std::string FSResFileSystem::GetDomainFolder(const std::string& domainId) const {
  return WithSeparator(folder_) + DomainFolderName(domainId);
}

std::string FSResFileSystem::GetDBFile(int dbType, const std::string& domainId) const {
  const char* const name = DBFileName(dbType);
  if (name == nullptr) return {};
  return GetDomainFolder(domainId) + '/' + name;
}

std::string DomainFolderName(std::string_view domainId) {
  // A '%' in an id is encoded itself, so that no other id gives a lone one.
  if (domainId.empty()) return "%";
  constexpr char kHex[] = "0123456789ABCDEF";
  const bool dotsOnly = domainId == "." || domainId == "..";
  std::string name;
  name.reserve(domainId.size());
  for (const char c : domainId) {
    const auto byte = static_cast<unsigned char>(c);
    const bool unsafe = byte < 0x20 || byte == 0x7F || c == '/' || c == '\\' || c == '%';
    if (unsafe || dotsOnly) {
      name += {'%', kHex[byte >> 4], kHex[byte & 0xF]};
    } else {
      name += c;
    }
  }
  return name;
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

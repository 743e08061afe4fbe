#include "bench/work_root.h"

#include <linux/magic.h>
#include <sys/vfs.h>

#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "keelstone/database_files.h"
#include "keelstone/filesystem.h"
#include "keelstone/ini_reader.h"

namespace keelstone::bench {

namespace {

constexpr int kNever = 1'000'000'000;  // rows, or seconds

}  // namespace

WorkRoot::WorkRoot() {
  std::string name = (std::filesystem::temp_directory_path() / "keelstone-bench-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  path_ = name;
  VXFileSystem::SetSystemRootFolder(name);
  for (const char* key : {"CacheSize", "CacheTime"}) {
    if (!IniReader::SetInt("Keelstone", key, kNever, "fix_frontserver.ini")) {
      throw std::runtime_error("the settings cannot be written");
    }
  }
}

WorkRoot::~WorkRoot() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string WorkRoot::Medium() const {
  struct statfs status = {};
  const bool known = ::statfs(path_.c_str(), &status) == 0;
  return known && status.f_type == TMPFS_MAGIC ? "tmpfs" : "on disk";
}

std::filesystem::path WorkRoot::DomainFolder(const std::string& domainId) const {
  return path_ / "data" / "FSParserData" / DomainFolderName(domainId);
}

}  // namespace keelstone::bench

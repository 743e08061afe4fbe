#ifndef KEELSTONE_TESTS_SUPPORT_TEMP_ROOT_H
#define KEELSTONE_TESTS_SUPPORT_TEMP_ROOT_H

#include <stdlib.h>

#include <filesystem>
#include <string>

#include "keelstone/filesystem.h"

namespace keelstone::testing {

/// A fresh system root folder for one test, removed with it. Domains stay registered for
/// the life of the process: give each test its own domain ids.
class TempRoot {
 public:
  TempRoot() {
    std::string name = (std::filesystem::temp_directory_path() / "keelstone-XXXXXX").string();
    path_ = ::mkdtemp(name.data());
    VXFileSystem::SetSystemRootFolder(path_.string());
  }
  ~TempRoot() {
    VXFileSystem::SetSystemRootFolder("");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_TEMP_ROOT_H

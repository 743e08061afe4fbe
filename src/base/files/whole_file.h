#ifndef KEELSTONE_BASE_FILES_WHOLE_FILE_H
#define KEELSTONE_BASE_FILES_WHOLE_FILE_H

#include <string>

namespace keelstone {

/// Reads a regular file into `text`. 0, or the errno that says why not (then `text` is
/// empty).
[[nodiscard]] int ReadWholeFile(const std::string& path, std::string& text);

/// Puts a file with `text` in the place of `path` in one step: whoever opens it finds the
/// old or the new content whole, after a crash too. Access rights of an old file are
/// kept. 0, or the errno that says why not (then `path` is as it was).
[[nodiscard]] int ReplaceWholeFile(const std::string& path, const std::string& text);

/// Keeps other threads and processes that ask for the same from working on the files of
/// a folder. Where the file system knows no such lock it keeps nobody out.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder);
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int folder_;
};

}  // namespace keelstone

#endif  // KEELSTONE_BASE_FILES_WHOLE_FILE_H

#include "base/files/whole_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <cstdio>

#include "keelstone/filesystem.h"

namespace keelstone {

namespace {

/// An open file, closed with the scope.
class FileHandle {
 public:
  explicit FileHandle(int file) : file_(file) {}
  ~FileHandle() {
    if (file_ >= 0) ::close(file_);
  }
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  int get() const { return file_; }

 private:
  int file_;
};

int WriteAll(int file, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = ::write(file, text.data() + done, text.size() - done);
    if (written >= 0) {
      done += static_cast<std::size_t>(written);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

std::string TemporaryName(const std::string& path) {
  static std::atomic<unsigned> count{0};
  return path + '.' + std::to_string(::getpid()) + '.' + std::to_string(++count) + ".tmp";
}

/// Makes the file `temporary` with `text`, on disk, with the rights of `path` if it
/// exists.
int WriteTemporary(const std::string& temporary, const std::string& path, const std::string& text) {
  const FileHandle file(
      ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kFileRights));
  if (file.get() < 0) return errno;
  struct stat old = {};
  if (::stat(path.c_str(), &old) == 0 && ::fchmod(file.get(), old.st_mode & 07777) != 0) {
    return errno;
  }
  if (const int error = WriteAll(file.get(), text); error != 0) return error;
  return ::fsync(file.get()) == 0 ? 0 : errno;
}

}  // namespace

int ReadWholeFile(const std::string& path, std::string& text) {
  text.clear();
  const FileHandle file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.get() < 0) return errno;
  struct stat status = {};
  if (::fstat(file.get(), &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  char buffer[4096];
  while (true) {
    const ssize_t size = ::read(file.get(), buffer, sizeof buffer);
    if (size > 0) {
      text.append(buffer, static_cast<std::size_t>(size));
    } else if (size == 0) {
      return 0;
    } else if (errno != EINTR) {
      const int error = errno;
      text.clear();
      return error;
    }
  }
}

int ReplaceWholeFile(const std::string& path, const std::string& text) {
  const std::string temporary = TemporaryName(path);
  int error = WriteTemporary(temporary, path, text);
  if (error == 0 && std::rename(temporary.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) {
    if (error != EEXIST) ::unlink(temporary.c_str());
    return error;
  }
  // The new name is in place; that it outlasts a power cut needs the folder on disk too.
  const std::string folder = boost::filesystem::path(path).parent_path().string();
  const FileHandle handle(
      ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (handle.get() >= 0) ::fsync(handle.get());
  return 0;
}

FolderLock::FolderLock(const std::string& folder)
    : folder_(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (folder_ < 0) return;
  while (::flock(folder_, LOCK_EX) != 0 && errno == EINTR) {
  }
}

FolderLock::~FolderLock() {
  if (folder_ >= 0) ::close(folder_);
}

}  // namespace keelstone

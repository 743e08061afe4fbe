#include "program/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "keelstone/text_escape.h"

namespace keelstone::host {

namespace {

constexpr const char* kUnfinished = ".unfinished";
constexpr std::size_t kRandomCharacters = 6;
constexpr std::time_t kLeftoverAge = 3600;  // s

/// Where a path leads, also when nothing is there yet.
std::string Resolved(const std::string& path) {
  std::error_code failure;
  const std::filesystem::path resolved =
      std::filesystem::weakly_canonical(std::filesystem::absolute(path, failure), failure);
  return failure ? path : resolved.string();
}

/// The rights of the file that is replaced, else those that a new file gets.
mode_t RightsOf(const struct stat* old) {
  if (old != nullptr) return old->st_mode & 07777U;
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666U & ~mask;
}

/// Removes what killed processes have left of this file. One that is being written now is
/// younger: every write renews its time.
void RemoveLeftovers(const std::filesystem::path& path) {
  const std::string start = path.filename().string() + ".";
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(path.parent_path(), failure), end;
       !failure && entry != end; entry.increment(failure)) {
    const std::string name = entry->path().filename().string();
    struct stat status{};
    const bool isLeftover =
        name.size() == start.size() + kRandomCharacters + std::strlen(kUnfinished) &&
        name.starts_with(start) && name.ends_with(kUnfinished) &&
        ::lstat(entry->path().c_str(), &status) == 0 && S_ISREG(status.st_mode);
    if (isLeftover && std::time(nullptr) - status.st_mtime > kLeftoverAge) {
      ::unlink(entry->path().c_str());
    }
  }
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(path) {
  if (path == "-") {
    writer_ = std::make_unique<OutputWriter>(STDOUT_FILENO);
    return;
  }
  path_ = Resolved(path);
  struct stat status{};
  const bool isThere = ::stat(path_.c_str(), &status) == 0;
  if (isThere && S_ISDIR(status.st_mode)) {
    failure_ = EISDIR;
    return;
  }
  if (isThere && !S_ISREG(status.st_mode)) {
    file_ = FileDescriptor(::open(path_.c_str(), O_WRONLY | O_CLOEXEC));
  } else {
    RemoveLeftovers(path_);
    temporary_ = path_ + ".XXXXXX" + kUnfinished;
    file_ = FileDescriptor(
        ::mkostemps(temporary_.data(), static_cast<int>(std::strlen(kUnfinished)), O_CLOEXEC));
    if (!file_.valid()) temporary_.clear();
  }
  if (!file_.valid()) {
    failure_ = errno;
    return;
  }
  if (!temporary_.empty() && ::fchmod(file_.get(), RightsOf(isThere ? &status : nullptr)) != 0) {
    failure_ = errno;
  }
  writer_ = std::make_unique<OutputWriter>(file_.get());
}

OutputFile::~OutputFile() {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void OutputFile::Write(std::string_view text) noexcept {
  if (writer_) writer_->Write(text);
}

int OutputFile::failure() const noexcept {
  return failure_ != 0 || !writer_ ? failure_ : writer_->failure();
}

bool OutputFile::Finish() {
  if (failure_ == 0 && writer_) static_cast<void>(writer_->Flush());
  if (failure() != 0) return false;
  if (temporary_.empty()) return true;
  if (::fsync(file_.get()) != 0 || std::rename(temporary_.c_str(), path_.c_str()) != 0) {
    failure_ = errno;
    return false;
  }
  temporary_.clear();
  return true;
}

std::string OutputFile::fault() const {
  if (failure() == 0) return {};
  return (path_ == "-" ? std::string("standard output") : Printable(path_)) + ": " +
         std::strerror(failure());
}

}  // namespace keelstone::host

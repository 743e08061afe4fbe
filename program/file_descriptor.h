#ifndef KEELSTONE_PROGRAM_FILE_DESCRIPTOR_H
#define KEELSTONE_PROGRAM_FILE_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace keelstone::host {

/// Owns a file descriptor and closes it.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }

  int get() const noexcept { return fd_; }
  bool valid() const noexcept { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_FILE_DESCRIPTOR_H

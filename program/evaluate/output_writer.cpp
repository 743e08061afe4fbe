#include "program/evaluate/output_writer.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace keelstone::host {

void OutputWriter::Write(std::string_view text) noexcept {
  if (text.size() > buffer_.size() - gathered_) Flush();
  if (text.size() > buffer_.size()) {
    WriteOut(text);
    return;
  }
  std::copy(text.begin(), text.end(), buffer_.begin() + static_cast<std::ptrdiff_t>(gathered_));
  gathered_ += text.size();
}

bool OutputWriter::Flush() noexcept {
  WriteOut({buffer_.data(), std::exchange(gathered_, 0)});
  return failure_ == 0;
}

void OutputWriter::WriteOut(std::string_view text) noexcept {
  while (failure_ == 0 && !text.empty()) {
    const ssize_t count = ::write(fd_, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      pollfd room = {fd_, POLLOUT, 0};
      ::poll(&room, 1, -1);
    } else if (errno != EINTR) {
      failure_ = errno;
    }
  }
}

void GuardStandardDescriptors() noexcept {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(fd, F_GETFD) >= 0) continue;
    // The lowest free number is this one.
    [[maybe_unused]] const int opened =
        ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace keelstone::host

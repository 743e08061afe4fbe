#include "host/line_reader.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace keelstone::host {

namespace {

constexpr std::size_t kBufferBytes = 256U << 10U;
// A buffer that a giant line has made larger than this is given back after it.
constexpr std::size_t kKeptBufferBytes = 16U << 20U;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace

LineReader::LineReader(int fd, const StopRequest& stop)
    : fd_(fd), stop_(stop), buffer_(new char[kBufferBytes]), capacity_(kBufferBytes) {}

bool LineReader::FindLineFeed() {
  const void* found = std::memchr(buffer_.get() + scanned_, '\n', end_ - scanned_);
  scanned_ = found == nullptr
                 ? end_
                 : static_cast<std::size_t>(static_cast<const char*>(found) - buffer_.get());
  return found != nullptr;
}

bool LineReader::HasLine() { return FindLineFeed(); }

void LineReader::MakeRoom() {
  const std::size_t used = end_ - begin_;
  std::size_t wanted = capacity_;
  if (used > capacity_ / 2) {
    wanted = 2 * capacity_;
  } else if (capacity_ > kKeptBufferBytes && used < kBufferBytes / 2) {
    wanted = kBufferBytes;
  }
  if (wanted != capacity_) {
    std::unique_ptr<char[]> larger(new char[wanted]);
    std::memcpy(larger.get(), buffer_.get() + begin_, used);
    buffer_ = std::move(larger);
    capacity_ = wanted;
  } else {
    std::memmove(buffer_.get(), buffer_.get() + begin_, used);
  }
  scanned_ -= begin_;
  begin_ = 0;
  end_ = used;
}

LineReader::Got LineReader::Fill() {
  MakeRoom();
  while (true) {
    std::array<pollfd, 2> awaited = {{{fd_, POLLIN, 0}, {stop_.fd(), POLLIN, 0}}};
    if (::poll(awaited.data(), awaited.size(), -1) < 0) {
      if (errno == EINTR) continue;
      return Got::kFailed;
    }
    if (stop_.Requested()) return Got::kStopped;
    const ssize_t count = ::read(fd_, buffer_.get() + end_, capacity_ - end_);
    if (count < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return Got::kFailed;
    }
    atEnd_ = count == 0;
    end_ += static_cast<std::size_t>(count);
    return Got::kLine;
  }
}

LineReader::Got LineReader::Next(std::string_view& line) {
  if (stop_.Requested()) return Got::kStopped;
  while (!FindLineFeed()) {
    if (atEnd_) break;
    if (const Got got = Fill(); got != Got::kLine) return got;
  }
  if (begin_ == end_) return Got::kEnd;
  line = std::string_view(buffer_.get() + begin_, scanned_ - begin_);
  const std::size_t next = scanned_ < end_ ? scanned_ + 1 : end_;
  position_ += next - begin_;
  begin_ = scanned_ = next;
  if (++lineNumber_ == 1 && line.starts_with(kByteOrderMark)) {
    line.remove_prefix(kByteOrderMark.size());
  }
  return Got::kLine;
}

}  // namespace keelstone::host

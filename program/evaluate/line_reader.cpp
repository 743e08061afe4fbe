#include "program/evaluate/line_reader.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>

namespace keelstone::host {

namespace {

constexpr std::size_t kBufferBytes = 256U << 10U;
// A buffer that a giant line has made larger than this is given back after it.
constexpr std::size_t kKeptBufferBytes = 16U << 20U;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace

LineReader::LineReader(int fd, const StopRequest& stop, std::size_t maxLine)
    : fd_(fd),
      stop_(stop),
      maxLine_(maxLine),
      buffer_(new char[kBufferBytes]),
      capacity_(kBufferBytes) {}

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
    // No more than shows that the line is too long.
    wanted = std::max(std::min(2 * capacity_, maxLine_ + kBufferBytes), 2 * kBufferBytes);
  } else if (capacity_ > kKeptBufferBytes && used < kBufferBytes / 2) {
    wanted = kBufferBytes;
  }
  std::unique_ptr<char[]> other;
  if (wanted != capacity_) {
    other.reset(new (std::nothrow) char[wanted]);
    if (other == nullptr && used == capacity_) throw std::bad_alloc();
  }
  if (other != nullptr) {
    std::memcpy(other.get(), buffer_.get() + begin_, used);
    buffer_ = std::move(other);
    capacity_ = wanted;
  } else if (begin_ != 0) {
    std::memmove(buffer_.get(), buffer_.get() + begin_, used);
  }
  scanned_ -= begin_;
  begin_ = 0;
  end_ = used;
}

void LineReader::Copy(std::string_view bytes) noexcept {
  while (copy_ >= 0 && !bytes.empty()) {
    const ssize_t count = ::write(copy_, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      copyFailure_ = errno;
      copy_ = -1;
    }
  }
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
    Copy({buffer_.get() + end_, static_cast<std::size_t>(count)});
    end_ += static_cast<std::size_t>(count);
    return Got::kLine;
  }
}

/// Passes over what is buffered of the line, up to `end`.
void LineReader::Drop(std::size_t end) {
  position_ += end - begin_;
  begin_ = scanned_ = end;
}

LineReader::Got LineReader::Next(std::string_view& line) {
  if (stop_.Requested()) return Got::kStopped;
  Got passedOver = Got::kLine;
  bool isBegun = false;
  while (!FindLineFeed()) {
    isBegun = isBegun || begin_ != end_;
    if (passedOver == Got::kLine && scanned_ - begin_ > maxLine_) passedOver = Got::kTooLong;
    if (passedOver != Got::kLine) Drop(end_);
    if (atEnd_) break;
    try {
      if (const Got got = Fill(); got != Got::kLine) return got;
    } catch (const std::bad_alloc&) {
      passedOver = Got::kNoMemory;
    }
  }
  if (begin_ == end_ && !isBegun) return Got::kEnd;
  if (passedOver == Got::kLine && scanned_ - begin_ > maxLine_) passedOver = Got::kTooLong;
  line = std::string_view(buffer_.get() + begin_, scanned_ - begin_);
  Drop(scanned_ < end_ ? scanned_ + 1 : end_);
  ++lineNumber_;
  if (passedOver != Got::kLine) return passedOver;
  if (lineNumber_ == 1 && line.starts_with(kByteOrderMark)) {
    line.remove_prefix(kByteOrderMark.size());
  }
  return Got::kLine;
}

}  // namespace keelstone::host

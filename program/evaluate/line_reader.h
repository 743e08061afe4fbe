#ifndef KEELSTONE_PROGRAM_EVALUATE_LINE_READER_H
#define KEELSTONE_PROGRAM_EVALUATE_LINE_READER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "program/stop_request.h"

namespace keelstone::host {

/// Cuts one input into lines without copying them. A byte-order mark at the start is
/// passed over; the last line needs no line feed. A line that is longer than a bound, or
/// than memory can hold, is passed over without being kept. One thread.
class LineReader {
 public:
  enum class Got { kLine, kTooLong, kNoMemory, kEnd, kStopped, kFailed };

  static constexpr std::size_t kMaxLine = 256U << 20U;  // bytes, when nothing else is wanted

  /// Reads from `fd`, which must stay open, until `stop` is requested.
  LineReader(int fd, const StopRequest& stop, std::size_t maxLine = kMaxLine);

  /// From here on what is read is also written to a file, until that fails.
  void CopyTo(int fd) noexcept { copy_ = fd; }
  /// errno of the failure; 0 when there was none.
  int copyFailure() const noexcept { return copyFailure_; }

  /// The next line without its line feed, valid until the next call. kTooLong, kNoMemory:
  /// the line was passed over. kFailed: errno says why.
  Got Next(std::string_view& line);
  /// Whether the next line lies here whole, so that Next will not wait for input.
  bool HasLine();

  /// Number of the line that Next gave or passed over last, from 1.
  std::uint64_t lineNumber() const noexcept { return lineNumber_; }
  /// Bytes of the input up to the end of that line.
  std::uint64_t position() const noexcept { return position_; }

 private:
  bool FindLineFeed();
  void MakeRoom();
  Got Fill();
  void Drop(std::size_t end);
  void Copy(std::string_view bytes) noexcept;

  int fd_;
  const StopRequest& stop_;
  const std::size_t maxLine_;
  int copy_ = -1;
  int copyFailure_ = 0;
  std::unique_ptr<char[]> buffer_;
  std::size_t capacity_;
  std::size_t begin_ = 0;    // of what is not yet given out
  std::size_t scanned_ = 0;  // up to here there is no line feed
  std::size_t end_ = 0;
  bool atEnd_ = false;
  std::uint64_t lineNumber_ = 0;
  std::uint64_t position_ = 0;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_LINE_READER_H

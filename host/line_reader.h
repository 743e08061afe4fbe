#ifndef KEELSTONE_HOST_LINE_READER_H
#define KEELSTONE_HOST_LINE_READER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "host/stop_request.h"

namespace keelstone::host {

/// Cuts one input into lines without copying them. A byte-order mark at the start is
/// passed over; the last line needs no line feed. One thread.
class LineReader {
 public:
  enum class Got { kLine, kEnd, kStopped, kFailed };

  /// Reads from `fd`, which must stay open, until `stop` is requested.
  LineReader(int fd, const StopRequest& stop);

  /// The next line without its line feed, valid until the next call. kFailed: errno says
  /// why.
  Got Next(std::string_view& line);
  /// Whether the next line lies here whole, so that Next will not wait for input.
  bool HasLine();

  /// Number of the line that Next gave last, from 1.
  std::uint64_t lineNumber() const noexcept { return lineNumber_; }
  /// Bytes of the input up to the end of that line.
  std::uint64_t position() const noexcept { return position_; }

 private:
  bool FindLineFeed();
  void MakeRoom();
  Got Fill();

  int fd_;
  const StopRequest& stop_;
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

#endif  // KEELSTONE_HOST_LINE_READER_H

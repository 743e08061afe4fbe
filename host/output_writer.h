#ifndef KEELSTONE_HOST_OUTPUT_WRITER_H
#define KEELSTONE_HOST_OUTPUT_WRITER_H

#include <string_view>

namespace keelstone::host {

/// Writes to a file descriptor until that fails once; then nothing more. One thread.
class OutputWriter {
 public:
  explicit OutputWriter(int fd) noexcept : fd_(fd) {}

  /// False when the text could not be written whole, now or before.
  bool Write(std::string_view text) noexcept;
  /// The errno of the failure; 0 when there was none.
  int failure() const noexcept { return failure_; }

 private:
  int fd_;
  int failure_ = 0;
};

/// Gives each of the three standard descriptors that is closed one that refuses reading or
/// writing, so that no file that is opened later takes its number.
void GuardStandardDescriptors() noexcept;

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_OUTPUT_WRITER_H

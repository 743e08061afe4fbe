#ifndef KEELSTONE_PROGRAM_EVALUATE_OUTPUT_WRITER_H
#define KEELSTONE_PROGRAM_EVALUATE_OUTPUT_WRITER_H

#include <array>
#include <cstddef>
#include <string_view>

namespace keelstone::host {

/// Writes to a file descriptor, gathering small pieces, until that fails once; then
/// nothing more. One thread.
class OutputWriter {
 public:
  explicit OutputWriter(int fd) noexcept : fd_(fd) {}

  void Write(std::string_view text) noexcept;
  /// False when not all could be written, now or before.
  bool Flush() noexcept;
  /// The errno of the failure; 0 when there was none.
  int failure() const noexcept { return failure_; }

 private:
  void WriteOut(std::string_view text) noexcept;

  int fd_;
  int failure_ = 0;
  std::size_t gathered_ = 0;
  std::array<char, 65536> buffer_;
};

/// Gives each of the three standard descriptors that is closed one that refuses reading or
/// writing, so that no file that is opened later takes its number.
void GuardStandardDescriptors() noexcept;

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_OUTPUT_WRITER_H

#ifndef KEELSTONE_PROGRAM_OUTPUT_FILE_H
#define KEELSTONE_PROGRAM_OUTPUT_FILE_H

#include <memory>
#include <string>
#include <string_view>

#include "program/evaluate/output_writer.h"
#include "program/file_descriptor.h"

namespace keelstone::host {

/// A file that appears whole or not at all: what is written gathers in a temporary file
/// beside it, which takes its place in the end; those that killed processes have left are
/// removed when they are an hour old. What is no regular file (a pipe, a terminal) is
/// written as it comes. One thread.
class OutputFile {
 public:
  /// `path`, or "-" for standard output. fault() tells whether it can be written.
  explicit OutputFile(const std::string& path);
  /// Removes what has not taken its place.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void Write(std::string_view text) noexcept;
  /// Puts the file in its place; false when not all is on disk, and fault() says why.
  [[nodiscard]] bool Finish();
  /// What is wrong; empty when all is well so far.
  std::string fault() const;

 private:
  int failure() const noexcept;

  std::string path_;       // the file itself, symbolic links followed
  std::string temporary_;  // empty: there is none
  FileDescriptor file_;
  std::unique_ptr<OutputWriter> writer_;
  int failure_ = 0;  // errno
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_OUTPUT_FILE_H

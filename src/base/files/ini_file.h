#ifndef KEELSTONE_BASE_FILES_INI_FILE_H
#define KEELSTONE_BASE_FILES_INI_FILE_H

#include <atomic>
#include <cstddef>
#include <exception>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace keelstone {

/// The content of one ini file: its text and what stands in it. Sections and keys are
/// compared without regard to the case of ASCII letters; of two entries with one name the
/// last counts. Immutable; any thread.
class IniFile {
 public:
  struct Entry {
    std::string value;  // without blanks at its ends and without a comment
    std::size_t line = 0;
    mutable std::atomic<bool> reported{false};  // its fault has been logged
  };

  explicit IniFile(std::string text);

  const std::string& Text() const noexcept { return text_; }
  /// The entry, or nullptr.
  const Entry* Find(std::string_view section, std::string_view key) const;
  /// Numbers (from 1) of the lines that were passed over: too long, or with a NUL.
  const std::vector<std::size_t>& SkippedLines() const noexcept { return skipped_; }

  /// The text with `value` under the key, every other line as it is.
  std::string WithValue(std::string_view section, std::string_view key,
                        std::string_view value) const;

 private:
  /// Bounds of a line in the text: its bytes, and with its line end.
  struct Line {
    std::size_t begin;
    std::size_t end;
    std::size_t next;
  };
  using Name = std::pair<std::string, std::string>;  // section and key, lower case

  // What the parser calls.
  static char* ReadLine(char* buffer, int size, void* self);
  static int TakeEntry(void* self, const char* section, const char* key, const char* value);

  void SplitLines();
  std::string_view TakeLine(std::size_t limit);
  void AddEntry(std::string_view section, std::string_view key, std::string_view value);
  std::string_view Content(std::size_t line) const;
  std::string LineEndAt(std::size_t line) const;

  std::string text_;
  std::vector<Line> lines_;
  std::map<Name, Entry> entries_;
  std::map<std::string, std::size_t> lastLineOf_;  // of each section: its head or last entry
  std::vector<std::size_t> skipped_;
  // While parsing: the next line, and an exception that must not pass through the parser.
  std::size_t nextLine_ = 0;
  std::exception_ptr failure_;
};

}  // namespace keelstone

#endif  // KEELSTONE_BASE_FILES_INI_FILE_H

#ifndef KEELSTONE_BASE_JSON_RAW_JSON_SCAN_H
#define KEELSTONE_BASE_JSON_RAW_JSON_SCAN_H

#include <cstddef>
#include <string>

#include "keelstone/raw_json.h"

namespace keelstone {

/// Reads a text that is plainly JSON into the nodes of a RawJson, straight from one byte to the
/// next. It gives up at whatever is rare or wrong, which the JSON reader then judges from the
/// start: what is accepted, and what is said of faults, is that reader's matter alone. One
/// thread.
class RawJson::Scan {
 public:
  /// `document` is empty but for its text, UTF-8 that a JSON text may be.
  explicit Scan(RawJson& document) noexcept
      : document_(document),
        text_(document.texts_.data()),
        end_(text_ + document.texts_.size()),
        at_(text_) {}

  /// False when it has given up; the document is useless then.
  bool Read();

 private:
  bool ReadValue();
  bool ReadString();
  bool ReadEscapes(std::size_t begin);
  bool ReadNumber();
  bool ReadWord(Kind kind, const char* word, std::size_t size);
  bool Begin(Kind kind);
  bool ReadName();
  bool EndOrNext(bool& isValueDue);

  void SkipSpace() noexcept;
  bool SkipDigits() noexcept;
  bool Skip(char c) noexcept;
  void FindStringEnd() noexcept;
  void Add(Kind kind, std::size_t begin, std::size_t end);
  std::size_t Offset() const noexcept { return static_cast<std::size_t>(at_ - text_); }

  RawJson& document_;
  char* const text_;
  char* const end_;
  char* at_;
};

}  // namespace keelstone

#endif  // KEELSTONE_BASE_JSON_RAW_JSON_SCAN_H

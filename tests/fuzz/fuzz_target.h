#ifndef KEELSTONE_TESTS_FUZZ_FUZZ_TARGET_H
#define KEELSTONE_TESTS_FUZZ_FUZZ_TARGET_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "keelstone/json_reader.h"
#include "keelstone/logger.h"

/// Ends the process, as a finding, unless the promise is kept.
#define KS_PROMISE(kept)                                                     \
  do {                                                                       \
    if (!(kept)) ::keelstone::fuzz::ReportBroken(#kept, __FILE__, __LINE__); \
  } while (false)

namespace keelstone::fuzz {

[[noreturn]] inline void ReportBroken(const char* promise, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: broken promise: %s\n", file, line, promise);
  std::abort();
}

/// An input taken apart: bytes that choose, then lines, so that seeds can be read and
/// written by hand.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  /// The next byte; 0 at the end.
  unsigned Byte() {
    if (rest_.empty()) return 0;
    const auto byte = static_cast<unsigned char>(rest_.front());
    rest_.remove_prefix(1);
    return byte;
  }
  /// The text up to the next line feed, or to the end.
  std::string Line() {
    const std::size_t end = rest_.find('\n');
    std::string line(rest_.substr(0, end));
    rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
    return line;
  }
  std::string Rest() { return std::string(std::exchange(rest_, {})); }
  bool AtEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

/// Has all log lines formatted and dropped.
inline void QuietLog() {
  Logger::Instance().SetLevel(kLogProgress);
  Logger::Instance().SetCallback([](const LogLine&) {});
}

/// Whether a text is one JSON document in valid UTF-8.
inline bool IsStrictJson(const std::string& text) {
  JsonValue ignored;
  return JsonReader::Parse(text, ignored, nullptr, {.allowComments = false, .requireUtf8 = true});
}

}  // namespace keelstone::fuzz

#endif  // KEELSTONE_TESTS_FUZZ_FUZZ_TARGET_H

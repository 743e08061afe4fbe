#ifndef KEELSTONE_JSON_READER_H
#define KEELSTONE_JSON_READER_H

#include <cstddef>
#include <string>
#include <string_view>

#include "keelstone/export.h"
#include "keelstone/json_value.h"

namespace keelstone {

/// Why a text is not JSON, and where.
struct JsonParseError {
  std::size_t offset = 0;  // bytes from the start of the text
  std::string message;     // "syntax error", "number beyond the range of a double", …
};

/// How a text is read.
struct JsonReadOptions {
  /// C and C++ comments count as white space.
  bool allowComments = true;
  /// Refuse bytes that are not UTF-8 (off: strings hold whatever bytes stand there).
  /// Escaped lone surrogates are refused always: no byte string stands for them.
  bool requireUtf8 = false;
};

/// What a text holds, in the order of the text. Each operation answers whether to go
/// on; false breaks the reading off. Views are valid during the call only.
class KEELSTONE_EXPORT JsonHandler {
 public:
  virtual ~JsonHandler();
  virtual bool OnNull() = 0;
  virtual bool OnBool(bool value) = 0;
  /// A number as it is written, in JSON's grammar. It is an integer when it holds
  /// none of '.', 'e' and 'E'. Its size is not judged.
  virtual bool OnNumber(std::string_view text) = 0;
  virtual bool OnString(std::string_view bytes) = 0;
  virtual bool OnKey(std::string_view bytes) = 0;
  virtual bool OnArrayBegin() = 0;
  virtual bool OnArrayEnd() = 0;
  virtual bool OnObjectBegin() = 0;
  virtual bool OnObjectEnd() = 0;
};

/// Reads JSON texts (RFC 8259, comments allowed, at most `kMaxDepth` levels deep).
/// Integers within 64 bits become Int or UInt, every other number a Real, read to the
/// nearest double; a number that no double holds is an error. Of two members with one
/// name the last wins. Stateless: any thread may read.
class KEELSTONE_EXPORT JsonReader {
 public:
  static constexpr std::size_t kMaxDepth = 512;

  /// Reads `text` whole into `value`; on failure `value` is Null and `error`, when
  /// given, says what and where.
  [[nodiscard]] static bool Parse(std::string_view text, JsonValue& value,
                                  JsonParseError* error = nullptr,
                                  const JsonReadOptions& options = {});
  /// Hands the content of `text` to `handler`; false when the text is not JSON or the
  /// handler broke off (then `error` stays as it was).
  [[nodiscard]] static bool Parse(std::string_view text, JsonHandler& handler,
                                  JsonParseError* error = nullptr,
                                  const JsonReadOptions& options = {});
};

}  // namespace keelstone

#endif  // KEELSTONE_JSON_READER_H

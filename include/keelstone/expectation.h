#ifndef KEELSTONE_EXPECTATION_H
#define KEELSTONE_EXPECTATION_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/json_value.h"
#include "keelstone/rule_enums.h"
#include "keelstone/rule_kinds.h"

namespace keelstone {

/// What a rule expects of a value, in words and as data that a value can be judged by
/// without the rule. Numbers compare exactly, as does text byte by byte. A value type.
struct KEELSTONE_EXPORT KSExpectation {
  EnumExpectationKind kind = kExpectNothing;  // compares with the members below
  /// "between 3 and 7"; device text stands in it as it came, long values are cut.
  std::string words;
  JsonValue value;                // one value or limit
  std::vector<JsonValue> values;  // several
  JsonValue least;                // bounds
  JsonValue most;
  std::string text;  // pattern or digest
  /// Leading and trailing spaces and line feeds count neither of the value nor of `value`.
  bool isTrimmed = false;

  /// Reads the parameter text of a rule. The data type is for the words only: numbers of
  /// single precision are told with their own digits. A parameter that cannot be read
  /// gives kExpectNothing, with words that show it as it stands.
  static KSExpectation Of(EnumRuleType type, const std::string& parameter,
                          EnumKSDataType dataType = KSDataUnknown);

  /// "words", "kind" by its name ("bounds") and the members that belong to the kind: "value",
  /// "values", "min" and "max", "pattern" or "digest"; "trim" (the characters that do not
  /// count at the ends) for trimmed texts, "ignoreCase" and "anywhere" for patterns.
  JsonValue ToJsonValue() const;
  /// Its text, valid UTF-8 whatever the device sent.
  std::string ToJsonString() const;
};

/// The name of a kind in documents ("bounds"); "" for what is no kind.
KEELSTONE_EXPORT const char* ExpectationKindName(EnumExpectationKind kind);

/// A value as a sentence tells it: a number by its digits, a text in quotes, cut when it
/// is long.
KEELSTONE_EXPORT std::string ValueInWords(const JsonValue& value, EnumKSDataType dataType);
/// The text, or its beginning up to `limit` bytes and "…", cut between characters.
KEELSTONE_EXPORT std::string CutText(std::string_view text, std::size_t limit);

}  // namespace keelstone

#endif  // KEELSTONE_EXPECTATION_H

#ifndef KEELSTONE_ENGINE_TYPED_VALUE_H
#define KEELSTONE_ENGINE_TYPED_VALUE_H

#include <cstdint>
#include <memory>
#include <string_view>
#include <variant>

#include "keelstone/data_point.h"
#include "keelstone/rule_enums.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// A value's text as its type reads it. It is read once, at the head of the value's way; what
/// comes later, the short check and the data point of the long way, takes it from here.
///
/// Nothing is copied: a text lies in the variable, which must outlive this. Any thread.
class TypedValue {
 public:
  /// What a text gives: nothing for an unknown data type and for the text of a number that
  /// gives no finite number, a string without its leading and trailing spaces, the digest of
  /// a table. Numbers are read as C's atoll and atof read them.
  using Content = std::variant<std::monostate, std::int64_t, float, double, std::string_view>;

  explicit TypedValue(const VarInfo& variable);

  EnumKSDataType dataType() const noexcept { return dataType_; }
  const Content& content() const noexcept { return content_; }

  /// The value's data point, with `time` (seconds since the epoch) as its time; empty where
  /// the text gave nothing. A table comes without its content (FillTablePoint).
  std::shared_ptr<KSDataBase> MakePoint(std::int64_t time) const;

 private:
  EnumKSDataType dataType_;
  Content content_;
};

/// Whether values of the type are numbers.
constexpr bool IsNumeric(EnumKSDataType dataType) noexcept {
  return dataType == KSDataInt64 || dataType == KSDataFloat || dataType == KSDataDouble;
}

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_TYPED_VALUE_H

#include "engine/value_check.h"

#include <cstdint>
#include <variant>

#include "learn/rule_type_table.h"

namespace keelstone {

namespace {

template <class T>
std::optional<bool> Check(EnumRuleType type, std::string_view param, const TypedValue& value) {
  const T* const content = std::get_if<T>(&value.content());
  return content == nullptr ? std::nullopt : BreaksParameter(type, param, *content);
}

}  // namespace

std::optional<bool> BreaksRule(const TypedValue& value, EnumRuleType type, std::string_view param) {
  switch (value.dataType()) {
    case KSDataInt64:
      return Check<std::int64_t>(type, param, value);
    case KSDataFloat:
      return Check<float>(type, param, value);
    case KSDataDouble:
      return Check<double>(type, param, value);
    case KSDataString:
      return Check<std::string_view>(type, param, value);
    default:
      return std::nullopt;
  }
}

}  // namespace keelstone

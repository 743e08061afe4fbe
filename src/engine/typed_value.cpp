#include "engine/typed_value.h"

#include <cmath>
#include <optional>
#include <string>

#include "base/text/numbers.h"
#include "base/text/strings.h"
#include "keelstone/table_data_point.h"

namespace keelstone {

namespace {

template <class T>
TypedValue::Content ContentOf(std::optional<T> number) {
  return number ? TypedValue::Content(*number) : TypedValue::Content();
}

std::optional<float> LeadingFloat(std::string_view text) {
  const std::optional<double> wide = LeadingDouble(text);
  if (!wide) return std::nullopt;
  const float number = NarrowToFloat(*wide);
  return std::isfinite(number) ? std::optional<float>(number) : std::nullopt;
}

TypedValue::Content Read(EnumKSDataType dataType, std::string_view text) {
  switch (dataType) {
    case KSDataInt64:
      return ContentOf(LeadingInt64(text));
    case KSDataFloat:
      return ContentOf(LeadingFloat(text));
    case KSDataDouble:
      return ContentOf(LeadingDouble(text));
    case KSDataString:
      return Trim(text, " ");
    case KSDataTable:
      return text;
    default:
      return {};
  }
}

/// Makes a point of what a value's text gave.
struct PointMaker {
  const EnumKSDataType dataType;
  const std::int64_t time;

  std::shared_ptr<KSDataBase> operator()(std::monostate) const { return nullptr; }
  std::shared_ptr<KSDataBase> operator()(std::string_view text) const {
    if (dataType == KSDataTable) return std::make_shared<KSTableDataPoint>(time, std::string(text));
    return std::make_shared<KSDataPoint<std::string>>(time, std::string(text));
  }
  template <class T>
  std::shared_ptr<KSDataBase> operator()(T number) const {
    return std::make_shared<KSDataPoint<T>>(time, number);
  }
};

}  // namespace

TypedValue::TypedValue(const VarInfo& variable)
    : dataType_(static_cast<EnumKSDataType>(variable.dataType)),
      content_(Read(dataType_, variable.valueText)) {}

std::shared_ptr<KSDataBase> TypedValue::MakePoint(std::int64_t time) const {
  return std::visit(PointMaker{dataType_, time}, content_);
}

}  // namespace keelstone

#include "engine/variable_values.h"

#include <cmath>
#include <optional>

#include "model/kstabledatapoint.h"
#include "platform/compressor.h"
#include "platform/json_reader.h"
#include "platform/json_value.h"
#include "platform/logger.h"
#include "platform/numbers.h"
#include "platform/strings.h"

namespace keelstone {

namespace {

template <class T>
std::shared_ptr<KSDataBase> MakePoint(std::int64_t time, std::optional<T> value) {
  return value ? std::make_shared<KSDataPoint<T>>(time, *value) : nullptr;
}

std::optional<float> LeadingFloat(const std::string& text) {
  const std::optional<double> wide = LeadingDouble(text);
  if (!wide) return std::nullopt;
  const float number = NarrowToFloat(*wide);
  return std::isfinite(number) ? std::optional<float>(number) : std::nullopt;
}

std::shared_ptr<KSDataBase> MakeTablePoint(const VarInfo& variable, std::int64_t time) {
  auto point = std::make_shared<KSTableDataPoint>(time, variable.valueText);
  point->hashColumns = variable.tableKeys;
  point->hashSort = (variable.tableFlag & 0xFF) != 0;
  std::string table = variable.value.toString();
  point->rawValueSize = static_cast<std::int64_t>(table.size());
  if (!CompressString(table)) {
    KS_LOG("FS_Keelstone", "KSRuleInstance::CreateDataPoint", "ksruleinstance", kLogError,
           "Compress table value is failure");
  }
  point->SetTableValue(table);
  return point;
}

JsonValue ConvertElement(EnumKSDataType dataType, const JsonValue& element) {
  if (element.isArray() || element.isObject()) return element;  // has no text to convert
  const std::string text = element.asString();
  return dataType == KSDataInt64 ? JsonValue(AtollSaturated(text)) : JsonValue(AtofFinite(text));
}

JsonValue ConvertArray(EnumKSDataType dataType, const JsonValue& array) {
  JsonValue converted(JsonType::Array);
  for (const JsonValue& element : array) converted.append(ConvertElement(dataType, element));
  return converted;
}

JsonValue ConvertMembers(EnumKSDataType dataType, const JsonValue& object) {
  JsonValue converted(JsonType::Object);
  for (auto member = object.begin(); !(member == object.end()); ++member) {
    JsonValue& place = converted[member.name()];
    if (member->isString()) {
      const std::string& text = member->stringRef();
      place = dataType == KSDataInt64 ? JsonValue(AtoiLow32(text)) : JsonValue(AtofFinite(text));
    } else if (member->isArray()) {
      place = ConvertArray(dataType, *member);
    } else if (member->isObject()) {
      place = ConvertMembers(dataType, *member).toString();
    } else {
      place = *member;
    }
  }
  return converted;
}

}  // namespace

std::shared_ptr<KSDataBase> CreateDataPoint(const VarInfo& variable, std::int64_t time) {
  switch (variable.dataType) {
    case KSDataInt64:
      return MakePoint(time, LeadingInt64(variable.valueText));
    case KSDataFloat:
      return MakePoint(time, LeadingFloat(variable.valueText));
    case KSDataDouble:
      return MakePoint(time, LeadingDouble(variable.valueText));
    case KSDataString:
      return std::make_shared<KSDataPoint<std::string>>(time,
                                                        std::string(Trim(variable.valueText, " ")));
    case KSDataTable:
      return MakeTablePoint(variable, time);
    default:
      return nullptr;
  }
}

std::string ConvertVariableRuleParam(EnumKSDataType dataType, const std::string& param) {
  JsonValue document;
  if (!JsonReader::Parse(param, document)) return JsonValue().toString();
  if (dataType == KSDataFloat || !document.isObject()) return document.toString();
  return ConvertMembers(dataType, document).toString();
}

}  // namespace keelstone

#include "engine/variable_values.h"

#include <memory>
#include <utility>

#include "base/text/numbers.h"
#include "keelstone/compressor.h"
#include "keelstone/json_reader.h"
#include "keelstone/json_value.h"
#include "keelstone/logger.h"

namespace keelstone {

namespace {

bool WasSorted(const VarInfo& table) { return (table.tableFlag & 0xFF) != 0; }

/// Whether a point holds this very table, text and all.
bool Holds(const KSTableDataPoint& point, const VarInfo& table, const std::string& text) {
  const TableContent& content = *point.content;
  return point.value == table.valueText && content.hashSort == WasSorted(table) &&
         content.rawValueSize == static_cast<std::int64_t>(text.size()) &&
         content.hashColumns == table.tableKeys && content.GetTableText() == text;
}

std::shared_ptr<const TableContent> MakeTableContent(const VarInfo& table, std::string text) {
  auto content = std::make_shared<TableContent>();
  content->hashColumns = table.tableKeys;
  content->hashSort = WasSorted(table);
  content->rawValueSize = static_cast<std::int64_t>(text.size());
  if (!CompressString(text)) {
    KS_LOG("FS_Keelstone", "KSRuleInstance::CreateDataPoint", "ksruleinstance", kLogError,
           "Compress table value is failure");
  }
  content->SetTableValue(text);
  return content;
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

void FillTablePoint(const VarInfo& variable, const HistoryDataBase* history,
                    KSTableDataPoint& point) {
  std::string text = variable.value.toString();
  const auto* const tables = dynamic_cast<const TableHistoryData*>(history);
  if (tables != nullptr && !tables->points().empty() &&
      Holds(tables->points().back(), variable, text)) {
    point.content = tables->points().back().content;
  } else {
    point.content = MakeTableContent(variable, std::move(text));
  }
}

std::string ConvertVariableRuleParam(EnumKSDataType dataType, const std::string& param) {
  JsonValue document;
  if (!JsonReader::Parse(param, document)) return JsonValue().toString();
  if (dataType == KSDataFloat || !document.isObject()) return document.toString();
  return ConvertMembers(dataType, document).toString();
}

}  // namespace keelstone

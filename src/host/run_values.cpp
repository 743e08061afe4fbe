#include "keelstone/run_values.h"

#include <cmath>
#include <string_view>
#include <type_traits>
#include <utility>

#include "base/text/numbers.h"
#include "base/text/utf8.h"
#include "host/append_value.h"
#include "host/call_guard.h"
#include "keelstone/text_escape.h"

namespace keelstone {

namespace {

[[noreturn]] void Refuse(const std::string& why) {
  throw HostFailure(DomainFault::Kind::kInput, why);
}

template <class Number>
void AppendFinite(std::string& text, Number value, const char* what) {
  if (!std::isfinite(value)) Refuse(std::string(what) + " is not finite");
  AppendNumber(text, value);
}

const char* TextOf(bool value) { return value ? "true" : "false"; }

void AppendNames(std::string& json, const std::vector<std::string>& names, const char* what) {
  const char* separator = "[";
  for (const std::string& name : names) {
    RequireUtf8(name, what);
    json += std::exchange(separator, ",");
    AppendJsonString(json, name);
  }
  json += names.empty() ? "[]" : "]";
}

void AppendCell(std::string& json, const TableCell& cell) {
  std::visit(
      [&json](const auto& value) {
        using Type = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<Type, std::nullptr_t>) {
          json += "null";
        } else if constexpr (std::is_same_v<Type, bool>) {
          json += TextOf(value);
        } else if constexpr (std::is_same_v<Type, std::int64_t>) {
          AppendNumber(json, value);
        } else if constexpr (std::is_same_v<Type, double>) {
          AppendFinite(json, value, "a cell");
        } else {
          RequireUtf8(value, "the text of a cell");
          AppendJsonString(json, value);
        }
      },
      cell);
}

/// The variable in the shape that it has in a line of input.
std::string TableVariableJson(const std::string& name, const std::string& interfaceValue,
                              const ValueTable& table) {
  std::string json = "{\"name\":";
  AppendJsonString(json, name);
  json += ",\"interface\":";
  AppendJsonString(json, interfaceValue);
  json += ",\"type\":\"table\",\"value\":{\"columns\":";
  AppendNames(json, table.columns, "a column");
  json += ",\"rows\":[";
  const char* separator = "[";
  for (const std::vector<TableCell>& row : table.rows) {
    json += std::exchange(separator, ",[");
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (i > 0) json += ',';
      AppendCell(json, row[i]);
    }
    json += ']';
  }
  json += "]}";
  if (table.keys) {
    json += ",\"keys\":";
    AppendNames(json, *table.keys, "a key");
  }
  if (table.keepsOrder) json += ",\"sort\":false";
  return json += '}';
}

void SetText(bool value, VarInfo& variable) {
  variable.dataType = KSDataString;
  variable.valueText = TextOf(value);
}

void SetText(std::int64_t value, VarInfo& variable) {
  variable.dataType = KSDataInt64;
  AppendNumber(variable.valueText, value);
}

void SetText(float value, VarInfo& variable) {
  variable.dataType = KSDataFloat;
  AppendFinite(variable.valueText, value, "the value");
}

void SetText(double value, VarInfo& variable) {
  variable.dataType = KSDataDouble;
  AppendFinite(variable.valueText, value, "the value");
}

void SetText(std::string& value, VarInfo& variable) {
  RequireUtf8(value, "text");
  variable.dataType = KSDataString;
  variable.valueText = std::move(value);
}

}  // namespace

void RequireUtf8(std::string_view text, const char* name) {
  if (const std::size_t place = FirstInvalidUtf8(text); place < text.size()) {
    Refuse(std::string(name) + ": not UTF-8 at byte " + std::to_string(place + 1));
  }
}

void AppendValue(RunValue value, ParsedRun& run) {
  if (value.name.empty()) Refuse("the name is empty");
  RequireUtf8(value.name, "name");
  RequireUtf8(value.interfaceValue, "interface_value");
  if (const auto* const table = std::get_if<ValueTable>(&value.value)) {
    RunLineReader reader(run.domain);
    const std::string json = TableVariableJson(value.name, value.interfaceValue, *table);
    if (!reader.ReadVariables(json, run)) Refuse(reader.fault());
    return;
  }
  VarInfo variable;
  variable.variableName = std::move(value.name);
  variable.interfaceValue = std::move(value.interfaceValue);
  std::visit(
      [&variable](auto& held) {
        if constexpr (!std::is_same_v<std::decay_t<decltype(held)>, ValueTable>) {
          SetText(held, variable);
        }
      },
      value.value);
  variable.variableType =
      RunLineReader::DefaultTypeCode(static_cast<EnumKSDataType>(variable.dataType));
  run.variables.push_back(std::move(variable));
}

}  // namespace keelstone

#include "bindings/c/table_text.h"

#include <cmath>

#include "base/text/numbers.h"
#include "bindings/c/call.h"
#include "keelstone/text_escape.h"

namespace keelstone::c {

namespace {

void AppendNames(std::string& json, const char* const* names, std::size_t count, const char* what) {
  json += '[';
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) json += ',';
    AppendJsonString(json, RequiredText(names[i], what));
  }
  json += ']';
}

void AppendCell(std::string& json, const ks_cell& cell) {
  switch (cell.type) {
    case KS_NULL:
      json += "null";
      return;
    case KS_BOOL:
      json += cell.integer != 0 ? "true" : "false";
      return;
    case KS_INT64:
      AppendNumber(json, cell.integer);
      return;
    case KS_DOUBLE:
      if (!std::isfinite(cell.real)) throw Failure(KS_ERROR_INPUT, "a cell is not finite");
      AppendNumber(json, cell.real);
      return;
    case KS_STRING:
      AppendJsonString(json, RequiredText(cell.text, "the text of a cell", cell.length));
      return;
    default:
      throw Failure(KS_ERROR_ARGUMENT, "the type of a cell is none that a cell has");
  }
}

}  // namespace

std::string TableVariableJson(std::string_view name, std::string_view interfaceValue,
                              const ks_table& table) {
  // Rows without columns hold nothing to bound their number by.
  if (table.column_count == 0 && table.row_count > 0) {
    throw Failure(KS_ERROR_ARGUMENT, "rows without columns");
  }
  if (table.column_count > 0) Required(table.columns, "columns");
  if (table.column_count > 0 && table.row_count > 0) Required(table.cells, "cells");
  std::string json = "{\"name\":";
  AppendJsonString(json, name);
  json += ",\"interface\":";
  AppendJsonString(json, interfaceValue);
  json += ",\"type\":\"table\",\"value\":{\"columns\":";
  AppendNames(json, table.columns, table.column_count, "a column");
  json += ",\"rows\":[";
  const ks_cell* cell = table.cells;
  for (std::size_t row = 0; row < table.row_count; ++row) {
    json += row > 0 ? ",[" : "[";
    for (std::size_t column = 0; column < table.column_count; ++column, ++cell) {
      if (column > 0) json += ',';
      AppendCell(json, *cell);
    }
    json += ']';
  }
  json += "]}";
  if (table.keys != nullptr) {
    json += ",\"keys\":";
    AppendNames(json, table.keys, table.key_count, "a key");
  }
  if (table.keep_order != 0) json += ",\"sort\":false";
  return json += '}';
}

}  // namespace keelstone::c

#include "bindings/c/table_of.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "bindings/c/call.h"

namespace keelstone::c {

namespace {

std::vector<std::string> NamesOf(const char* const* names, std::size_t count, const char* what) {
  std::vector<std::string> given;
  for (std::size_t i = 0; i < count; ++i) given.emplace_back(RequiredText(names[i], what));
  return given;
}

TableCell CellOf(const ks_cell& cell) {
  switch (cell.type) {
    case KS_NULL:
      return nullptr;
    case KS_BOOL:
      return cell.integer != 0;
    case KS_INT64:
      return cell.integer;
    case KS_DOUBLE:
      return cell.real;
    case KS_STRING:
      return std::string(RequiredText(cell.text, "the text of a cell", cell.length));
    default:
      throw Failure(KS_ERROR_ARGUMENT, "the type of a cell is none that a cell has");
  }
}

}  // namespace

ValueTable TableOf(const ks_table& table) {
  // Rows without columns hold nothing to bound their number by.
  if (table.column_count == 0 && table.row_count > 0) {
    throw Failure(KS_ERROR_ARGUMENT, "rows without columns");
  }
  if (table.column_count > 0) Required(table.columns, "columns");
  if (table.column_count > 0 && table.row_count > 0) Required(table.cells, "cells");
  ValueTable given;
  given.columns = NamesOf(table.columns, table.column_count, "a column");
  const ks_cell* cell = table.cells;
  for (std::size_t row = 0; row < table.row_count; ++row) {
    std::vector<TableCell>& cells = given.rows.emplace_back();
    cells.reserve(table.column_count);
    for (std::size_t i = 0; i < table.column_count; ++i) cells.push_back(CellOf(*cell++));
  }
  if (table.keys != nullptr) given.keys = NamesOf(table.keys, table.key_count, "a key");
  given.keepsOrder = table.keep_order != 0;
  return given;
}

}  // namespace keelstone::c

#include "intake/table_value.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

#include "base/text/md5.h"
#include "base/text/numbers.h"
#include "keelstone/text_escape.h"

namespace keelstone {

namespace {

using Kind = RawJson::Kind;
using Value = RawJson::Value;

// Objects that share no name make a table as wide as it is long; beyond this many cells
// such a table is refused instead of filling the memory with nulls.
constexpr std::size_t kMaxCellsOfObjects = 20'000'000;
constexpr std::size_t kShownNameBytes = 60;

[[noreturn]] void Fail(const std::string& field, const std::string& text);

/// Carries a fault out of the recursion; caught in ReadTable.
class TableError : public std::runtime_error {
 public:
  TableError(std::string field, const std::string& text)
      : std::runtime_error(text), field_(std::move(field)) {}
  const std::string& field() const noexcept { return field_; }

 private:
  std::string field_;
};

void Fail(const std::string& field, const std::string& text) { throw TableError(field, text); }

std::string Quoted(std::string_view name) { return '"' + Printable(name, kShownNameBytes) + '"'; }

std::string RowName(std::size_t row) { return "row " + std::to_string(row + 1); }

double NearestDouble(std::string_view text) {
  double value = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (failure == std::errc()) return value;
  // Beyond the range: too small reads as zero, too large is refused.
  if (const auto rounded = LeadingDouble(text)) return *rounded;
  Fail("value",
       "the number " + Printable(text, kShownNameBytes) + " is beyond what a double holds");
}

/// A cell's number: an integer of 64 bits, or the nearest double of any other.
JsonValue NumberValue(std::string_view text) {
  const char* const end = text.data() + text.size();
  if (IsIntegerText(text)) {
    std::int64_t whole = 0;
    if (std::from_chars(text.data(), end, whole).ec == std::errc()) return whole;
  }
  return NearestDouble(text);
}

JsonValue CellValue(const Value& cell) {
  if (!cell) return {};
  switch (cell.kind()) {
    case Kind::kNull:
      return {};
    case Kind::kFalse:
      return false;
    case Kind::kTrue:
      return true;
    case Kind::kNumber:
      return NumberValue(cell.text());
    case Kind::kString:
      return cell.text();
    case Kind::kArray: {
      JsonValue array(JsonType::Array);
      for (const Value element : cell) array.append(CellValue(element));
      return array;
    }
    case Kind::kObject: {
      JsonValue object(JsonType::Object);
      for (const auto& [name, member] : UniqueMembers(cell)) object[name] = CellValue(member);
      return object;
    }
  }
  return {};
}

void AppendCellText(std::string& out, const Value& cell) {
  switch (cell ? cell.kind() : Kind::kNull) {
    case Kind::kNull:
      out.append("null");
      return;
    case Kind::kFalse:
      out.append("false");
      return;
    case Kind::kTrue:
      out.append("true");
      return;
    case Kind::kNumber:
      NumberValue(cell.text()).appendTo(out);
      return;
    case Kind::kString:
      AppendJsonString(out, cell.text());
      return;
    case Kind::kArray:
      out.push_back('[');
      for (auto element = cell.begin(); element != cell.end(); ++element) {
        if (element != cell.begin()) out.push_back(',');
        AppendCellText(out, *element);
      }
      out.push_back(']');
      return;
    case Kind::kObject: {
      char separator = '{';
      for (const auto& [name, member] : UniqueMembers(cell)) {
        out.push_back(separator);
        separator = ',';
        AppendJsonString(out, name);
        out.push_back(':');
        AppendCellText(out, member);
      }
      out.append(separator == '{' ? "{}" : "}");
      return;
    }
  }
}

/// A table in one shape, whichever it was written in. It borrows from the RawJson.
class Table {
 public:
  explicit Table(const Value& value) {
    if (value.Is(Kind::kObject)) {
      ReadShaped(value);
    } else {
      ReadObjects(value);
    }
  }

  bool hasOwnColumns() const noexcept { return ownColumns_; }
  const std::vector<std::string_view>& columns() const noexcept { return columns_; }
  std::size_t rowCount() const noexcept { return rows_.size(); }

  /// Calls `visit` with the cells of every row, in order of the columns; an absent cell
  /// is null.
  template <class Visit>
  void ForEachRow(Visit visit) const {
    std::vector<Value> cells;
    for (const Value& row : rows_) {
      cells.assign(columns_.size(), Value());
      if (row.kind() == Kind::kArray) {
        std::size_t column = 0;
        for (const Value cell : row) cells[column++] = cell;
      } else {
        for (auto member = row.begin(); member != row.end(); ++member) {
          cells[places_.find(member.name())->second] = *member;
        }
      }
      visit(cells);
    }
  }

 private:
  void ReadShaped(const Value& table) {
    Value columns;
    Value rows;
    for (auto member = table.begin(); member != table.end(); ++member) {
      if (member.name() == "columns") columns = *member;
      if (member.name() == "rows") rows = *member;
    }
    if (!columns.Is(Kind::kArray)) Fail("value", "a table needs \"columns\", an array of names");
    if (!rows.Is(Kind::kArray)) Fail("value", "a table needs \"rows\", an array of arrays");
    for (const Value name : columns) {
      if (!name.Is(Kind::kString)) Fail("value", "a column's name must be a string");
      if (!AddColumn(name.text())) {
        Fail("value", "the column " + Quoted(name.text()) + " stands twice");
      }
    }
    rows_.reserve(rows.size());
    for (const Value row : rows) {
      if (!row.Is(Kind::kArray)) Fail("value", RowName(rows_.size()) + " is no array");
      if (row.size() != columns_.size()) {
        Fail("value", RowName(rows_.size()) + " has " + std::to_string(row.size()) + " cells for " +
                          std::to_string(columns_.size()) + " columns");
      }
      rows_.push_back(row);
    }
  }

  void ReadObjects(const Value& array) {
    ownColumns_ = array.size() != 0;
    rows_.reserve(array.size());
    for (const Value row : array) {
      if (!row.Is(Kind::kObject)) {
        Fail("value", "a table is an object with columns and rows or an array of objects, and " +
                          RowName(rows_.size()) + " is no object");
      }
      for (auto member = row.begin(); member != row.end(); ++member) AddColumn(member.name());
      rows_.push_back(row);
    }
    if (!columns_.empty() && rows_.size() > kMaxCellsOfObjects / columns_.size()) {
      Fail("value", "a table of " + std::to_string(rows_.size()) + " rows and " +
                        std::to_string(columns_.size()) + " columns is too large");
    }
  }

  bool AddColumn(std::string_view name) {
    if (!places_.emplace(name, columns_.size()).second) return false;
    columns_.push_back(name);
    return true;
  }

  std::vector<std::string_view> columns_;
  std::unordered_map<std::string_view, std::size_t> places_;
  std::vector<Value> rows_;
  bool ownColumns_ = true;
};

JsonValue TableJson(const Table& table, const std::vector<std::string_view>& columns) {
  JsonValue value(JsonType::Object);
  JsonValue names(JsonType::Array);
  for (const std::string_view name : columns) names.append(name);
  JsonValue rows(JsonType::Array);
  table.ForEachRow([&](const std::vector<Value>& cells) {
    JsonValue row(JsonType::Array);
    for (const Value& cell : cells) row.append(CellValue(cell));
    rows.append(std::move(row));
  });
  value["columns"] = std::move(names);
  value["rows"] = std::move(rows);
  return value;
}

/// Positions of the key columns in ascending order of their names.
std::vector<std::size_t> KeyPositions(const std::vector<std::string_view>& columns,
                                      const std::set<std::string>& keys) {
  std::vector<std::size_t> positions;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (keys.contains(std::string(columns[i]))) positions.push_back(i);
  }
  std::sort(positions.begin(), positions.end(),
            [&](std::size_t a, std::size_t b) { return columns[a] < columns[b]; });
  return positions;
}

void AppendRowText(std::string& out, const std::vector<Value>& cells,
                   const std::vector<std::size_t>& positions) {
  out.push_back('[');
  for (std::size_t i = 0; i < positions.size(); ++i) {
    if (i != 0) out.push_back(',');
    AppendCellText(out, cells[positions[i]]);
  }
  out.push_back(']');
}

std::string Digest(const Table& table, const std::vector<std::size_t>& positions, bool sort) {
  std::vector<std::string> texts;
  texts.reserve(sort ? table.rowCount() : 1);
  Md5 md5;
  std::string row;
  bool first = true;
  table.ForEachRow([&](const std::vector<Value>& cells) {
    row.clear();
    if (!first && !sort) row.push_back('\n');
    first = false;
    AppendRowText(row, cells, positions);
    if (sort) {
      texts.push_back(row);
    } else {
      md5.Update(row);
    }
  });
  std::sort(texts.begin(), texts.end());
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (i != 0) md5.Update("\n");
    md5.Update(texts[i]);
  }
  return md5.HexDigest();
}

void Read(const Value& value, const TableDigestOptions& options, VarInfo& variable) {
  const Table table(value);
  std::vector<std::string_view> columns = table.columns();
  std::set<std::string> keys(columns.begin(), columns.end());
  if (options.keys) {
    std::unordered_set<std::string_view> known(columns.begin(), columns.end());
    for (const std::string& key : *options.keys) {
      if (known.contains(key)) continue;
      if (table.hasOwnColumns()) Fail("keys", Quoted(key) + " is no column of the table");
      known.insert(key);
      columns.push_back(key);
    }
    keys = {options.keys->begin(), options.keys->end()};
  }
  variable.value = TableJson(table, columns);
  variable.tableFlag = options.sort ? 1 : 0;
  variable.valueText =
      options.digest ? *options.digest : Digest(table, KeyPositions(columns, keys), options.sort);
  variable.tableKeys = std::move(keys);
}

}  // namespace

std::optional<TableFault> ReadTable(const RawJson::Value& value, const TableDigestOptions& options,
                                    VarInfo& variable) {
  try {
    Read(value, options, variable);
  } catch (const TableError& error) {
    return TableFault{error.field(), error.what()};
  }
  return std::nullopt;
}

}  // namespace keelstone

#include "keelstone/table_changes.h"

#include <algorithm>
#include <deque>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "keelstone/expectation.h"

namespace keelstone {

namespace {

constexpr std::size_t kLongestCell = 1024;     // bytes of a cell's text that are kept
constexpr std::size_t kLongestNamedCell = 40;  // in words

/// A table with its cells by the name of their column.
class Table {
 public:
  explicit Table(const JsonValue& value) {
    const JsonValue* const columns = value.find("columns");
    const JsonValue* const rows = value.find("rows");
    if (columns == nullptr || !columns->isArray() || rows == nullptr || !rows->isArray()) return;
    for (const JsonValue& column : *columns) {
      if (!column.isString()) return;
      names_.push_back(column.stringRef());
      places_.try_emplace(column.stringRef(), places_.size());
    }
    for (const JsonValue& row : *rows) {
      if (!row.isArray()) return;
      rows_.push_back(&row);
    }
    isTable_ = true;
  }

  bool isTable() const noexcept { return isTable_; }
  std::size_t size() const noexcept { return rows_.size(); }
  const std::vector<std::string>& columns() const noexcept { return names_; }
  /// Null where the row has no such cell.
  const JsonValue& Cell(std::size_t row, const std::string& column) const {
    static const JsonValue kNone;
    const auto place = places_.find(column);
    const JsonValue& cells = *rows_[row];
    return place == places_.end() || place->second >= cells.size() ? kNone : cells[place->second];
  }

 private:
  bool isTable_ = false;
  std::vector<std::string> names_;
  std::unordered_map<std::string, std::size_t> places_;
  std::vector<const JsonValue*> rows_;
};

JsonValue Shown(const JsonValue& cell) {
  if (cell.isString()) return CutText(cell.stringRef(), kLongestCell);
  if (!cell.isArray() && !cell.isObject()) return cell;
  const std::string text = cell.toString();
  return text.size() <= kLongestCell ? cell : JsonValue(CutText(text, kLongestCell));
}

JsonValue Cells(const Table& table, std::size_t row, const std::vector<std::string>& columns) {
  JsonValue object(JsonType::Object);
  for (const std::string& column : columns) object[column] = Shown(table.Cell(row, column));
  return object;
}

std::string KeyText(const Table& table, std::size_t row, const std::vector<std::string>& keys) {
  std::string text;
  for (const std::string& key : keys) {
    table.Cell(row, key).appendTo(text);
    text += ',';
  }
  return text;
}

std::vector<std::string> KeyTexts(const Table& table, const std::vector<std::string>& keys) {
  std::vector<std::string> texts;
  for (std::size_t row = 0; row < table.size(); ++row) texts.push_back(KeyText(table, row, keys));
  return texts;
}

/// The columns of both tables, those of the first one first.
std::vector<std::string> AllColumns(const Table& a, const Table& b) {
  std::vector<std::string> all = a.columns();
  const std::set<std::string> known(all.begin(), all.end());
  for (const std::string& column : b.columns()) {
    if (!known.contains(column)) all.push_back(column);
  }
  return all;
}

/// A row that stands in both tables; empty when its other cells are the same too.
JsonValue ChangeOf(const Table& before, std::size_t rowBefore, const Table& after,
                   std::size_t rowAfter, const std::vector<std::string>& keys,
                   const std::vector<std::string>& others) {
  JsonValue old(JsonType::Object);
  JsonValue now(JsonType::Object);
  for (const std::string& column : others) {
    const JsonValue& cellBefore = before.Cell(rowBefore, column);
    const JsonValue& cellAfter = after.Cell(rowAfter, column);
    if (cellBefore.toString() == cellAfter.toString()) continue;
    old[column] = Shown(cellBefore);
    now[column] = Shown(cellAfter);
  }
  if (old.empty()) return {};
  JsonValue change(JsonType::Object);
  change["key"] = Cells(after, rowAfter, keys);
  change["before"] = std::move(old);
  change["after"] = std::move(now);
  return change;
}

/// "2 rows added (10.9.0.0/16, eth0; …)": the first row by its key cells.
void Tell(std::string& text, const KSChangedRows& change, const char* what, const char* rowMember,
          const std::vector<std::string>& keys) {
  if (change.count == 0) return;
  if (!text.empty()) text += ", ";
  text += std::to_string(change.count);
  text += change.count == 1 ? " row " : " rows ";
  text += what;
  if (change.rows.empty()) return;
  const JsonValue& first = change.rows.front();
  const JsonValue& cells = *rowMember == '\0' ? first : first[rowMember];
  std::string named;
  for (const std::string& key : keys) {
    const JsonValue& cell = cells[key];
    if (!named.empty()) named += ", ";
    named += CutText(cell.isString() ? cell.stringRef() : cell.toString(), kLongestNamedCell);
  }
  text += " (" + CutText(named, 3 * kLongestNamedCell) + (change.count > 1 ? "; …)" : ")");
}

}  // namespace

void KSChangedRows::Add(JsonValue row) {
  if (++count <= kMostRows) rows.push_back(std::move(row));
}

JsonValue KSChangedRows::ToJsonValue() const {
  JsonValue object(JsonType::Object);
  object["count"] = static_cast<std::uint64_t>(count);
  JsonValue& list = object["rows"] = JsonValue(JsonType::Array);
  for (const JsonValue& row : rows) list.append(row);
  return object;
}

std::optional<KSTableChanges> KSTableChanges::Between(const JsonValue& before,
                                                      const JsonValue& after,
                                                      const std::set<std::string>& keyColumns) {
  const Table old(before);
  const Table now(after);
  if (!old.isTable() || !now.isTable()) return std::nullopt;
  const std::vector<std::string> all = AllColumns(old, now);
  KSTableChanges changes;
  changes.keys.assign(keyColumns.begin(), keyColumns.end());
  if (keyColumns.empty()) {
    changes.keys = all;
    std::sort(changes.keys.begin(), changes.keys.end());
  }
  std::vector<std::string> others;
  for (const std::string& column : all) {
    if (!std::binary_search(changes.keys.begin(), changes.keys.end(), column)) {
      others.push_back(column);
    }
  }

  const std::vector<std::string> oldKeys = KeyTexts(old, changes.keys);
  const std::vector<std::string> nowKeys = KeyTexts(now, changes.keys);
  std::unordered_map<std::string_view, std::deque<std::size_t>> unmatched;
  for (std::size_t row = 0; row < old.size(); ++row) unmatched[oldKeys[row]].push_back(row);
  for (std::size_t row = 0; row < now.size(); ++row) {
    const auto same = unmatched.find(nowKeys[row]);
    if (same == unmatched.end() || same->second.empty()) {
      changes.added.Add(Cells(now, row, now.columns()));
      continue;
    }
    JsonValue change = ChangeOf(old, same->second.front(), now, row, changes.keys, others);
    same->second.pop_front();
    if (!change.isNull()) changes.changed.Add(std::move(change));
  }
  for (std::size_t row = 0; row < old.size(); ++row) {
    std::deque<std::size_t>& rows = unmatched[oldKeys[row]];
    if (rows.empty() || rows.front() != row) continue;
    rows.pop_front();
    changes.removed.Add(Cells(old, row, old.columns()));
  }
  changes.isReordered = changes.added.count + changes.removed.count == 0 && oldKeys != nowKeys;
  return changes;
}

std::string KSTableChanges::InWords() const {
  std::string text;
  Tell(text, added, "added", "", keys);
  Tell(text, removed, "removed", "", keys);
  Tell(text, changed, "changed", "key", keys);
  if (isReordered) text += text.empty() ? "the same rows in another order" : ", in another order";
  return text;
}

JsonValue KSTableChanges::ToJsonValue() const {
  JsonValue object(JsonType::Object);
  JsonValue& names = object["keys"] = JsonValue(JsonType::Array);
  for (const std::string& key : keys) names.append(key);
  object["added"] = added.ToJsonValue();
  object["removed"] = removed.ToJsonValue();
  object["changed"] = changed.ToJsonValue();
  if (isReordered) object["reordered"] = true;
  return object;
}

}  // namespace keelstone

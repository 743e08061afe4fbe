#include "keelstone/block_periods.h"

#include <optional>
#include <string_view>
#include <utility>

#include "keelstone/database_files.h"
#include "keelstone/json_reader.h"
#include "storage/domain/domain_place.h"

namespace keelstone {

namespace {

constexpr const char* kSelectAll = "select id, data from KSBlockSetting order by id";
constexpr const char* kSelectOne = "select id, data from KSBlockSetting where id = ?";
constexpr const char* kInsert = "insert into KSBlockSetting (data) values (?)";
constexpr const char* kDelete = "delete from KSBlockSetting where id = ?";

constexpr TableOperation BlockOperation(const char* function, TableAccess access) {
  return {.table = "KSBlockSetting",
          .dbType = kDbBlockSetting,
          .function = function,
          .source = "block_periods",
          .access = access};
}

std::optional<BlockPeriod> ReadPeriod(std::int64_t id, std::string_view text) {
  JsonValue row;
  if (!JsonReader::Parse(text, row) || !row.isObject()) return std::nullopt;
  BlockPeriod period;
  period.id = id;
  try {
    const JsonValue& constant = row;
    period.from = constant["blockTimeStart"].asTime();
    period.to = constant["blockTimeEnd"].asTime();
    if (!constant["nodes"].isArray()) return period;
    for (const JsonValue& node : constant["nodes"]) {
      period.devices.push_back(node["deviceName"].asString());
    }
  } catch (const JsonError&) {
    return std::nullopt;
  }
  return period;
}

std::string RowText(const BlockPeriod& period) {
  JsonValue row(JsonType::Object);
  JsonValue& nodes = row["nodes"] = JsonValue(JsonType::Array);
  for (const std::string& device : period.devices) {
    JsonValue node(JsonType::Object);
    node["deviceName"] = device;
    nodes.append(std::move(node));
  }
  row["blockTimeStart"] = period.from;
  row["blockTimeEnd"] = period.to;
  return row.toString();
}

/// The periods with these ids; nothing when there is none with one of them, which `missing`
/// names then.
std::vector<BlockPeriod> Choose(CppSQLite3DB& db, const std::set<std::int64_t>& ids,
                                std::optional<std::int64_t>& missing) {
  std::vector<BlockPeriod> chosen;
  auto select = db.compileStatement(kSelectOne);
  for (const std::int64_t id : ids) {
    select.bind(1, id);
    const auto row = select.execQuery();
    if (row.eof()) {
      missing = id;
      return {};
    }
    chosen.push_back(ReadPeriod(id, row.getStringField(1)).value_or(BlockPeriod{id, {}, 0, 0}));
    select.reset();
  }
  return chosen;
}

void Remove(CppSQLite3DB& db, const std::vector<BlockPeriod>& periods) {
  auto remove = db.compileStatement(kDelete);
  for (const BlockPeriod& period : periods) {
    remove.bind(1, period.id);
    remove.execDML();
    remove.reset();
  }
}

}  // namespace

std::string ReadBlockPeriods(const std::string& domainId, std::vector<BlockPeriod>& periods) {
  periods.clear();
  return RunOnDomain(domainId, BlockOperation("ReadBlockPeriods", TableAccess::kRead),
                     [&](CppSQLite3DB& db) {
                       auto select = db.compileStatement(kSelectAll);
                       for (auto rows = select.execQuery(); !rows.eof(); rows.nextRow()) {
                         auto period = ReadPeriod(rows.getInt64Field(0), rows.getStringField(1));
                         if (period) periods.push_back(std::move(*period));
                       }
                     });
}

std::string AddBlockPeriod(const std::string& domainId, BlockPeriod& period) {
  return RunOnDomain(domainId, BlockOperation("AddBlockPeriod", TableAccess::kChange),
                     [&](CppSQLite3DB& db) {
                       InTransaction(db, [&] {
                         auto insert = db.compileStatement(kInsert);
                         insert.bind(1, std::string_view(RowText(period)));
                         insert.execDML();
                         auto select = db.compileStatement("select last_insert_rowid()");
                         period.id = select.execQuery().getInt64Field(0);
                         return true;
                       });
                     });
}

EditOutcome RemoveBlockPeriods(const std::string& domainId, const std::set<std::int64_t>& ids,
                               bool dryRun, std::vector<BlockPeriod>& periods) {
  std::optional<std::int64_t> missing;
  const TableAccess access = dryRun ? TableAccess::kRead : TableAccess::kChange;
  std::string fault =
      RunOnDomain(domainId, BlockOperation("RemoveBlockPeriods", access), [&](CppSQLite3DB& db) {
        const auto choose = [&] { periods = Choose(db, ids, missing); };
        if (dryRun) return choose();
        InTransaction(db, [&] {
          choose();
          Remove(db, periods);
          return !missing;
        });
      });
  if (!fault.empty()) return {EditOutcome::Kind::kFailed, std::move(fault)};
  if (!missing) return {};
  return {EditOutcome::Kind::kRefused,
          "there is no block period " + std::to_string(*missing) + "; nothing is removed"};
}

}  // namespace keelstone

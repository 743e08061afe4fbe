#ifndef KEELSTONE_BENCH_RAW_TABLES_H
#define KEELSTONE_BENCH_RAW_TABLES_H

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "keelstone/rule_records.h"

namespace keelstone::bench {

/// The databases of a domain worked on with nothing but SQLite's C interface: the library's
/// files, a statement bound and run for each row, 600 rows a transaction, one opening a
/// table. A failing call throws std::runtime_error.
class RawTables {
 public:
  explicit RawTables(std::filesystem::path folder);

  /// Makes both tables anew and empty.
  void CreateTables() const;
  /// Makes the settings table with one row, the general settings.
  void CreateSettings(const std::string& generalSettings) const;

  void Write(const std::vector<ObjectRuleData>& rules,
             const std::vector<ObjectRuleHistoryData>& history) const;

 private:
  std::filesystem::path folder_;
};

/// Reads both tables of a domain over connections and statements that stay open.
class RawReader {
 public:
  /// Every text of a unit's rules and histories, each in a string of its own.
  struct Rows {
    std::vector<std::string> texts;
    std::size_t rules = 0;
    std::size_t histories = 0;
  };

  explicit RawReader(const std::filesystem::path& folder);
  ~RawReader();
  RawReader(const RawReader&) = delete;
  RawReader& operator=(const RawReader&) = delete;

  Rows Read(const UnitKey& key) const;

 private:
  struct Tables;
  std::unique_ptr<const Tables> tables_;
};

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_RAW_TABLES_H

#ifndef KEELSTONE_BENCH_RAW_TABLES_H
#define KEELSTONE_BENCH_RAW_TABLES_H

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/ksrulerecords.h"

namespace keelstone::bench {

/// The databases of a domain worked on with nothing but SQLite's C interface, in the way
/// the library works on them: the same files, statements, 600 rows a transaction, one
/// opening a table. A failing call throws std::runtime_error.
class RawTables {
 public:
  explicit RawTables(std::filesystem::path folder);

  /// Makes both tables anew and empty.
  void CreateTables() const;
  /// Makes the settings table with one row, the general settings.
  void CreateSettings(const std::string& generalSettings) const;

  void Write(const std::vector<ObjectRuleData>& rules,
             const std::vector<ObjectRuleHistoryData>& history) const;

  /// Every text of a device's rules and histories, each in a string of its own.
  struct Rows {
    std::vector<std::string> texts;
    std::size_t rules = 0;
    std::size_t histories = 0;
  };
  Rows ReadDevice(const UnitKey& key) const;

 private:
  std::string RuleFile() const;
  std::string HistoryFile() const;

  std::filesystem::path folder_;
};

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_RAW_TABLES_H

#ifndef KEELSTONE_TESTS_STORAGE_MERGE_FIXTURE_H
#define KEELSTONE_TESTS_STORAGE_MERGE_FIXTURE_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "keelstone/data_sync_manager.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/temp_root.h"

namespace keelstone::testing {

/// A delivered database and a domain's own, in folders of one test.
class Merge : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (root.path() / name).string(); }
  /// A settings database with `rows` rows of `text`, in an object unless it is one.
  std::string MakeSettings(const std::string& name, const std::string& text, int rows = 3,
                           const std::string& table = "KSBlockSetting") const {
    Execute(
        Path(name),
        {"drop table if exists " + table,
         "create table " + table + " (id INTEGER PRIMARY KEY, data TEXT)",
         "insert into " + table +
             " (data) with recursive n(i) as (select 1 union all select i + 1 from n where i < " +
             std::to_string(rows) + ") select '" +
             (text.starts_with('{') ? text : kBefore + text + kBehind) + "' from n"});
    return Path(name);
  }
  /// The only text that all rows hold; "mixed", "" for none, or why the file is no database.
  static std::string Content(const std::string& file, const std::string& table = "KSBlockSetting") {
    if (!std::filesystem::exists(file)) return "missing";
    try {
      if (Ask(file, "pragma integrity_check") != "ok") return "damaged";
      if (Ask(file, "select count(distinct data) from " + table) != "1") return "mixed";
      const std::string text = Ask(file, "select data from " + table);
      if (!text.starts_with(kBefore)) return text;
      return text.substr(kBefore.size(), text.size() - kBefore.size() - kBehind.size());
    } catch (const CppSQLite3Exception& error) {
      return error.errorMessage();
    }
  }
  bool Deliver(const std::string& from, const std::string& to, bool invalidate = false) const {
    return FSKSDataSyncManager::Instance()->MergeBlockSetting(from, to, domain, invalidate);
  }
  /// Files that lie beside the databases of a test.
  std::size_t FilesIn(const std::string& folder) const {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(Path(folder))) {
      ++count;
    }
    return count;
  }

  inline static const std::string kBefore = R"({"text":")";
  inline static const std::string kBehind = R"("})";
  TempRoot root;
  std::string domain = ::testing::UnitTest::GetInstance()->current_test_info()->name();
};

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_STORAGE_MERGE_FIXTURE_H

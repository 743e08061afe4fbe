#include "keelstone/cppsqlite3.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/temp_root.h"

namespace keelstone {
namespace {

using testing::TempRoot;

class CppSQLite3Test : public ::testing::Test {
 protected:
  CppSQLite3Test() : file_((root_.path() / "d\xC3\xA4ten \xE6\x97\xA5.db").string()) {
    db_.open(file_);
    db_.execDML("create table T (id integer primary key, text TEXT NOT NULL, n INTEGER)");
  }

  TempRoot root_;
  std::string file_;
  CppSQLite3DB db_;
};

TEST_F(CppSQLite3Test, WhatIsMadeIsForOwnerAndGroupOnly) {
  const mode_t before = ::umask(0);
  const auto rights = [](const std::filesystem::path& path) {
    return static_cast<unsigned>(std::filesystem::status(path).permissions());
  };
  for (const mode_t mask : {0U, 0077U}) {
    ::umask(mask);
    const std::string file = (root_.path() / ("made" + std::to_string(mask))).string();
    const std::string target = file + " behind a link";
    std::filesystem::create_symlink(target, file);
    CppSQLite3DB db;
    db.open(file);
    EXPECT_EQ(rights(target), kFileRights & ~mask);
    db.execDML("create table T (n)");
    db.execDML("begin immediate transaction;");
    db.execDML("insert into T values(1)");
    EXPECT_EQ(rights(target + "-journal"), kFileRights & ~mask);
    ASSERT_TRUE(MakeParentFolders(file + ".d/e/f"));
    EXPECT_EQ(rights(file + ".d"), kFolderRights & ~mask);
    EXPECT_EQ(rights(file + ".d/e"), kFolderRights & ~mask);
  }
  ::umask(before);
}

TEST_F(CppSQLite3Test, MakingAFileLeavesTheLocksOfOtherConnections) {
  db_.execDML("begin immediate transaction;");
  db_.execDML("insert into T (text) values('a')");
  CppSQLite3DB other;
  other.open(file_, CppSQLite3DB::Mode::kCreate);
  sqlite3_busy_timeout(other.handle(), 0);
  EXPECT_THROW(other.execDML("begin immediate transaction;"), CppSQLite3Exception);
}

TEST_F(CppSQLite3Test, ReaderAtItsEndHoldsNoLock) {
  CppSQLite3Statement select = db_.compileStatement("select * from T");
  EXPECT_TRUE(select.execQuery().eof());
  CppSQLite3DB other;
  other.open(file_, CppSQLite3DB::Mode::kReadWrite);
  sqlite3_busy_timeout(other.handle(), 0);
  EXPECT_EQ(other.execDML("insert into T (text) values ('x')"), 1);
  EXPECT_EQ(select.execQuery().getStringField("text"), "x");
}

}  // namespace
}  // namespace keelstone

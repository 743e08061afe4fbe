#include "keelstone/cppsqlite3.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/temp_root.h"

namespace keelstone {
namespace {

using ::testing::HasSubstr;
using testing::TempRoot;

/// The code of the exception that `work` throws; 0 when it throws none.
template <class Work>
int ErrorOf(Work work) {
  try {
    work();
  } catch (const CppSQLite3Exception& failure) {
    EXPECT_THAT(failure.errorMessage(), HasSubstr(": "));
    return failure.errorCode();
  }
  return 0;
}

class CppSQLite3Test : public ::testing::Test {
 protected:
  CppSQLite3Test() : file_((root_.path() / "d\xC3\xA4ten \xE6\x97\xA5.db").string()) {
    db_.open(file_);
    db_.execDML("create table T (id integer primary key, text TEXT NOT NULL, n INTEGER)");
  }

  CppSQLite3Statement Insert() {
    return db_.compileStatement("insert into T (text, n) values (?, ?)");
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
  EXPECT_EQ(ErrorOf([&] { other.execDML("begin immediate transaction;"); }), SQLITE_BUSY);
}

TEST_F(CppSQLite3Test, WhatIsBoundComesBackAndNullHasADefault) {
  CppSQLite3Statement insert = Insert();
  // An empty text is no null, however it is bound.
  const std::string texts[] = {"", std::string("a\0b\0", 4), "\xFF\xC3\x28\x80", "12"};
  for (const std::string& text : texts) {
    insert.bind(1, text);
    insert.bind(2, std::int64_t{INT64_MIN});
    EXPECT_EQ(insert.execDML(), 1);
    insert.bindStatic(1, text);
    EXPECT_EQ(insert.execDML(), 1);
  }
  CppSQLite3Statement select = db_.compileStatement("select text, n, null as absent from T");
  CppSQLite3Query row = select.execQuery();
  for (int n = 0; n < 8; ++n, row.nextRow()) {
    EXPECT_EQ(row.getStringField("text"), texts[n / 2]);
    EXPECT_EQ(row.getInt64Field(1), INT64_MIN);
    EXPECT_EQ(row.getIntField("absent", -5), -5);
    EXPECT_EQ(row.getStringField("absent", "-"), "-");
    EXPECT_EQ(ErrorOf([&] { (void)row.getIntField(3); }), SQLITE_RANGE);
    EXPECT_EQ(ErrorOf([&] { (void)row.fieldIndex("other"); }), SQLITE_RANGE);
  }
  EXPECT_TRUE(row.eof());
  EXPECT_EQ(ErrorOf([&] { (void)row.getIntField(0); }), SQLITE_MISUSE);
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

TEST_F(CppSQLite3Test, FaultySqlIsNamed) {
  EXPECT_EQ(ErrorOf([&] { db_.execDML("selec 1"); }), SQLITE_ERROR);
  EXPECT_EQ(ErrorOf([&] { db_.execDML("select 1; select 2"); }), SQLITE_MISUSE);
  EXPECT_EQ(ErrorOf([&] { db_.execDML(" -- nothing"); }), SQLITE_MISUSE);
  CppSQLite3Statement moved = db_.compileStatement("select ?");
  const CppSQLite3Statement target = std::move(moved);
  EXPECT_EQ(ErrorOf([&] { moved.bind(1, "x"); }), SQLITE_MISUSE);
  EXPECT_EQ(ErrorOf([&] { moved.bind(1, 1); }), SQLITE_MISUSE);
  EXPECT_EQ(ErrorOf([&] { moved.execDML(); }), SQLITE_MISUSE);
}

TEST_F(CppSQLite3Test, ModesDoWhatTheySay) {
  CppSQLite3DB db;
  const std::string absent = (root_.path() / "absent.db").string();
  EXPECT_EQ(ErrorOf([&] { db.open(absent, CppSQLite3DB::Mode::kReadWrite); }) & 0xFF,
            SQLITE_CANTOPEN);
  EXPECT_FALSE(db.isOpen());
  EXPECT_FALSE(std::filesystem::exists(absent));
  EXPECT_EQ(ErrorOf([&] { db.execDML("select 1"); }), SQLITE_MISUSE);
  EXPECT_EQ(ErrorOf([&] { (void)db.tableExists("T"); }), SQLITE_MISUSE);

  db_.close();
  std::filesystem::permissions(file_, std::filesystem::perms::owner_read);
  db.open(file_, CppSQLite3DB::Mode::kReadOnly);
  EXPECT_TRUE(db.tableExists("T"));
  EXPECT_EQ(ErrorOf([&] { db.execDML("insert into T (text) values ('x')"); }) & 0xFF,
            SQLITE_READONLY);
}

}  // namespace
}  // namespace keelstone

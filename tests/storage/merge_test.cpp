#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelstone/domain_data_manager.h"
#include "keelstone/interface_translator.h"
#include "keelstone/write_behind.h"
#include "tests/storage/merge_fixture.h"
#include "tests/support/file_text.h"
#include "tests/support/log_capture.h"

namespace keelstone::testing {

using ::testing::HasSubstr;
namespace {

namespace fs = std::filesystem;

FSKSDataSyncManager* const manager = FSKSDataSyncManager::Instance();

// ---- Whole files

TEST_F(Merge, EverySettingsDatabaseIsReplacedAndReadAnew) {
  const auto data = KSDomainDataManager::Instance()->GetKSDataManager(domain);
  const auto deliver = [&](int type, const std::string& table, const std::string& row,
                           bool (FSKSDataSyncManager::*merge)(
                               const std::string&, const std::string&, const std::string&, bool)) {
    const std::string from = MakeSettings(table + ".delivered", row, 1, table);
    const std::string to = DomainFile(type, domain);
    EXPECT_TRUE((manager->*merge)(from, to, domain, true));
    EXPECT_EQ(Content(to, table), row);
    EXPECT_EQ(Content(from, table), row);  // a copy is taken
  };
  deliver(kDbGlobalSetting, "KSGlobalSetting", R"({"name":"KSTableCountLimit","value":17})",
          &FSKSDataSyncManager::MergeGlobalSetting);
  EXPECT_EQ(data->GetTableLimitcount(), 17);
  deliver(kDbVariableRule, "KSVariableRule",
          R"({"variableSource":"s","variableName":"v","param":"","ruleTypeId":7})",
          &FSKSDataSyncManager::MergeVariableRule);
  EXPECT_TRUE(data->IsExistRuleDefinition("v", "s", kVariableSourceParser));
  deliver(kDbBlockSetting, "KSBlockSetting",
          R"({"nodes":[{"deviceName":"d"}],"blockTimeStart":1,"blockTimeEnd":2})",
          &FSKSDataSyncManager::MergeBlockSetting);
  std::vector<std::pair<std::int64_t, std::int64_t>> periods;
  const ObjectDefine device = Object("d");
  EXPECT_EQ(data->GetBlockTimeByObjectId(periods, &device), 1);
  deliver(kDbInterfaceType, "KSInterfaceType", R"({"name":"Gi0/1","alias":"GigabitEthernet0/1"})",
          &FSKSDataSyncManager::MergeInterfaceType);
  EXPECT_EQ(InterfaceTranslator::Instance()->Translate(domain, "Gi0/1"), "GigabitEthernet0/1");
}

TEST_F(Merge, ASourceThatCannotBeTakenOverChangesNothing) {
  const std::string own = MakeSettings("own/settings.db", "own");
  const std::string ownRules = Path("own/rules.db");
  Execute(ownRules, {kCreateRuleTable,
                     "insert into KSObjectRule values"
                     "('d','','s','','v',2,1,'','',0,7,'own',0,0)"});
  const std::string good = MakeSettings("good.db", "delivered", 2000);
  const std::string whole = FileText(good);
  WriteFile(Path("cut.db"), whole.substr(0, whole.size() / 2));
  Execute(Path("other columns.db"),
          {"create table KSBlockSetting (id INTEGER PRIMARY KEY, text TEXT)",
           "create table KSObjectRule (deviceName TEXT, variableName TEXT)"});
  Execute(Path("bad rows.db"),
          {"create table KSBlockSetting (id INTEGER PRIMARY KEY, data TEXT)",
           R"(insert into KSBlockSetting values (5, '{}'), (9, '{"blockTimeEnd":"noon"}'))",
           std::string(kCreateRuleTable),
           "insert into KSObjectRule values ('d','','s','','v',2,1,'','',0,7,'new',0,0),"
           "('d','','s','','w',2,1,'','',0,'seven','new',0,0)"});
  fs::create_hard_link(own, Path("own/hard link.db"));
  fs::create_symlink(own, Path("own/symbolic link.db"));
  fs::create_hard_link(ownRules, Path("own/rules link.db"));
  const std::string before = FileText(own);
  const std::string rulesBefore = FileText(ownRules);
  const std::size_t files = FilesIn("own");

  const LogCapture log(kLogError);
  std::uint64_t failures = GetFailedWriteCount();
  for (const std::string& from :
       {std::string(), Path("cut.db"), Path("other columns.db"), Path("bad rows.db"), own,
        Path("own/../own/settings.db"), Path("own/hard link.db"), Path("own/symbolic link.db")}) {
    SCOPED_TRACE(from);
    EXPECT_FALSE(Deliver(from, own));
    EXPECT_EQ(FileText(own), before);
    EXPECT_FALSE(manager->MergeObjectRule(from, ownRules, domain, false));
    EXPECT_EQ(FileText(ownRules), rulesBefore);
    EXPECT_EQ(GetFailedWriteCount(), failures += 2);
  }
  EXPECT_FALSE(manager->MergeObjectRule(Path("own/rules link.db"), ownRules, domain, false));
  EXPECT_FALSE(manager->MergeObjectRule(Path("cut.db"), Path("absent/rules.db"), domain, false));
  EXPECT_FALSE(fs::exists(Path("absent/rules.db")));
  EXPECT_FALSE(Deliver(Path("cut.db"), Path("absent/settings.db")));
  EXPECT_FALSE(fs::exists(Path("absent/settings.db")));
  EXPECT_FALSE(Deliver(good, ""));
  EXPECT_EQ(FilesIn("own"), files);
  std::string told;
  for (const LogCapture::Line& line : log.Lines()) told += line.message + '\n';
  EXPECT_THAT(told, HasSubstr("Failed to copy database from " + Path("bad rows.db") + " to " + own +
                              ", error: row 9 of KSBlockSetting: its member \"blockTimeEnd\": "));
  EXPECT_THAT(told, HasSubstr("row 2 of KSObjectRule: its column ruleTypeId holds \"seven\""));
}

TEST_F(Merge, ReadersOfTheOldFileGoOnAndItsWritersAreRefused) {
  const std::string to = MakeSettings("own/settings.db", "old", 5000);
  const std::string from = MakeSettings("new.db", "new", 5000);
  CppSQLite3DB reader;
  reader.open(to);
  reader.execDML("begin transaction;");
  auto select = reader.compileStatement("select data from KSBlockSetting");
  auto query = select.execQuery();  // stands in the middle of a read
  ASSERT_TRUE(Deliver(from, to));
  int rows = 0;
  for (; !query.eof(); query.nextRow(), ++rows)
    ASSERT_EQ(query.getStringField(0), kBefore + "old" + kBehind);
  EXPECT_EQ(rows, 5000);
  reader.execDML("commit transaction;");
  EXPECT_THROW(reader.execDML("delete from KSBlockSetting"), CppSQLite3Exception);
  EXPECT_EQ(Content(to), "new");
}

TEST_F(Merge, TheDestinationKeepsItsRightsAndItsLink) {
  const std::string to = MakeSettings("own/settings.db", "old");
  fs::permissions(to, fs::perms::owner_read | fs::perms::owner_write);
  fs::create_symlink(to, Path("link.db"));
  const std::string from = MakeSettings("new.db", "new");
  ASSERT_TRUE(Deliver(from, Path("link.db")));
  EXPECT_TRUE(fs::is_symlink(Path("link.db")));
  EXPECT_EQ(Content(to), "new");
  EXPECT_EQ(fs::status(to).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(Merge, WhatCannotBeReadAnyMoreIsReplacedToo) {
  const std::string from = MakeSettings("new.db", "new");
  WriteFile(Path("own/settings.db"), std::string(4096, 'x'));
  WriteFile(Path("own/settings.db-journal"), "left over");
  EXPECT_TRUE(Deliver(from, Path("own/settings.db")));
  EXPECT_EQ(Content(Path("own/settings.db")), "new");
  // Beside no database at all.
  WriteFile(Path("other/settings.db-journal"), "left over");
  EXPECT_TRUE(Deliver(from, Path("other/settings.db")));
  EXPECT_EQ(Content(Path("other/settings.db")), "new");
  EXPECT_EQ(FilesIn("other"), 1U);
}

TEST_F(Merge, WriteAheadLogsOnEitherSideAreTakenIn) {
  const std::string to = MakeSettings("own/settings.db", "old");
  const std::string from = MakeSettings("new.db", "first");
  CppSQLite3DB writer;
  writer.open(from);
  writer.compileStatement("pragma journal_mode=wal").execQuery();
  writer.execDML("update KSBlockSetting set data='" + kBefore + "new" + kBehind +
                 "'");  // lies in the log alone
  Execute(to, {"insert into KSBlockSetting (data) values('" + kBefore + "old" + kBehind + "')"});
  Ask(to, "pragma journal_mode=wal");
  EXPECT_TRUE(Deliver(from, to));
  EXPECT_EQ(Content(to), "new");
  EXPECT_EQ(FilesIn("own"), 1U);
}

// ---- Interface names

TEST_F(Merge, TheTranslatorKeepsItsNamesWhenADatabaseCannotBeRead) {
  InterfaceTranslator* const translator = InterfaceTranslator::Instance();
  const std::string file = Path("names.db");
  MakeDataTable(file, "KSInterfaceType",
                {R"({"name":"a","alias":"first"})", R"({"name":"a","alias":"second"})", "none",
                 R"({"name":"b"})", R"({"alias":"c"})"});
  const LogCapture log(kLogError);
  EXPECT_TRUE(translator->LoadDataFromDB(domain, file));
  EXPECT_TRUE(log.Has(file + ": 3 rows of KSInterfaceType hold no name."));
  EXPECT_EQ(translator->Translate(domain, "a"), "second");
  EXPECT_EQ(translator->Translate(domain, "b"), "b");
  EXPECT_EQ(translator->Translate("another " + domain, "a"), "a");
  WriteFile(file, std::string(2000, 'x'));
  EXPECT_FALSE(translator->LoadDataFromDB(domain, file));
  EXPECT_EQ(translator->Translate(domain, "a"), "second");
  EXPECT_TRUE(translator->LoadDataFromDB(domain, Path("missing.db")));
  EXPECT_EQ(translator->Translate(domain, "a"), "a");
}

// ---- Rules, row by row

class MergeRules : public Merge {
 protected:
  static std::string Row(const std::string& variable, const std::string& param) {
    return "insert into KSObjectRule values('d','','source','param','" + variable +
           "',2,1,'','',0,7,'" + param + "',0,0)";
  }
  std::string Param(const std::string& variable) const {
    return Ask(to,
               "select ruleAlgParameter from KSObjectRule where variableName='" + variable + "'");
  }
  std::string Count() const { return Ask(to, "select count(*) from KSObjectRule"); }
  bool MergeFrom(const std::string& from) const {
    return manager->MergeObjectRule(from, to, domain, true);
  }

  std::string to = DomainFile(kDbObjectRule, domain);
};

TEST_F(MergeRules, ADomainWithoutADatabaseGetsFileTableAndAllColumns) {
  Execute(
      Path("in.db"),
      {kCreateRuleTable,
       "insert into KSObjectRule values('d','i','s','p','v',3,4,'path','schema',1,7,'rule',1,1)",
       "insert into KSObjectRule values('e',NULL,'s',NULL,'v',2,4,NULL,'',1,7,NULL,0,0)"});
  const LogCapture log(kLogNotice);
  ASSERT_TRUE(MergeFrom(Path("in.db")));
  EXPECT_TRUE(log.Has("No KSObjectRule table in " + to + " db."));
  EXPECT_TRUE(log.Has("KSObjectRule table in " + to + " db has been created."));
  EXPECT_EQ(Ask(to, "select sql from sqlite_master where name='KSObjectRule'"),
            std::string("CREATE TABLE") + (kCreateRuleTable + 12));
  EXPECT_EQ(Ask(to,
                "select group_concat(x, '|') from (select deviceName||','||interfaceValue||','"
                "||variableSource||','||param||','||variableName||','||variableSourceType||','"
                "||variableDataType||','||interfacePath||','||vxNodePathSchema||','||"
                "ruleGenerateType||','||ruleTypeId||','||ruleAlgParameter||','||isEnable||','"
                "||isDel as x from KSObjectRule order by deviceName)"),
            "d,i,s,p,v,3,4,path,schema,1,7,rule,1,1|e,,s,,v,2,4,,,1,7,,0,0");
  // A second time the same rows replace themselves, also those that had no texts.
  ASSERT_TRUE(MergeFrom(Path("in.db")));
  EXPECT_EQ(Count(), "2");
}

TEST_F(MergeRules, AFailedMergeIsRolledBackWhole) {
  std::string refusesC = kCreateRuleTable;
  refusesC.insert(refusesC.size() - 1, ", check (variableName <> 'c')");
  Execute(to, {refusesC, Row("a", "own")});
  Execute(Path("in.db"),
          {kCreateRuleTable, Row("a", "delivered"), Row("b", "delivered"), Row("c", "delivered")});
  const LogCapture log(kLogError);
  const std::uint64_t failures = GetFailedWriteCount();
  EXPECT_FALSE(MergeFrom(Path("in.db")));
  EXPECT_EQ(GetFailedWriteCount(), failures + 1);
  EXPECT_EQ(Count(), "1");
  EXPECT_EQ(Param("a"), "own");
  EXPECT_TRUE(log.Has("KSObjectRule operate failed."));
  EXPECT_EQ(log.Lines().front().function, "FSKSDataSyncManager::MergeObjectRule");
}

TEST_F(MergeRules, RowsThatWaitToBeWrittenAreMergedInto) {
  MakeRuleTable(domain);
  Execute(Path("in.db"), {kCreateRuleTable, Row("both", "delivered")});
  DBWriteWrapper::Instance()->CacheData(
      domain, "d",
      {RuleRow("d", "both", Definition("learned")), RuleRow("d", "own", Definition("learned"))},
      {});
  ASSERT_TRUE(MergeFrom(Path("in.db")));
  EXPECT_EQ(Param("both"), "delivered");
  EXPECT_EQ(Param("own"), "learned");
}

}  // namespace
}  // namespace keelstone::testing

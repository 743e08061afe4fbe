#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "keelstone/object_rule_table.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/faulty_io.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_root.h"

namespace keelstone::testing {
namespace {

using ::testing::IsEmpty;

class ObjectRuleTable : public ::testing::Test {
 protected:
  ObjectRuleTable() { table.InitDB("domain"); }

  void MakeRules() { Execute(rules, {kCreateRuleTable}); }
  std::string CountRules() { return Ask(rules, "select count(*) from KSObjectRule"); }
  std::string CountHistories() { return Ask(histories, "select count(*) from KSObjectHistory"); }

  TempRoot root;
  KSObjectRuleSql table{"/FSParserData"};
  std::string rules = DomainFile(kDbObjectRule, "domain");
  std::string histories = DomainFile(kDbObjectHistory, "domain");
};

TEST_F(ObjectRuleTable, RuleWriterMakesTheFileButNotTheTableAndCountsTheLostRows) {
  const std::uint64_t failed = GetFailedWriteCount();
  EXPECT_EQ(table.SetRuleAlgParam(std::vector<ObjectRuleData>{}), 1);
  EXPECT_EQ(GetFailedWriteCount(), failed);  // nothing was lost
  EXPECT_EQ(table.SetRuleAlgParam({RuleRow("d", "v", Definition("{}", "history"))}), 1);
  EXPECT_EQ(GetFailedWriteCount(), failed + 1);
  EXPECT_TRUE(std::filesystem::exists(rules));
  EXPECT_FALSE(std::filesystem::exists(histories));
}

TEST_F(ObjectRuleTable, ColumnsHoldWhatTheSchemaSaysAndARowThatIsThereStaysInItsPlace) {
  MakeRules();
  for (const char* row : {"1", "77"}) {
    ASSERT_EQ(table.SetRuleAlgParam({RuleRow("d", "v", Definition("{\"p\":1}", "h"), "eth0")}), -1);
    EXPECT_EQ(
        Ask(rules,
            "select deviceName||'|'||interfaceValue||'|'||variableSource||'|'||param||'|'||"
            "variableName||'|'||variableSourceType||'|'||variableDataType||'|'||"
            "interfacePath||'|'||vxNodePathSchema||'|'||ruleGenerateType||'|'||ruleTypeId||"
            "'|'||ruleAlgParameter||'|'||isEnable||'|'||isDel||'|'||rowid from KSObjectRule"),
        std::string("d|eth0|source|param|v|2|1|path of eth0|schema|0|7|{\"p\":1}|0|0|") + row);
    EXPECT_EQ(Ask(histories,
                  "select deviceName||'|'||interfaceValue||'|'||variableSource||'|'||param||'|'||"
                  "variableName||'|'||variableSourceType||'|'||HistoryData||'|'||rowid from "
                  "KSObjectHistory"),
              std::string("d|eth0|source|param|v|2|h|") + row);
    Execute(rules, {"update KSObjectRule set rowid=77,variableDataType=9,interfacePath='x',"
                    "vxNodePathSchema='x',ruleGenerateType=9,ruleTypeId=9,ruleAlgParameter='x',"
                    "isEnable=1,isDel=1"});
    Execute(histories, {"update KSObjectHistory set rowid=77,HistoryData='x'"});
  }
}

TEST_F(ObjectRuleTable, WritesCommitEvery600Rows) {
  table.SetRuleHistoryData({HistoryRow("d", "first", "x")});  // makes the table
  const FaultyIo vfs;
  for (const auto& [rows, transactions] :
       {std::pair(600, 1), std::pair(601, 2), std::pair(1250, 3), std::pair(0, 0)}) {
    std::vector<ObjectRuleHistoryData> batch;
    const std::string text = "one of " + std::to_string(rows);  // what is the same is not written
    for (int i = 0; i < rows; ++i) batch.push_back(HistoryRow("d", std::to_string(i), text));
    const int before = vfs.transactions();
    EXPECT_EQ(table.SetRuleHistoryData(batch), -1);
    EXPECT_EQ(vfs.transactions() - before, transactions) << rows << " rows";
  }
  EXPECT_EQ(CountHistories(), "1251");
}

TEST_F(ObjectRuleTable, HistoryOfOneInterfaceIsFiledUnderTheEmptyOne) {
  table.SetRuleHistoryData({HistoryRow("d", "v", "whole"), HistoryRow("d", "v", "of a", "a"),
                            HistoryRow("d", "w", "of b", "b"), HistoryRow("e", "v", "other")});
  const ObjectDefine device = Object("d");
  const ObjectDefine port = Object("d", "a");
  DevParserHistory out;
  EXPECT_EQ(table.GetRuleHistoryData(out, &device, "source", "param", kVariableSourceParser), -1);
  EXPECT_EQ(out, (DevParserHistory{
                     {"", {{"v", "whole"}}}, {"a", {{"v", "of a"}}}, {"b", {{"w", "of b"}}}}));
  out.clear();
  EXPECT_EQ(table.GetRuleHistoryData(out, &port, "source", "param", kVariableSourceParser), -1);
  EXPECT_EQ(out, (DevParserHistory{{"", {{"v", "of a"}}}}));
}

class SourceRemoval : public ObjectRuleTable {
 protected:
  void Fill(const std::vector<std::string>& sources) {
    MakeRules();
    std::vector<ObjectRuleData> rows;
    for (const std::string& source : sources) {
      rows.push_back(RuleRow("d", "v", Definition("p", "h")));
      rows.back().variableSource = source;
    }
    table.SetRuleAlgParam(rows);
  }
};

TEST_F(SourceRemoval, SourcesThatWouldReadAsSomethingElseFailTheCallAndRemoveNothing) {
  for (const std::string& source :
       {std::string("DeviceName"), std::string("param"), std::string("ROWID"), std::string("oid"),
        std::string("_rowid_"), std::string("a\",\"b"), std::string("nul\0byte", 8)}) {
    std::filesystem::remove(rules);
    std::filesystem::remove(histories);
    Fill({"keep", "gone", source});
    const LogCapture log(kLogError);
    const std::uint64_t failed = GetFailedWriteCount();
    EXPECT_EQ(table.RemoveRuleDefinitionNoExistSource({"keep"}, kVariableSourceParser), -1);
    EXPECT_EQ(CountRules(), "3") << source;
    EXPECT_EQ(CountHistories(), "3") << source;
    EXPECT_EQ(GetFailedWriteCount(), failed + 2) << source;
    EXPECT_TRUE(log.Has("KSObjectRule operate failed.")) << source;
  }
}

TEST_F(ObjectRuleTable, BulkReadsTakeAnyNumberOfKeys) {
  MakeRules();
  constexpr int kUnits = 2000;
  std::vector<ObjectRuleData> rows;
  for (int i = 0; i < kUnits; ++i) {
    rows.push_back(RuleRow("d" + std::to_string(i), "v", Definition(std::to_string(i), "h"), "a"));
  }
  table.SetRuleAlgParam(rows);
  for (const int count : {1, 900, 901, 100000}) {
    std::vector<std::shared_ptr<UnitKey>> keys;
    for (int i = 0; i < count; ++i) {
      keys.push_back(std::make_shared<UnitKey>("d" + std::to_string(i), "source", "param"));
    }
    keys.push_back(keys.front());  // a key that stands twice gives its rows once
    keys.push_back(nullptr);
    const LogCapture log(kLogError);
    std::map<std::string, std::shared_ptr<DevParserRule>> found;
    std::map<std::string, std::shared_ptr<DevParserHistory>> texts;
    EXPECT_EQ(table.GetMultiRuleDefinitionDataByDevParsers(found, keys, kVariableSourceParser), -1);
    EXPECT_EQ(table.GetMultiRuleHistoryDataBeDevParsers(texts, keys, kVariableSourceParser), -1);
    const int expected = std::min(count, kUnits);
    ASSERT_EQ(found.size(), static_cast<std::size_t>(expected));
    ASSERT_EQ(texts.size(), static_cast<std::size_t>(expected));
    for (int i = 0; i < expected; ++i) {
      const std::string unit = "d" + std::to_string(i) + "$$$source$$$param";
      ASSERT_EQ(found.at(unit)->at("a").at("v")->ruleParam, std::to_string(i));
      ASSERT_EQ(texts.at(unit)->at("a").at("v"), "h");
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
  }
}

}  // namespace
}  // namespace keelstone::testing

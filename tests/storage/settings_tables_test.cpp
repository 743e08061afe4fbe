#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "keelstone/block_setting_table.h"
#include "keelstone/global_setting_table.h"
#include "keelstone/variable_rule_table.h"
#include "settings/rule_settings.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_root.h"

namespace keelstone::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

template <class Table>
class SettingsTable : public ::testing::Test {
 protected:
  SettingsTable() { table.InitDB("domain"); }

  TempRoot root;
  Table table{"/FSParserData"};
};

// ---- Variable rules

class VariableRules : public SettingsTable<KSVariableRuleSql> {
 protected:
  int Load(const std::vector<std::string>& rows) {
    MakeDataTable(table.GetDBFile(kDbVariableRule), "KSVariableRule", rows);
    return table.LoadDBData();
  }
};

TEST_F(VariableRules, MembersBecomeFieldsAndTheLaterOfTwoRowsWins) {
  ASSERT_EQ(Load({R"({"variableSource":"s","variableName":"v","param":"p","ruleTypeId":4})",
                  R"({"variableSource":"s","variableName":"v","param":"p","variableSourceType":2,
                      "ruleTypeId":7,"ruleAlgParameter":"{}","variableDataType":25,
                      "isCustomerEnable":2,"isInitialEnable":true})"}),
            1);
  RuleDefinitionData out;
  EXPECT_EQ(table.GetRuleDefinitionData(out, "s", "v", "p", kVariableSourceParser), -1);
  EXPECT_EQ(out.ruleType, kIntRange);
  EXPECT_EQ(out.variableSourceType, kVariableSourceParser);
  EXPECT_EQ(out.ruleParam, "{}");
  EXPECT_EQ(out.variableSource, "s");
  EXPECT_EQ(out.variableName, "v");
  EXPECT_EQ(out.variableParam, "p");
  EXPECT_EQ(out.variableType, 25);
  EXPECT_EQ(out.enableState, 2);
  EXPECT_TRUE(out.enableFlag);
  EXPECT_EQ(table.GetRuleDefinitionData(out, "s", "v", "", kVariableSourceParser), 2);
  EXPECT_EQ(table.GetRuleDefinitionData("v", "s", "p", kVariableSourceParser), nullptr);
}

TEST_F(VariableRules, ExistenceIsAskedBySourceAndNameAlone) {
  ASSERT_EQ(Load({R"({"variableSource":"s","variableName":"v","param":"x"})",
                  R"({"variableSource":"s$%$t","variableName":"w","param":""})"}),
            1);
  const auto exists = [&](const char* source, const char* name) {
    return table.IsExistRuleDefinition(source, name, kVariableSourceParser);
  };
  EXPECT_TRUE(exists("s", ""));
  EXPECT_TRUE(exists("s", "v"));
  EXPECT_FALSE(exists("s", "w"));  // its source only begins like this one
  EXPECT_TRUE(exists("s$%$t", "w"));
  EXPECT_FALSE(exists("", ""));
  EXPECT_FALSE(exists("v", "s"));
}

TEST_F(VariableRules, ARefusedMemberCostsItsRow) {
  const LogCapture log(kLogError);
  EXPECT_EQ(Load({R"({"variableSource":"s","variableName":"v"})",
                  R"({"variableSource":"t","variableName":"w","ruleTypeId":"seven"})",
                  R"({"variableSource":"s","variableName":"x"})"}),
            1);
  EXPECT_THAT(log.Messages(), ElementsAre(HasSubstr(
                                  "KSVariableRule.db: row 2 of KSVariableRule is passed over: its "
                                  "member \"ruleTypeId\": ")));
  EXPECT_TRUE(table.IsExistRuleDefinition("s", "v", kVariableSourceParser));
  EXPECT_FALSE(table.IsExistRuleDefinition("t", "w", kVariableSourceParser));
  EXPECT_TRUE(table.IsExistRuleDefinition("s", "x", kVariableSourceParser));
}

TEST_F(VariableRules, NothingIsAddedToATableThatDidNotLoad) {
  const std::string file = table.GetDBFile(kDbVariableRule);
  ASSERT_EQ(Load({R"({"variableSource":"s","variableName":"v"})"}), 1);
  Execute(file, {"alter table KSVariableRule rename column data to text"});
  const LogCapture log(kLogError);
  EXPECT_EQ(table.LoadDBData(), 0);
  Execute(file, {"alter table KSVariableRule rename column text to data"});
  EXPECT_FALSE(table.AddRuleDefinitions({RuleDefinitionData(kIntLEQ, 2, "", "s", "w", 2, "")}));
  EXPECT_TRUE(log.Has(file + " could not be read: nothing is added to it."));
  EXPECT_EQ(Ask(file, "select count(*) from KSVariableRule"), "1");
  ASSERT_EQ(table.LoadDBData(), 1);
  EXPECT_TRUE(table.AddRuleDefinitions({RuleDefinitionData(kIntLEQ, 2, "", "s", "w", 2, "")}));
}

// ---- Block periods

using BlockSettings = SettingsTable<KSBlockSettingSql>;

TEST_F(BlockSettings, PeriodsOfADeviceComeInTableOrder) {
  MakeDataTable(table.GetDBFile(kDbBlockSetting), "KSBlockSetting",
                {R"({"nodes":[{"deviceName":"a"},{"deviceName":"b"}],
                     "blockTimeStart":20,"blockTimeEnd":10})",
                 R"({"nodes":"a","blockTimeStart":1,"blockTimeEnd":2})", "nothing",
                 R"({"nodes":[{"deviceName":"a"}],"blockTimeStart":[1],"blockTimeEnd":2})",
                 R"({"nodes":[{"deviceName":"a"},{"deviceName":{}}]})",
                 R"({"nodes":[{"deviceName":"a"}],"blockTimeStart":5,
                     "blockTimeEnd":9223372036854775807})"});
  const LogCapture log(kLogError);
  ASSERT_EQ(table.LoadDBData(), 1);
  EXPECT_THAT(log.Messages(), ElementsAre(HasSubstr(": row 3 "), HasSubstr("\"blockTimeStart\""),
                                          HasSubstr("\"nodes\": its member \"deviceName\"")));
  std::vector<std::pair<std::int64_t, std::int64_t>> out;
  const ObjectDefine a = Object("a");
  const ObjectDefine upper = Object("A");
  EXPECT_EQ(table.GetBlockTimeByObjectId(out, &a), 2);
  EXPECT_EQ(table.GetBlockTimeByObjectId(out, &upper), 0);
  EXPECT_EQ(table.GetBlockTimeByObjectId(out, nullptr), 0);
  EXPECT_THAT(out, ElementsAre(Pair(20, 10), Pair(5, std::numeric_limits<std::int64_t>::max())));
}

// ---- Global settings

class GlobalSettings : public SettingsTable<KSGlobalSettingSql> {
 protected:
  int Load(const std::vector<std::string>& rows) {
    MakeDataTable(table.GetDBFile(kDbGlobalSetting), "KSGlobalSetting", rows);
    return table.LoadDBData();
  }
};

TEST_F(GlobalSettings, RowsSetTheirValuesAndTheLaterOfTwoWins) {
  const LogCapture log(kLogError);
  ASSERT_EQ(Load({R"({"name":"KSRuleType","value":[1,2]})",
                  R"({"name":"KSGeneralSetting","value":{"intRange":{"dataCountHistory":12}}})",
                  R"({"name":"KSInterfaceFilter","value":{"value":["lo","","null0","lo"]}})",
                  R"({"name":"KSTableCountLimit","value":1})",
                  R"({"name":"KSTableCountLimit","value":17})",
                  R"({"name":"KSStrRowCountLimit","value":18})",
                  R"({"name":"KSStrRowCountLimit","value":"many"})",
                  R"({"name":"KSInterfaceFilter","value":{"value":["eth0",{}]}})",
                  R"({"name":"KSDynamicRuleStatus","value":"false"})",
                  R"({"name":"EnableKSFunction","value":"TRUE"})", "broken",
                  R"({"name":"ksTableCountLimit","value":3})"}),
            1);
  EXPECT_THAT(
      log.Messages(),
      ElementsAre(
          HasSubstr("\"KSStrRowCountLimit\""), HasSubstr("\"KSInterfaceFilter\""),
          HasSubstr(": row 11 of KSGlobalSetting is passed over: it holds no JSON object")));
  EXPECT_EQ(table.GetRuleTypeJson(), "[1,2]");
  EXPECT_EQ(table.GetGeneralSettingJson(), R"({"intRange":{"dataCountHistory":12}})");
  EXPECT_EQ(table.GetRuleSettings()->HistoryDataCount(kIntRange), 12);
  EXPECT_THAT(*table.GetInterfaceFilterSet(), ElementsAre("lo", "null0"));
  EXPECT_EQ(table.GetTableLimitcount(), 17);
  EXPECT_EQ(table.GetStrRowLimitcount(), 18);
  EXPECT_FALSE(table.IsEnableDynamicCal());
  EXPECT_FALSE(table.IsEnableKSFunction());
}

TEST_F(GlobalSettings, ReadingAgainResetsSwitchesAndTextsAndKeepsLimits) {
  ASSERT_EQ(
      Load({R"({"name":"KSRuleType","value":[1]})", R"({"name":"KSTableCountLimit","value":17})",
            R"({"name":"EnableKSFunction","value":"no"})",
            R"({"name":"KSInterfaceFilter","value":{"value":["lo"]}})"}),
      1);
  const auto held = table.GetInterfaceFilterSet();
  ASSERT_EQ(Load({R"({"name":"KSInterfaceFilter","value":{"value":"lo"}})"}), 1);
  EXPECT_EQ(table.GetRuleTypeJson(), "");
  EXPECT_EQ(table.GetTableLimitcount(), 17);
  EXPECT_TRUE(table.IsEnableKSFunction());
  EXPECT_THAT(*table.GetInterfaceFilterSet(), IsEmpty());
  EXPECT_THAT(*held, ElementsAre("lo"));  // a holder keeps the set that it was given
}

}  // namespace
}  // namespace keelstone::testing

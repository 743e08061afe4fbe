#include "keelstone/update_result.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "keelstone/json_reader.h"
#include "tests/support/log_capture.h"

namespace keelstone::testing {
namespace {

KSRuleUpdateResultItem RuleItem() {
  KSRuleUpdateResultItem item(4, R"({"ruleParam":5})", "name", "node", "if", "source", "param", 2);
  item.strDeviceName = "device";
  item.strInterfacePath = "path";
  item.strNodePathSchema = "schema";
  item.nVariableType = 7;
  return item;
}
constexpr const char* kRuleText =
    R"({"nRuleId":4,"strRuleAlgParam":"{\"ruleParam\":5}","nVariableSourceType":2,)"
    R"("nVariableType":7,"strVariableParam":"param","strVariableName":"name","strNodeId":"node",)"
    R"("strInterfaceName":"if","strVariableSource":"source","strDeviceName":"device",)"
    R"("strInterfacePath":"path","strNodePathSchema":"schema","nOperateType":0})";

KSValueUpdateResultItem ValueItem() {
  KSValueUpdateResultItem item("node", "if", "source", "name", "5", 9000000000, "structure",
                               "param", 2);
  item.nRuleId = 7;
  item.nVariableType = 25;
  item.strDeviceName = "device";
  item.strInterfacePath = "path";
  item.strNodePathSchema = "schema";
  return item;
}
constexpr const char* kValueText =
    R"({"nVariableSourceType":2,"nVariableType":25,"strVariableParam":"param",)"
    R"("strVariableName":"name","strNodeId":"node","strInterfaceName":"if",)"
    R"("strVariableSource":"source","strJsonValue":"5","nValueTime":9000000000,)"
    R"("strStructureId":"structure","nRuleId":7,"strDeviceName":"device",)"
    R"("strInterfacePath":"path","strNodePathSchema":"schema"})";

KSAlertData Alert() {
  KSAlertData alert;
  alert.SetNodeId("node");
  alert.SetNodeSchema("schema");
  alert.SetDeviceName("device");
  alert.SetInterfacePath("path");
  alert.SetInterfaceValue("if");
  alert.SetParserParam("param");
  alert.SetSourcePath("source");
  alert.SetVaraibleName("name");
  alert.SetAlertInfo(R"({"_t":4})");
  alert.SetTaskIds({"task"});
  alert.SetLiveTime(9000000000);
  return alert;
}
constexpr const char* kAlertText =
    R"({"NodeId":"node","NodeSchema":"schema","DeviceName":"device","InterfacePath":"path",)"
    R"("InterfaceValue":"if","ParserParam":"param","SourcePath":"source","VaraibleName":"name",)"
    R"("LiveTime":9000000000,"RuleParam":"{\"_t\":4}"})";

JsonValue Parsed(const std::string& text) {
  JsonValue value;
  EXPECT_TRUE(JsonReader::Parse(text, value)) << text;
  return value;
}

TEST(ResultItems, AreWrittenInTheirOrderAndReadBack) {
  EXPECT_EQ(RuleItem().ToJsonString(), kRuleText);
  EXPECT_EQ(ValueItem().ToJsonString(), kValueText);
  EXPECT_EQ(Alert().ToJsonString(), kAlertText);
  const auto again = [](auto item, const char* text) {
    EXPECT_TRUE(item.LoadFromJson(Parsed(text)));
    EXPECT_EQ(item.ToJsonString(), text);
  };
  again(KSRuleUpdateResultItem(), kRuleText);
  again(KSValueUpdateResultItem(), kValueText);
  again(KSAlertData(), kAlertText);
}

class ResultContainer : public ::testing::Test {
 protected:
  void Fill() {
    EXPECT_EQ(
        results_.AddKSRuleUpdateResultItem(std::make_shared<KSRuleUpdateResultItem>(RuleItem())),
        1);
    EXPECT_EQ(
        results_.AddKSValueUpdateResultItem(std::make_shared<KSValueUpdateResultItem>(ValueItem())),
        1);
    EXPECT_EQ(results_.AddKSAlertResultItem(std::make_shared<KSAlertData>(Alert())), 1);
    EXPECT_EQ(results_.AddKSAlertResultItem(std::make_shared<KSAlertData>(Alert())), 2);
  }
  static std::string FullText() {
    return std::string(R"({"ruleItems":[)") + kRuleText + R"(],"valueItems":[)" + kValueText +
           R"(],"alertItems":[)" + kAlertText + "," + kAlertText + "]}";
  }

  KSRuleUpdateResultData results_;
};

TEST_F(ResultContainer, IsOneDocument) {
  EXPECT_EQ(results_.ToJsonString(), R"({"ruleItems":[],"valueItems":[],"alertItems":[]})");
  Fill();
  EXPECT_EQ(results_.ToJsonString(), FullText());
  KSRuleUpdateResultData again;
  EXPECT_TRUE(again.LoadFromJson(Parsed(FullText())));
  EXPECT_EQ(again.ToJsonString(), FullText());
  ASSERT_EQ(again.GetKSAlertResults().size(), 2U);
  EXPECT_TRUE(again.GetKSAlertResults()[0]->GetTaskIds().empty());
}

TEST_F(ResultContainer, RefusesTextsBeyondTheLimit) {
  constexpr std::size_t kLimit = 14680064;
  const LogCapture log;
  for (const std::size_t beyond : {0U, 1U}) {
    auto rule = std::make_shared<KSRuleUpdateResultItem>(RuleItem());
    rule->strRuleAlgParam.assign(kLimit + beyond, 'x');
    EXPECT_EQ(results_.AddKSRuleUpdateResultItem(rule), 1);
    auto value = std::make_shared<KSValueUpdateResultItem>(ValueItem());
    value->strJsonValue.assign(kLimit + beyond, 'x');
    EXPECT_EQ(results_.AddKSValueUpdateResultItem(value), 1);
    EXPECT_EQ(log.Lines().size(), 2 * beyond);
  }
  EXPECT_EQ(log.Lines()[0].message, "Device device, interface if, variable name is too big");
  EXPECT_EQ(log.Lines()[0].level, kLogNotice);
}

TEST_F(ResultContainer, IsValidWhateverBytesTheDeviceSent) {
  const std::string bytes = "a\xFFz\xC3";
  auto alert = std::make_shared<KSAlertData>(Alert());
  alert->SetVaraibleName(bytes);
  alert->SetParserParam(bytes);
  results_.AddKSAlertResultItem(alert);
  auto rule = std::make_shared<KSRuleUpdateResultItem>(RuleItem());
  rule->strInterfaceName = bytes;
  results_.AddKSRuleUpdateResultItem(rule);

  JsonReadOptions strict;
  strict.requireUtf8 = true;
  JsonValue document;
  ASSERT_TRUE(JsonReader::Parse(results_.ToJsonString(), document, nullptr, strict));
  const JsonValue& read = document;
  EXPECT_EQ(read["alertItems"][0]["VaraibleName"].asString(), "a\xEF\xBF\xBDz\xEF\xBF\xBD");
  EXPECT_EQ(read["ruleItems"][0]["strInterfaceName"].asString(), "a\xEF\xBF\xBDz\xEF\xBF\xBD");
  // The records and the values keep what came.
  EXPECT_EQ(results_.GetKSAlertResults()[0]->GetVaraibleName(), bytes);
  const JsonValue kept = results_.ToJsonValue();
  EXPECT_EQ(kept["alertItems"][0]["VaraibleName"].asString(), bytes);
}

}  // namespace
}  // namespace keelstone::testing

#include <gtest/gtest.h>
#include <boost/regex.hpp>
#include <cmath>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "calc/ksruleglobalsetting.h"
#include "model/kshistorydata.h"
#include "platform/json_reader.h"
#include "platform/numbers.h"
#include "platform/strings.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/second_reading.h"
#include "tests/support/tuned_domain.h"

namespace keelstone::testing {
namespace {

constexpr std::int32_t kNow = 1700000000;

JsonValue Parsed(const std::string& text) {
  JsonValue value;
  EXPECT_TRUE(JsonReader::Parse(text, value)) << text;
  return value;
}

int Compared(const JsonValue& a, const JsonValue& b) {
  if (a.isString()) return a.asString().compare(b.asString());
  if (a.type() == JsonType::Int && b.type() == JsonType::Int) {
    return a.asInt64() < b.asInt64() ? -1 : a.asInt64() > b.asInt64() ? 1 : 0;
  }
  return a.asDouble() < b.asDouble() ? -1 : a.asDouble() > b.asDouble() ? 1 : 0;
}

/// A reader's judgement, from what an explanation's document says and from nothing else.
bool Breaks(const JsonValue& expected, const JsonValue& observed) {
  const std::string kind = expected["kind"].asString();
  const JsonValue& value = expected["value"];
  const auto isListed = [&] {
    for (const JsonValue& one : expected["values"]) {
      if (Compared(one, observed) == 0) return true;
    }
    return false;
  };
  if (kind == "value" && expected.isMember("trim")) {
    const std::string blanks = expected["trim"].asString();
    return Trim(observed.asString(), blanks) != Trim(value.asString(), blanks);
  }
  if (kind == "value" || kind == "constant") return Compared(observed, value) != 0;
  if (kind == "notValue") return isListed();
  if (kind == "set") return !isListed();
  if (kind == "bounds") {
    return Compared(observed, expected["min"]) < 0 || Compared(observed, expected["max"]) > 0;
  }
  if (kind == "atMost") return Compared(observed, value) > 0;
  if (kind == "atLeast") return Compared(observed, value) < 0;
  if (kind == "increasing") return Compared(observed, value) <= 0;
  if (kind == "digest") return observed.asString() != expected["digest"].asString();
  EXPECT_EQ(kind, "pattern");
  EXPECT_TRUE(expected["ignoreCase"].asBool() && expected["anywhere"].asBool());
  const boost::regex pattern(expected["pattern"].asString(),
                             boost::regex::perl | boost::regex::icase | boost::regex::no_except);
  return pattern.status() != 0 || !boost::regex_search(observed.asString(), pattern);
}

/// One value handed in, and as an explanation shows it.
struct Handed {
  std::string text;
  JsonValue shown;
};

class Explained : public ::testing::Test {
 protected:
  Explained() { domain_.Tune(plain::Settings().ToJson()); }

  std::unique_ptr<KSRuleInstance> Instance(const RuleDefinitionData& definition,
                                           const std::string& history = {},
                                           std::int32_t time = kNow) {
    auto instance = std::make_unique<KSRuleInstance>("src", "node", "r1", "schema", "structure",
                                                     "prm", domain_.id(), "", time, false);
    auto own = std::make_shared<RuleDefinitionData>(definition);
    own->variableType = 1;
    instance->SetCacheData({{"eth0", {{"v", own}}}});
    instance->SetHistoryData({{"eth0", {{"v", history}}}});
    instance->InitCacheData();
    instance->InitHistoryData();
    instance->SetExplain(true);
    return instance;
  }

  /// Judges every value by a prescribed rule of its own, and again from the explanation.
  void Judge(EnumRuleType type, EnumKSDataType dataType, const std::string& parameter,
             const std::vector<Handed>& values) {
    SCOPED_TRACE(std::string(RuleTypeName(type)) + " " + DataTypeName(dataType) + " " + parameter);
    std::vector<bool> verdicts;
    JsonValue expected;
    for (const Handed& value : values) {
      const auto instance = Instance({type, kRulePrescribed, parameter});
      ASSERT_TRUE(instance->ProcessVariable(Value("v", dataType, value.text, "eth0")));
      const bool isAlert = instance->GetLastVerdict() == kVerdictAlert;
      ASSERT_TRUE(isAlert || instance->GetLastVerdict() == kVerdictFits) << value.text;
      ASSERT_EQ(instance->GetUpdateResultData()->GetKSAlertResults().size(), isAlert ? 1U : 0U);
      ASSERT_EQ(instance->GetExplanations().size(), isAlert ? 1U : 0U);
      verdicts.push_back(isAlert);
      if (!isAlert) continue;
      const JsonValue document = Parsed(instance->GetExplanations()[0].ToJsonString());
      EXPECT_TRUE(Breaks(document["expected"], document["observed"]["value"])) << value.text;
      EXPECT_EQ(document["observed"]["value"].toString(), value.shown.toString());
      EXPECT_EQ(document["observed"]["text"].asString(), value.text);
      EXPECT_EQ(document["ruleType"].asString(), RuleTypeName(type));
      EXPECT_EQ(document["origin"]["kind"].asString(), "prescribed");
      expected = document["expected"];
    }
    // What fits has no explanation: it is judged by what was expected of its neighbours.
    ASSERT_FALSE(expected.isNull());
    EXPECT_NE(std::count(verdicts.begin(), verdicts.end(), false), 0);
    for (std::size_t i = 0; i < values.size(); ++i) {
      EXPECT_EQ(Breaks(expected, values[i].shown), verdicts[i]) << values[i].text;
    }
  }

  template <class T>
  void JudgeNumbers(EnumKSDataType dataType) {
    std::vector<Handed> values;
    const auto add = [&](T value) {
      JsonValue shown(value);
      if constexpr (std::is_same_v<T, float>) shown = AsWritten(value);
      values.push_back({shown.toString(), shown});
    };
    for (const T threshold : {T(-2), T(0), T(1), T(5), T(7)}) {
      add(threshold);
      if constexpr (std::is_floating_point_v<T>) {
        add(std::nextafter(threshold, std::numeric_limits<T>::max()));
        add(std::nextafter(threshold, std::numeric_limits<T>::lowest()));
        add(threshold + T(1e-6));
      } else {
        add(threshold + 1);
        add(threshold - 1);
      }
    }
    add(std::numeric_limits<T>::max());
    add(std::numeric_limits<T>::lowest());
    for (const EnumRuleType type : {kIntEqual, kIntConstant, kIntIncrease, kIntLEQ, kIntGEQ}) {
      Judge(type, dataType, R"({"ruleParam":5})", values);
    }
    Judge(kIntNoEqual, dataType, R"({"ruleParam":[1,5]})", values);
    Judge(kIntEnum, dataType, R"({"ruleParam":[1,5]})", values);
    Judge(kIntRange, dataType, R"({"maxValue":7,"minValue":-2})", values);
  }

  TunedDomain domain_;
};

TEST_F(Explained, TheVerdictOnNumbersFollowsFromTheExplanationAlone) {
  JudgeNumbers<std::int64_t>(KSDataInt64);
  JudgeNumbers<float>(KSDataFloat);
  JudgeNumbers<double>(KSDataDouble);
  // Where doubles no longer tell neighbours apart, and where floats are not what is written.
  constexpr std::int64_t kBeyond = 9007199254740993;
  Judge(kIntLEQ, KSDataInt64, R"({"ruleParam":9007199254740993})",
        {{std::to_string(kBeyond), kBeyond}, {std::to_string(kBeyond + 1), kBeyond + 1}});
  Judge(kIntEqual, KSDataFloat, R"({"ruleParam":0.1})", {{"0.1", 0.1}, {"0.2", 0.2}});
  Judge(kIntEqual, KSDataFloat, R"({"ruleParam":0.10000000149011612})", {{"0.1", 0.1}, {"2", 2.0}});
}

TEST_F(Explained, TheVerdictOnTextsAndTablesFollowsFromTheExplanationAlone) {
  std::vector<Handed> texts;
  for (const char* const text :
       {"up", "Up", "up\n", "\nup", "up\t", "down", "", "port eth0", "up."}) {
    texts.push_back({text, text});
  }
  texts.push_back({" up ", "up"});  // spaces are lost before anybody judges
  Judge(kStrEqual, KSDataString, R"({"ruleParam":"up"})", texts);
  Judge(kStrEqual, KSDataString, R"({"ruleParam":" up\n"})", texts);
  Judge(kStrNoEqual, KSDataString, R"({"ruleParam":["","up"]})", texts);
  Judge(kStrEnum, KSDataString, R"({"ruleParam":["down","up"]})", texts);
  Judge(kStrRegex, KSDataString, R"({"ruleParam":"ETH.*"})", texts);
  Judge(kStrRegex, KSDataString, R"({"ruleParam":"^up$"})", texts);
  Judge(kTableMd5, KSDataTable, R"({"hashCmp":"ab","hashSort":false,"hashColumns":[]})",
        {{"ab", "ab"}, {"AB", "AB"}, {"", ""}});
  // A pattern that is none matches nothing.
  const auto instance = Instance({kStrRegex, kRulePrescribed, R"({"ruleParam":"("})"});
  instance->ProcessVariable(Value("v", KSDataString, "(", "eth0"));
  ASSERT_EQ(instance->GetExplanations().size(), 1U);
  EXPECT_TRUE(Breaks(Parsed(instance->GetExplanations()[0].ToJsonString())["expected"], "("));
}

/// A history of one number an hour, the newest an hour before kNow.
std::string HistoryOf(const std::vector<int>& values) {
  IntHistoryData history;
  std::int64_t time = kNow - 3600 * static_cast<std::int64_t>(values.size());
  for (const int value : values) {
    history.AddData(std::make_shared<KSDataPoint<std::int64_t>>(time, value), 1000);
    time += 3600;
  }
  return history.ToString();
}

TEST_F(Explained, ARuleLearnedWithTheValueItJudgesIsExplainedAsItNowIs) {
  const RuleDefinitionData none{kRuleTypeNone, kRuleLearned, ""};
  const std::string history = HistoryOf({9, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12});
  const auto learning = Instance(none, history);
  ASSERT_TRUE(learning->ProcessVariable(Value("v", KSDataInt64, "13", "eth0")));
  ASSERT_EQ(learning->GetExplanations().size(), 1U);
  const KSAlertExplanation alert = learning->GetExplanations()[0];
  EXPECT_EQ(alert.ruleType, kIntEqual);
  EXPECT_EQ(alert.expected.words, "always 12");
  EXPECT_EQ(alert.learnedTime, kNow);
  EXPECT_EQ(alert.historyPoints, 12);  // without the value itself
  EXPECT_EQ(alert.firstTime, kNow - 12 * 3600);
  EXPECT_EQ(alert.lastTime, kNow - 3600);
  ASSERT_EQ(alert.lastValues.size(), KSAlertExplanation::kMostLastValues);
  EXPECT_EQ(alert.lastValues.front().time, kNow - 10 * 3600);
  EXPECT_EQ(alert.lastValues.back().value, JsonValue(12));
  ASSERT_EQ(learning->GetUpdateResultData()->GetKSRuleUpdateResults().size(), 1U);
  EXPECT_TRUE(learning->GetUpdateResultData()->GetKSRuleUpdateResults()[0]->isLearned);

  // A rule that was there before: nothing tells when it was learned.
  const auto later = Instance({kIntEqual, kRuleLearned, R"({"ruleParam":12})"}, history, kNow - 1);
  ASSERT_TRUE(later->ProcessVariable(Value("v", KSDataInt64, "13", "eth0")));
  ASSERT_EQ(later->GetExplanations().size(), 1U);
  EXPECT_FALSE(later->GetExplanations()[0].learnedTime);
  EXPECT_EQ(later->GetExplanations()[0].historyPoints, 12);
}

TEST_F(Explained, AVerdictIsGivenOnlyByARuleThatJudges) {
  const auto verdictOf = [this](const RuleDefinitionData& definition, const std::string& history,
                                EnumKSDataType dataType) {
    const auto instance = Instance(definition, history);
    instance->ProcessVariable(Value("v", dataType, "1", "eth0"));
    return instance->GetLastVerdict();
  };
  EXPECT_EQ(verdictOf({kIntLEQ, kRulePrescribed, R"({"ruleParam":5})"}, "", KSDataInt64),
            kVerdictFits);
  // No rule, one that cannot judge such a value, and one that takes its first value.
  EXPECT_EQ(verdictOf({kRuleTypeNone, kRuleLearned, ""}, "", KSDataInt64), kVerdictNone);
  EXPECT_EQ(verdictOf({kStrEqual, kRulePrescribed, R"({"ruleParam":"5"})"}, "", KSDataInt64),
            kVerdictNone);
  EXPECT_EQ(verdictOf({kIntIncrease, kRulePrescribed, ""}, "", KSDataInt64), kVerdictNone);
  // A counter whose rule is learned with this value, and a history that is refused.
  EXPECT_EQ(verdictOf({kRuleTypeNone, kRuleLearned, ""},
                      HistoryOf({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}), KSDataInt64),
            kVerdictNone);
  EXPECT_EQ(verdictOf({kIntLEQ, kRuleLearned, R"({"ruleParam":0})"}, "torn", KSDataInt64),
            kVerdictNone);

  const auto instance = Instance({kIntLEQ, kRulePrescribed, R"({"ruleParam":0})"});
  instance->ProcessVariable(Value("v", KSDataInt64, "1", "eth0"));
  EXPECT_EQ(instance->GetLastVerdict(), kVerdictAlert);
  EXPECT_FALSE(instance->ProcessVariable(Value("undefined", KSDataInt64, "1", "eth0")));
  EXPECT_EQ(instance->GetLastVerdict(), kVerdictNone);
  EXPECT_EQ(instance->GetExplanations().size(), 1U);
  instance->SetExplain(false);
  instance->ProcessVariable(Value("v", KSDataInt64, "1", "eth0"));
  EXPECT_EQ(instance->GetLastVerdict(), kVerdictNone);
  EXPECT_TRUE(instance->GetExplanations().empty());
}

TEST_F(Explained, ATableIsComparedWithTheNewestThatHadTheExpectedDigest) {
  domain_.Tune(DefaultGeneralSettings().toString());  // keeps tables
  const auto tableOf = [](const std::string& digest, const std::string& rows) {
    VarInfo table = Value("v", KSDataTable, digest, "eth0");
    table.value = Parsed(R"({"columns":["p","n"],"rows":)" + rows + "}");
    table.tableKeys = {"p"};
    return table;
  };
  // What a learning run stores is what the next one compares with.
  std::string history;
  const RuleDefinitionData rule{kTableMd5, kRuleLearned, R"({"hashCmp":"aa"})"};
  const auto judge = [&](std::int32_t time, const VarInfo& table) {
    auto instance = Instance(rule, history, time);
    EXPECT_TRUE(instance->ProcessVariable(table));
    instance->SerializeLocalDB();
    DBWriteWrapper::Instance()->WriteDomain(domain_.id());
    const auto stored =
        domain_.files().Select(kDbObjectHistory, "select HistoryData from KSObjectHistory");
    if (!stored.empty()) history = stored[0];
    return instance;
  };
  const auto unknown = judge(kNow, tableOf("bb", R"([["a",1]])"));
  ASSERT_EQ(unknown->GetExplanations().size(), 1U);
  EXPECT_FALSE(unknown->GetExplanations()[0].table);
  EXPECT_EQ(
      unknown->GetExplanations()[0].Predicate(),
      "is another table, with digest \"bb\", expected the table with digest \"aa\" (learned)");
  judge(kNow + 1000000, tableOf("aa", R"([["a",1],["b",1]])"));
  judge(kNow + 2000000, tableOf("aa", R"([["a",1],["b",2]])"));
  const auto known = judge(kNow + 3000000, tableOf("cc", R"([["b",3],["c",1]])"));
  ASSERT_EQ(known->GetExplanations().size(), 1U);
  const auto& table = known->GetExplanations()[0].table;
  ASSERT_TRUE(table);
  EXPECT_EQ(table->keys, std::vector<std::string>{"p"});
  EXPECT_EQ(table->InWords(), "1 row added (c), 1 row removed (a), 1 row changed (b)");
  EXPECT_EQ(table->changed.rows[0]["before"]["n"], JsonValue(2));
}

}  // namespace
}  // namespace keelstone::testing

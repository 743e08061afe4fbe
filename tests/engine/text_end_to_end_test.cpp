#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/json_reader.h"
#include "platform/utf8.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/log_capture.h"
#include "tests/support/odd_texts.h"
#include "tests/support/text_points.h"
#include "tests/support/tuned_domain.h"

// Strings and tables of one device over four weeks of simulated time, held against the
// second reading of the rules; and contents that devices should not send.
namespace keelstone::testing {
namespace {

using plain::SeenText;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::int32_t kStart = 1700000000;
constexpr std::int32_t kHour = 3600;
constexpr int kRuns = 336;  // every two hours
constexpr int kRunsPerWeek = 84;
constexpr int kIncident = 200;

/// The value of a variable at a run, without its time.
using Story = std::function<SeenText(int run)>;

SeenText Text(const std::string& value) { return {-1, value, {}, {}, false}; }

SeenText State(int run) {  // steady, with blanks around it at times; a slip now and then
  if (run % 29 == 17) return Text("Idle");
  if (run % 7 == 3) return Text(" Established ");
  if (run % 7 == 5) return Text("Established\n");
  return Text(run < kIncident ? "Established" : "Active\t\"\\}");
}
SeenText Odd(int run) {  // one of five odd texts; another at times
  static const std::vector<std::string> kinds = {"\"},{\"", "\\", "\xff\xfe", "a\tb\n\x01", "{[]}"};
  return Text(run % 41 == 40 ? "/* ?" : kinds[static_cast<std::size_t>(run % 5)]);
}
SeenText Flapping(int run) {  // settles in the end
  return Text(run < kIncident && run % 3 != 0 ? "down" : "up");
}

/// A table of routes, told by its row texts; the column "age" does not enter its digest.
SeenText Routes(int run) {
  const bool isShort = run % 37 == 30 || run % 37 == 31;
  const std::string via = run < kIncident ? "10.0.12.2" : "10.0.13.3";
  std::string rows;
  std::string digest;
  for (int prefix = 0; prefix < (isShort ? 2 : 4); ++prefix) {
    const std::string key = "10." + std::to_string(prefix) + ".0.0/16\",\"" + via;
    rows += std::string(rows.empty() ? "" : ",") + "[\"" + key + "\"," +
            std::to_string(run / 9 * 100) + "]";
    digest += key + ";";
  }
  return {-1,
          digest,
          R"({"columns":["prefix","via","age"],"rows":[)" + rows + "]}",
          {"via", "prefix"},
          run < kRuns / 2};
}
SeenText Unsettled(int run) {  // never twice the same
  return {-1, "digest " + std::to_string(run), "{}", {}, false};
}

/// A variable as the engine sees it, beside its second reading.
class WatchedText {
 public:
  WatchedText(std::string name, Story story, bool isTable, const plain::TextSettings& settings)
      : name_(std::move(name)),
        story_(std::move(story)),
        isTable_(isTable),
        expected_(settings, isTable) {}

  void Prescribe(const plain::TextRule& rule) {
    isPrescribed_ = true;
    expected_.Prescribe(rule);
  }

  void Process(KSRuleInstance& instance, std::int32_t time, int run) {
    SeenText seen = story_(run);
    seen.time = time;
    VarInfo variable =
        Value(name_, isTable_ ? KSDataTable : KSDataString, seen.value, "ge0", isTable_ ? 11 : 3);
    if (isTable_) {
      ASSERT_TRUE(JsonReader::Parse(seen.table, variable.value));
      variable.tableKeys = seen.columns;
      variable.tableFlag = seen.sorted ? 1 : 0;
    }
    const auto results = instance.GetUpdateResultData();
    const std::size_t alerts = results->GetKSAlertResults().size();
    const std::size_t goldenValues = results->GetKSValueUpdateResults().size();
    const std::size_t rules = results->GetKSRuleUpdateResults().size();
    const auto answer = expected_.See(seen, instance.IsOndemandTask());
    ASSERT_TRUE(instance.ProcessVariable(variable));

    ASSERT_EQ(results->GetKSAlertResults().size() - alerts, answer.alert ? 1U : 0U) << name_;
    if (answer.alert) {
      ASSERT_EQ(results->GetKSAlertResults().back()->GetAlertInfo(), *answer.alert);
      ++told.alerts;
    }
    ASSERT_EQ(results->GetKSValueUpdateResults().size() - goldenValues, answer.golden ? 1U : 0U)
        << name_;
    if (answer.golden) {
      const KSValueUpdateResultItem& item = *results->GetKSValueUpdateResults().back();
      ASSERT_EQ(item.strJsonValue, *answer.golden);
      ASSERT_EQ(item.nValueTime, answer.goldenTime);
      ASSERT_EQ(item.nRuleId, expected_.rule()->type);
      ++told.goldenValues;
    }
    ASSERT_EQ(results->GetKSRuleUpdateResults().size() - rules, answer.ruleParam ? 1U : 0U)
        << name_;
    if (answer.ruleParam) {
      const KSRuleUpdateResultItem& item = *results->GetKSRuleUpdateResults().back();
      ASSERT_EQ(item.nRuleId, answer.ruleType);
      ASSERT_EQ(item.strRuleAlgParam, *answer.ruleParam);
      told.rules.push_back(answer.ruleType);
    }
  }

  void CompareStored(const DomainFiles& files) const {
    const std::string where = " where variableName = '" + name_ + "'";
    const auto histories =
        files.Select(kDbObjectHistory, "select HistoryData from KSObjectHistory" + where);
    if (isPrescribed_) {
      ASSERT_THAT(histories, IsEmpty());
    } else {
      const auto& history = expected_.history();
      ASSERT_THAT(histories,
                  ElementsAre(isTable_ ? TableHistory(history) : plain::TextHistory(history)));
    }
    const auto rules = files.Select(
        kDbObjectRule, "select ruleTypeId || ' ' || ruleAlgParameter from KSObjectRule" + where);
    if (!expected_.rule()) {
      ASSERT_THAT(rules, IsEmpty());
    } else {
      ASSERT_THAT(rules, ElementsAre(std::to_string(expected_.rule()->type) + " " +
                                     expected_.rule()->ParamText()));
    }
  }

  struct {
    int alerts = 0;
    int goldenValues = 0;
    std::vector<int> rules;  // types of the rule results
  } told;

 private:
  const std::string name_;
  const Story story_;
  const bool isTable_;
  bool isPrescribed_ = false;
  plain::TextVariable expected_;
};

void ExpectSoundDocument(const KSRuleUpdateResultData& results) {
  const std::string document = results.ToJsonString();
  EXPECT_EQ(FirstInvalidUtf8(document), document.size());
  JsonValue value;
  EXPECT_TRUE(JsonReader::Parse(document, value));
}

class TextDevice : public ::testing::Test {
 protected:
  TextDevice() { domain_.Tune(settings_.ToJson()); }

  static plain::TextSettings QuickSettings() {
    plain::TextSettings settings;
    settings.equal.timeIntervalLimit = 5 * kHour;
    settings.enumeration.timeIntervalLimit = 7 * kHour;
    settings.enumeration.dataCountHistory = 20;
    settings.table.timeIntervalLimit = 1000 * kHour;  // of no meaning
    settings.table.dataCountHistory = 12;
    return settings;
  }

  void Define(const std::string& name, bool isTable) {
    domain_.files().AddVariableRule({"src", name, -1, "", isTable ? 11 : 3});
    domain_.manager()->InvalidateKSVariableRuleCaches();
  }

  std::shared_ptr<WatchedText> Watch(const std::string& name, const Story& story,
                                     bool isTable = false) {
    Define(name, isTable);
    return device_.emplace_back(std::make_shared<WatchedText>(name, story, isTable, settings_));
  }

  std::shared_ptr<WatchedText> WatchPrescribed(const std::string& name, const Story& story,
                                               const plain::TextRule& rule) {
    const bool isTable = rule.type == kTableMd5;
    auto definition =
        std::make_shared<RuleDefinitionData>(rule.type, kRulePrescribed, rule.ParamText());
    definition->variableType = isTable ? 11 : 3;
    const ObjectDefine object = Unit{domain_.id()}.Object("ge0");
    domain_.manager()->SetRuleAlgParam({{name, definition}}, &object, "src", "prm",
                                       kVariableSourceParser);
    device_.push_back(std::make_shared<WatchedText>(name, story, isTable, settings_));
    device_.back()->Prescribe(rule);
    return device_.back();
  }

  static plain::TextRule RuleOf(int type, const std::string& text,
                                const std::set<std::string>& texts = {}) {
    plain::TextRule rule;
    rule.type = type;
    rule.text = text;
    rule.texts = texts;
    return rule;
  }

  void Live() {
    auto files = std::make_unique<DomainFiles>(domain_.files());
    for (int run = 0; run < kRuns; ++run) {
      SCOPED_TRACE(::testing::Message() << "run " << run);
      if (run % kRunsPerWeek == kRunsPerWeek - 1) {
        // What a process that starts anew finds on disk.
        files = std::make_unique<DomainFiles>(
            files->CopyAs(domain_.id() + " week " + std::to_string(run / kRunsPerWeek)));
      }
      const std::int32_t time = kStart + run * 2 * kHour;
      const Unit unit{files->domainId()};
      const auto instance = unit.Start(time, run % 50 == 49);
      for (const auto& watched : device_) {
        watched->Process(*instance, time, run);
        if (HasFatalFailure()) return;
      }
      ExpectSoundDocument(*instance->GetUpdateResultData());
      unit.Finish(*instance);
      if (run % 12 != 0 && run != kRuns - 1) continue;
      for (const auto& watched : device_) watched->CompareStored(*files);
      if (HasFatalFailure()) return;
    }
  }

  const plain::TextSettings settings_ = QuickSettings();
  TunedDomain domain_;
  std::vector<std::shared_ptr<WatchedText>> device_;
};

TEST_F(TextDevice, LivesFourWeeks) {
  const LogCapture log;
  const auto state = Watch("state", State);
  const auto odd = Watch("odd", Odd);
  const auto flapping = Watch("flapping", Flapping);
  const auto routes = Watch("routes", Routes, true);
  const auto unsettled = Watch("unsettled", Unsettled, true);
  const auto equal = WatchPrescribed("must be", State, RuleOf(kStrEqual, " Established\n"));
  const auto one = WatchPrescribed("one of", Flapping, RuleOf(kStrEnum, "", {"up", "testing"}));
  const auto never = WatchPrescribed("never", State, RuleOf(kStrNoEqual, "", {"Idle", "Down"}));
  const auto match = WatchPrescribed("match", State, RuleOf(kStrRegex, "^ ?(ESTAB.*|Active)"));
  const auto table = WatchPrescribed("table", Routes, RuleOf(kTableMd5, Routes(0).value));
  Live();
  if (HasFatalFailure()) return;

  const auto runs = [](auto condition) {
    int number = 0;
    for (int run = 0; run < kRuns; ++run) number += condition(run) ? 1 : 0;
    return number;
  };
  // Every kind was learned, and learned anew when its variable changed.
  EXPECT_THAT(state->told.rules, ::testing::Contains(kStrEqual));
  EXPECT_THAT(odd->told.rules, ::testing::Contains(kStrEnum));
  EXPECT_EQ(flapping->told.rules, (std::vector<int>{kStrEnum, kStrEqual}));
  EXPECT_EQ(routes->told.rules, (std::vector<int>{kTableMd5, kTableMd5}));
  EXPECT_EQ(routes->told.goldenValues, 2);
  EXPECT_THAT(unsettled->told.rules, IsEmpty());
  EXPECT_EQ(unsettled->told.alerts, 0);
  for (const auto& learning : {state, odd, routes}) EXPECT_GE(learning->told.alerts, 5);

  // What is prescribed stays, and every value that keeps to it is golden.
  EXPECT_EQ(one->told.alerts, runs([](int run) { return Flapping(run).value == "down"; }));
  EXPECT_EQ(one->told.goldenValues, kRuns - one->told.alerts);
  EXPECT_EQ(never->told.alerts, runs([](int run) { return run % 29 == 17; }));
  EXPECT_EQ(never->told.goldenValues, kRuns - never->told.alerts);
  EXPECT_EQ(match->told.alerts, never->told.alerts);
  EXPECT_EQ(equal->told.alerts, runs([](int run) {
              const std::string& text = State(run).value;
              return text == "Idle" || text[0] == 'A';
            }));
  EXPECT_EQ(table->told.alerts, runs([](int run) { return Routes(run).value != Routes(0).value; }));
  EXPECT_EQ(table->told.goldenValues, 0);  // a stored rule has no golden table to compare with
  for (const auto& prescribed : {equal, one, never, match, table}) {
    EXPECT_THAT(prescribed->told.rules, IsEmpty());
  }
  EXPECT_THAT(log.Messages(), ::testing::Not(::testing::Contains(HasSubstr("ailed"))));
}

// A string as it came is found again in the history, the rule and the results.
TEST_F(TextDevice, KeepsWhateverTextUnchanged) {
  std::vector<std::string> texts = OddTexts();
  texts.push_back(MegabyteOfOddText());
  for (std::size_t i = 0; i < texts.size(); ++i) {
    SCOPED_TRACE(plain::Quote(texts[i].substr(0, 50)));
    const std::string name = "text " + std::to_string(i);
    Define(name, false);
    // Blanks at the ends are no part of a value.
    const std::string value = "<" + texts[i] + ">";
    for (int run = 0; run < 7; ++run) {
      const Unit unit{domain_.id()};
      const auto instance = unit.Start(kStart + run * 6 * kHour);
      const std::string now = run < 5 ? value : run == 5 ? "other" : texts[i] + "\t";
      ASSERT_TRUE(instance->ProcessVariable(Value(name, KSDataString, now, "", 3)));
      const auto results = instance->GetUpdateResultData();
      ExpectSoundDocument(*results);
      if (run == 4) {
        ASSERT_EQ(results->GetKSRuleUpdateResults().size(), 1U);
        ASSERT_EQ(results->GetKSValueUpdateResults().size(), 1U);
        EXPECT_TRUE(results->GetKSRuleUpdateResults()[0]->strRuleAlgParam ==
                    "{\"ruleParam\":" + plain::Quote(value) + "}");
        EXPECT_TRUE(results->GetKSValueUpdateResults()[0]->strJsonValue == value);
      }
      ASSERT_EQ(results->GetKSAlertResults().size(), run < 5 ? 0U : 1U);
      if (run == 6) {
        JsonValue info;
        ASSERT_TRUE(JsonReader::Parse(results->GetKSAlertResults()[0]->GetAlertInfo(), info));
        EXPECT_TRUE(info["_v"].asString() == texts[i] + "\t");
        EXPECT_TRUE(info["_p"].asString() == "{\"ruleParam\":" + plain::Quote(value) + "}");
      }
      unit.Finish(*instance);
    }
    const auto stored = domain_.files().Select(
        kDbObjectHistory,
        "select HistoryData from KSObjectHistory where variableName = '" + name + "'");
    ASSERT_EQ(stored.size(), 1U);
    std::vector<SeenText> history;
    for (int run = 0; run < 5; ++run) {
      history.push_back({kStart + run * 6 * kHour, value, {}, {}, false});
    }
    history.push_back({kStart + 5 * 6 * kHour, "other", {}, {}, false});
    std::string last = texts[i] + "\t";
    last.erase(0, last.find_first_not_of(' '));
    history.push_back({kStart + 6 * 6 * kHour, last, {}, {}, false});
    EXPECT_TRUE(stored[0] == plain::TextHistory(history));
  }
}

TEST_F(TextDevice, KeepsTablesOfWhateverContent) {
  Define("table", true);
  JsonValue cells(JsonType::Array);
  for (const std::string& odd : OddTexts()) cells.append(odd);
  cells.append(MegabyteOfOddText());
  VarInfo variable = Value("table", KSDataTable, "digest \xff\"}", "", 11);
  variable.value = JsonValue(JsonType::Object);
  variable.value["rows"] = cells;
  for (const std::string& odd : OddTexts()) variable.tableKeys.insert(odd);
  std::shared_ptr<KSRuleUpdateResultData> results;
  for (int run = 0; run < 8; ++run) {
    const Unit unit{domain_.id()};
    const auto instance = unit.Start(kStart + run * kHour);
    ASSERT_TRUE(instance->ProcessVariable(variable));
    if (run == 4) results = instance->GetUpdateResultData();
    unit.Finish(*instance);
  }
  ASSERT_EQ(results->GetKSValueUpdateResults().size(), 1U);
  ExpectSoundDocument(*results);
  JsonValue golden;
  ASSERT_TRUE(JsonReader::Parse(results->GetKSValueUpdateResults()[0]->strJsonValue, golden));
  EXPECT_TRUE(golden["rows"] == cells);
  EXPECT_EQ(golden["hashCmp"].asString(), variable.valueText);
  EXPECT_EQ(golden["hashColumns"].size(), variable.tableKeys.size());

  std::vector<SeenText> history;
  for (int run = 0; run < 8; ++run) {
    history.push_back({kStart + run * kHour, variable.valueText, variable.value.toString(),
                       variable.tableKeys, false});
  }
  const auto stored =
      domain_.files().Select(kDbObjectHistory, "select HistoryData from KSObjectHistory");
  ASSERT_EQ(stored.size(), 1U);
  EXPECT_TRUE(stored[0] == TableHistory(history));
}

TEST_F(TextDevice, BeginsANewHistoryWhereTheStoredOneIsRefused) {
  Define("new string", false);
  Define("new table", true);
  const Unit unit{domain_.id()};
  const ObjectDefine object = unit.Object("ge0");
  auto known =
      std::make_shared<RuleDefinitionData>(kStrEqual, kRuleLearned, R"({"ruleParam":"up"})");
  known->variableType = 3;
  auto knownTable =
      std::make_shared<RuleDefinitionData>(kTableMd5, kRuleLearned, R"({"hashCmp":"d"})");
  knownTable->variableType = 11;
  domain_.manager()->SetRuleAlgParam({{"string", known}, {"table", knownTable}}, &object, "src",
                                     "prm", kVariableSourceParser);
  for (const std::string name : {"string", "table", "new string", "new table"}) {
    domain_.manager()->SetRuleHistoryData("{\"dataType\":", &object, "src", name, "prm",
                                          kVariableSourceParser);
  }
  for (int run = 0; run < 2; ++run) {
    const LogCapture log;
    const auto instance = unit.Start(kStart + run * 6 * kHour);
    for (int again = 0; again < 2; ++again) {
      for (const std::string name : {"string", "new string"}) {
        EXPECT_TRUE(instance->ProcessVariable(Value(name, KSDataString, "down", "ge0", 3)));
      }
      for (const std::string name : {"table", "new table"}) {
        EXPECT_TRUE(instance->ProcessVariable(Value(name, KSDataTable, "e", "ge0", 11)));
      }
      if (again == 0) {
        EXPECT_EQ(instance->GetUpdateResultData()->GetKSAlertResults().size(), 2U);
        EXPECT_EQ(log.Messages().size(), run == 0 ? 4U : 0U);
      }
    }
    unit.Finish(*instance);
  }
  const auto stored =
      domain_.files().Select(kDbObjectHistory, "select HistoryData from KSObjectHistory");
  EXPECT_EQ(stored.size(), 4U);
  EXPECT_THAT(stored, Each(HasSubstr("\"liveTime\":1700000000,")));
  EXPECT_THAT(stored, Each(HasSubstr("\"liveTime\":1700021600,")));
}

}  // namespace
}  // namespace keelstone::testing

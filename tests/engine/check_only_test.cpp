#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine/typed_value.h"
#include "engine/value_check.h"
#include "keelstone/algorithm_manager.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/log_capture.h"
#include "tests/support/tuned_domain.h"

// Values that are only checked take a short way where the stored texts are as the library
// writes them. A blank in front of a history sends the same value the long way: what comes
// of both must be the same.
namespace keelstone::testing {
namespace {

constexpr std::int32_t kNow = 1700000000;
constexpr EnumKSDataType kTypes[] = {KSDataInt64, KSDataFloat, KSDataDouble, KSDataString};

class Dice {
 public:
  explicit Dice(unsigned seed) : random_(seed) {}
  unsigned Below(unsigned n) { return static_cast<unsigned>(random_()) % n; }
  bool OneIn(unsigned n) { return Below(n) == 0; }
  template <class Items>
  std::string Pick(const Items& items) {
    return items[Below(static_cast<unsigned>(std::size(items)))];
  }
  EnumKSDataType Type() { return kTypes[Below(4)]; }

 private:
  std::mt19937 random_;
};

std::string SomeValue(Dice& dice, EnumKSDataType type) {
  static const char* const kTexts[] = {"up", "down", " up ", "", "a\"b", "up\n", "Established"};
  static const char* const kNumbers[] = {"3", "5", "0", "-1", "9.5", "0.1", "1e3", "x", "7seven"};
  return type == KSDataString ? dice.Pick(kTexts) : dice.Pick(kNumbers);
}

std::string SomeParam(Dice& dice) {
  static const char* const kParams[] = {R"({"ruleParam":5})",
                                        R"({"ruleParam":5.0})",
                                        R"({"ruleParam":-1})",
                                        R"({"ruleParam":0.1})",
                                        R"({"ruleParam":0.10000000149011612})",
                                        R"({"ruleParam":[3,5]})",
                                        R"({"ruleParam":[5,3]})",
                                        R"({"ruleParam":[3,3]})",
                                        R"({"ruleParam":[3.0,5.0]})",
                                        R"({"ruleParam":[]})",
                                        R"({"maxValue":9,"minValue":3})",
                                        R"({"maxValue":9.5,"minValue":0.1})",
                                        R"({"minValue":3,"maxValue":9})",
                                        R"({"maxValue":9.5, "minValue":0.1})",
                                        R"({"ruleParam":"up"})",
                                        R"({"ruleParam":"up\n"})",
                                        R"({"ruleParam":"a\"b"})",
                                        R"({"ruleParam":["down","up"]})",
                                        R"({"ruleParam":["up","down"]})",
                                        R"({"ruleParam":"5"})",
                                        "",
                                        "null",
                                        "{}",
                                        "{",
                                        R"({"ruleParam":5}x)"};
  return dice.Pick(kParams);
}

std::string SomeHistory(Dice& dice, EnumKSDataType type, std::int64_t newest) {
  const auto history = MakeHistory(dice.OneIn(15) ? dice.Type() : type);
  for (unsigned left = dice.OneIn(12) ? 0 : 1 + dice.Below(12); left > 0; --left) {
    VarInfo variable = Value("", history->dataType, SomeValue(dice, type));
    const auto point = TypedValue(variable).MakePoint(newest - (left - 1) * 1000);
    if (point) history->AddData(point, 100);
  }
  std::string text = history->ToString();
  if (!text.empty() && dice.OneIn(6)) {
    text[dice.Below(static_cast<unsigned>(text.size()))] = "0 5\"}x"[dice.Below(6)];
  }
  return text;
}

struct Stored {
  RuleDefinitionData definition;
  std::string history;
  std::vector<VarInfo> values;  // in one run
};

Stored SomeStored(Dice& dice, const std::string& name) {
  Stored stored;
  const EnumKSDataType type = dice.Type();
  RuleDefinitionData& definition = stored.definition;
  definition.ruleType = static_cast<int>(dice.Below(13));
  if (dice.OneIn(10)) definition.ruleType = kRuleTypeNone;
  definition.ruleParam = SomeParam(dice);
  definition.ruleGenerateType = dice.OneIn(4) ? kRulePrescribed : kRuleLearned;
  definition.variableType = dice.OneIn(8) ? static_cast<int>(dice.Below(3)) : 1;
  const std::int64_t age = dice.OneIn(3) ? 10'000'000 : dice.Below(20'000);
  stored.history = SomeHistory(dice, type, kNow - age);
  for (unsigned i = 1 + dice.Below(2); i > 0; --i) {
    stored.values.push_back(Value(name, type, SomeValue(dice, type), "ge0"));
  }
  return stored;
}

std::string WithoutBlank(const std::string& text) {
  return text.starts_with(' ') ? text.substr(1) : text;
}

/// How rules and histories get into an instance, and who else holds the rules.
enum class Way { kLoaded, kHandedOver, kHandedOverAndHeld };

class TwoWays : public ::testing::TestWithParam<Way> {
 protected:
  TwoWays() { domain_.TuneDefaults(); }

  std::string Told(KSRuleInstance& instance, const std::string& device) const {
    std::string text = instance.GetUpdateResultData()->ToJsonString();
    for (std::size_t at = 0; (at = text.find(device, at)) != text.npos;) {
      text.replace(at, device.size(), "device");
    }
    return text;
  }

  std::unique_ptr<KSRuleInstance> Instance(const std::string& device, bool onDemand) const {
    return std::make_unique<KSRuleInstance>("src", "node", device, "schema", "structure", "prm",
                                            domain_.id(), "", kNow, onDemand);
  }

  /// All that can be seen of evaluating what is stored, on a device of its own.
  std::vector<std::string> Outcome(const std::string& device,
                                   const std::map<std::string, Stored>& unit,
                                   const std::string& blank, bool onDemand) const {
    DevParserRule rules;
    DevParserHistory histories;
    std::vector<ObjectRuleHistoryData> rows;
    ObjectDefine object;
    object.deviceName = device;
    object.interfaceValue = "ge0";
    for (const auto& [name, stored] : unit) {
      const std::string history = stored.history.empty() ? "" : blank + stored.history;
      auto record = std::make_shared<RuleDefinitionData>(stored.definition);
      if (GetParam() == Way::kHandedOverAndHeld) record->history = history;
      rules["ge0"][name] = std::move(record);
      if (!history.empty()) {
        histories["ge0"][name] = history;
        rows.push_back({history, object, "src", name, "prm", kVariableSourceParser});
      }
    }
    const DevParserRule held = GetParam() == Way::kHandedOverAndHeld ? rules : DevParserRule();
    const auto instance = Instance(device, onDemand);
    if (GetParam() == Way::kLoaded) {
      domain_.manager()->SetRuleAlgParam(rules["ge0"], &object, "src", "prm",
                                         kVariableSourceParser);
      domain_.manager()->SetRuleHistoryData(rows);
      EXPECT_TRUE(instance->InitCacheData() && instance->InitHistoryData());
    } else {
      instance->SetCacheData(std::move(rules));
      instance->SetHistoryData(std::move(histories));
    }

    std::vector<std::string> seen;
    Evaluate(*instance, unit, seen);
    seen.push_back(Told(*instance, device));
    for (const auto& [interfaceValue, records] : held) {
      for (const auto& [name, record] : records) See(name, *record, seen);
    }
    // What was handed over waits to be written, and is met there by the next run.
    instance->SerializeLocalDB();
    const auto next = Instance(device, onDemand);
    Evaluate(*next, unit, seen);
    seen.push_back(Told(*next, device));
    next->SerializeLocalDB();
    DBWriteWrapper::Instance()->WriteDomain(domain_.id());
    SeeStored(object, seen);
    return seen;
  }

  static void Evaluate(KSRuleInstance& instance, const std::map<std::string, Stored>& unit,
                       std::vector<std::string>& seen) {
    for (const auto& [name, stored] : unit) {
      for (const VarInfo& value : stored.values) {
        seen.push_back(name + (instance.ProcessVariable(value) ? " taken" : " refused"));
      }
    }
  }
  static void See(const std::string& name, const RuleDefinitionData& record,
                  std::vector<std::string>& seen) {
    seen.push_back(name + ' ' + std::to_string(record.ruleType) + ' ' + record.ruleParam + ' ' +
                   std::to_string(record.variableType) + ' ' + WithoutBlank(record.history));
  }
  void SeeStored(const ObjectDefine& object, std::vector<std::string>& seen) const {
    DevParserRule rules;
    DevParserHistory histories;
    domain_.manager()->GetRuleDefinitionDataByDev(rules, &object, "src", "prm",
                                                  kVariableSourceParser);
    domain_.manager()->GetRuleHistoryData(histories, &object, "src", "prm", kVariableSourceParser);
    for (const auto& [name, record] : rules["ge0"]) See(name, *record, seen);
    for (const auto& [name, text] : histories["ge0"]) seen.push_back(name + WithoutBlank(text));
  }

  TunedDomain domain_;
};

TEST_P(TwoWays, ComeToTheSame) {
  const LogCapture quiet(kLogError + 1);
  Dice dice(40U + static_cast<unsigned>(GetParam()));
  for (int round = 0; round < 8; ++round) {
    std::map<std::string, Stored> unit;
    for (int i = 0; i < 300; ++i) {
      const std::string name = "v" + std::to_string(i);
      unit.emplace(name, SomeStored(dice, name));
    }
    const bool onDemand = dice.OneIn(5);
    const std::string number = std::to_string(round);
    const auto shortWay = Outcome("short-" + number, unit, "", onDemand);
    const auto longWay = Outcome("long-" + number, unit, " ", onDemand);
    ASSERT_EQ(shortWay.size(), longWay.size());
    for (std::size_t i = 0; i < shortWay.size(); ++i) ASSERT_EQ(shortWay[i], longWay[i]) << round;
  }
}

INSTANTIATE_TEST_SUITE_P(CheckOnly, TwoWays,
                         ::testing::Values(Way::kLoaded, Way::kHandedOver,
                                           Way::kHandedOverAndHeld));

TEST(BreaksRule, SaysWhatTheRuleSays) {
  const LogCapture quiet(kLogError + 1);
  Dice dice(50);
  std::map<int, int> told;  // by rule type
  for (int i = 0; i < 60'000; ++i) {
    const EnumKSDataType type = dice.Type();
    const auto ruleType = static_cast<EnumRuleType>(dice.Below(13));
    const auto definition =
        std::make_shared<RuleDefinitionData>(ruleType, kRuleLearned, SomeParam(dice));
    const VarInfo value = Value("v", type, SomeValue(dice, type));
    const auto breaks = BreaksRule(TypedValue(value), ruleType, definition->ruleParam);
    if (!breaks) continue;
    ++told[ruleType];
    const auto rule = KSRuleAlgMgr::Instance()->GetRuleByType(AlgTypeOf(type), ruleType, type);
    ASSERT_NE(rule, nullptr);
    rule->Init(definition, "no domain");
    const std::string about = definition->ruleParam + " of " + std::to_string(ruleType) + ", " +
                              value.valueText + " of " + std::to_string(type);
    ASSERT_EQ(rule->CheckAlert(TypedValue(value).MakePoint(kNow)), *breaks) << about;
    ASSERT_EQ(rule->GetRuleParam(), definition->ruleParam) << about;
  }
  // All but regular expressions and tables.
  EXPECT_EQ(told.size(), 11U);
}

}  // namespace
}  // namespace keelstone::testing

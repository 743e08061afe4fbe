#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/log_capture.h"
#include "tests/support/numeric_kinds.h"
#include "tests/support/tuned_domain.h"

// One device over four weeks of simulated time. What must come out of each value is told
// by the second reading of the rules; what must have happened at all is said at the end.
namespace keelstone::testing {
namespace {

constexpr std::int32_t kStart = 1700000000;
constexpr std::int32_t kHour = 3600;
constexpr int kRuns = 336;  // every two hours
constexpr int kRunsPerWeek = 84;
constexpr int kIncident = 200;

/// The value of a variable at a run, in whole steps.
using Story = std::function<int(int run)>;

int Equal(int run) {  // 100, later 200; a slip now and then
  if (run % 29 == 17) return 7;
  return run < kIncident ? 100 : 200;
}
int Increase(int run) {  // a counter that restarts once and stalls once
  if (run == kIncident + 3) return (run - 1) * 5;
  return run < kIncident ? 5000 + run * 5 : run * 5 - 900;
}
int Constant(int run) { return 40 + run / 3; }  // rises every third run
int Range(int run) {                            // between 20 and 39, once far above
  return run % 61 == 60 ? 900 : 20 + run * 7 % 20;
}
int Enum(int run) {  // three states; a fourth at times
  return run % 41 == 40 ? 9 : std::vector<int>{1, 2, 5, 2}[static_cast<std::size_t>(run % 4)];
}

struct Told {
  int alerts = 0;
  int goldenValues = 0;
  int rules = 0;
};

class Device {
 public:
  virtual ~Device() = default;
  virtual void Process(KSRuleInstance& instance, std::int32_t time, int run) = 0;
  virtual void CompareStored(const DomainFiles& files) const = 0;
};

/// A variable as the engine sees it, beside its second reading.
template <class T>
class Watched final : public Device {
 public:
  Watched(std::string name, std::string interfaceValue, int typeCode, Story story, T step,
          const plain::Settings& settings)
      : name_(std::move(name)),
        interface_(std::move(interfaceValue)),
        typeCode_(typeCode),
        story_(std::move(story)),
        step_(step),
        expected_(settings) {}

  void Prescribe(const plain::Rule<T>& rule) {
    isPrescribed_ = true;
    expected_.Prescribe(rule);
  }

  void Process(KSRuleInstance& instance, std::int32_t time, int run) override {
    const T value = static_cast<T>(static_cast<T>(story_(run)) * step_);
    const std::string text = plain::NumberText(
        std::conditional_t<std::is_same_v<T, std::int64_t>, std::int64_t, double>(value));
    const auto results = instance.GetUpdateResultData();
    const Told before = Count(*results);
    const auto answer = expected_.See(time, value, text, instance.IsOndemandTask());
    ASSERT_TRUE(
        instance.ProcessVariable(Value(name_, Kind<T>::kDataType, text, interface_, typeCode_)));
    const Told after = Count(*results);

    ASSERT_EQ(after.alerts - before.alerts, answer.alert ? 1 : 0);
    if (answer.alert) {
      const KSAlertData& alert = *results->GetKSAlertResults().back();
      ASSERT_EQ(alert.GetAlertInfo(), *answer.alert);
      ASSERT_EQ(alert.GetLiveTime(), time);
      ASSERT_EQ(alert.GetVaraibleName(), name_);
    }
    ASSERT_EQ(after.goldenValues - before.goldenValues, answer.golden ? 1 : 0);
    if (answer.golden) {
      const KSValueUpdateResultItem& item = *results->GetKSValueUpdateResults().back();
      ASSERT_EQ(item.strJsonValue, *answer.golden);
      ASSERT_EQ(item.nValueTime, answer.goldenTime);
      ASSERT_EQ(item.nRuleId, expected_.type());
      ASSERT_EQ(item.nVariableType, typeCode_);
    }
    ASSERT_EQ(after.rules - before.rules, answer.ruleParam ? 1 : 0);
    if (answer.ruleParam) {
      const KSRuleUpdateResultItem& item = *results->GetKSRuleUpdateResults().back();
      ASSERT_EQ(item.nRuleId, answer.ruleType);
      ASSERT_EQ(item.strRuleAlgParam, *answer.ruleParam);
      ++learned[answer.ruleType];
    }
    told.alerts += after.alerts - before.alerts;
    told.goldenValues += after.goldenValues - before.goldenValues;
    told.rules += after.rules - before.rules;
  }

  void CompareStored(const DomainFiles& files) const override {
    const std::string where =
        " where variableName = '" + name_ + "' and interfaceValue = '" + interface_ + "'";
    const auto histories =
        files.Select(kDbObjectHistory, "select HistoryData from KSObjectHistory" + where);
    if (isPrescribed_) {
      ASSERT_TRUE(histories.empty());
    } else {
      ASSERT_EQ(histories, std::vector{plain::HistoryText(expected_.history())});
    }
    const auto rules = files.Select(
        kDbObjectRule, "select ruleTypeId || ' ' || ruleAlgParameter from KSObjectRule" + where);
    if (expected_.type() < 0) {
      ASSERT_TRUE(rules.empty());
    } else {
      ASSERT_EQ(rules, std::vector{std::to_string(expected_.type()) + " " + expected_.param()});
    }
  }

  Told told;
  std::map<int, int> learned;  // rule results by type

 private:
  static Told Count(const KSRuleUpdateResultData& results) {
    return {static_cast<int>(results.GetKSAlertResults().size()),
            static_cast<int>(results.GetKSValueUpdateResults().size()),
            static_cast<int>(results.GetKSRuleUpdateResults().size())};
  }

  const std::string name_;
  const std::string interface_;
  const int typeCode_;
  const Story story_;
  const T step_;
  bool isPrescribed_ = false;
  plain::Variable<T> expected_;
};

plain::Settings QuickSettings() {
  plain::Settings settings;
  settings.equal.timeIntervalLimit = 5 * kHour;
  settings.enumeration.timeIntervalLimit = 7 * kHour;
  settings.range.timeIntervalLimit = 9 * kHour;
  settings.constant.timeIntervalLimit = 5 * kHour;
  settings.increase.timeIntervalLimit = 3 * kHour;
  settings.enumeration.dataCountHistory = 24;
  return settings;
}

template <class T>
class FourWeeks : public ::testing::Test {
 protected:
  static constexpr int kTypeCode = std::is_same_v<T, float> ? 25 : Kind<T>::kDataType == 1 ? 1 : 2;
  static constexpr T kStep = std::is_same_v<T, std::int64_t> ? T(1) : T(1.25);

  FourWeeks() {
    domain_.Tune(settings_.ToJson());
    domain_.files().SetGlobal("KSInterfaceFilter", R"({"value":["null"]})");
    domain_.manager()->InvalidateKSGlobalSettingCaches();
  }
  ~FourWeeks() override { Clock::SetSource(nullptr); }

  std::shared_ptr<Watched<T>> Watch(const std::string& name, const Story& story, T step = kStep) {
    domain_.files().AddVariableRule({"src", name, -1, "", kTypeCode});
    domain_.manager()->InvalidateKSVariableRuleCaches();
    auto watched = std::make_shared<Watched<T>>(name, "ge0", kTypeCode, story, step, settings_);
    device_.push_back(watched);
    return watched;
  }

  std::shared_ptr<Watched<T>> WatchPrescribed(const std::string& name, const Story& story,
                                              const plain::Rule<T>& rule) {
    auto definition =
        std::make_shared<RuleDefinitionData>(rule.type, kRulePrescribed, rule.ParamText());
    definition->variableType = kTypeCode;
    const ObjectDefine object = Unit{domain_.id()}.Object("ge1");
    domain_.manager()->SetRuleAlgParam({{name, definition}}, &object, "src", "prm",
                                       kVariableSourceParser);
    auto watched = std::make_shared<Watched<T>>(name, "ge1", kTypeCode, story, kStep, settings_);
    watched->Prescribe(rule);
    device_.push_back(watched);
    return watched;
  }

  static plain::Rule<T> RuleOf(int type, int value, std::set<T> values = {}) {
    plain::Rule<T> rule;
    rule.type = type;
    rule.value = static_cast<T>(T(value) * kStep);
    rule.values = std::move(values);
    return rule;
  }

  void Live() {
    std::unique_ptr<DomainFiles> files = std::make_unique<DomainFiles>(domain_.files());
    files->AddBlock({"r1"}, kStart + 100 * 2 * kHour, kStart + 103 * 2 * kHour);
    domain_.manager()->InvalidateKSBlockSettingCaches();
    static std::int64_t now;
    Clock::SetSource([] { return now * 1000; });
    int blocked = 0;
    for (int run = 0; run < kRuns; ++run) {
      SCOPED_TRACE(::testing::Message() << "run " << run);
      if (run % kRunsPerWeek == kRunsPerWeek - 1) {
        // What a process that starts anew finds on disk.
        files = std::make_unique<DomainFiles>(
            files->CopyAs(domain_.id() + " week " + std::to_string(run / kRunsPerWeek)));
      }
      const std::int32_t time = kStart + run * 2 * kHour;
      now = time;
      const Unit unit{files->domainId()};
      const auto instance = unit.Start(time, run % 50 == 49);
      if (instance->IsInBlockTime()) {
        ++blocked;
        instance->SetOnlyUpdateKSValue();
      }
      for (const auto& watched : device_) {
        watched->Process(*instance, time, run);
        if (::testing::Test::HasFatalFailure()) return;
      }
      // Learned rules leave filtered interfaces alone.
      ASSERT_TRUE(instance->ProcessVariable(
          Value("equal", Kind<T>::kDataType, std::to_string(run), "Null0", kTypeCode)));
      unit.Finish(*instance);
      if (run % 12 == 0 || run == kRuns - 1) {
        for (const auto& watched : device_) watched->CompareStored(*files);
        if (::testing::Test::HasFatalFailure()) return;
      }
    }
    EXPECT_EQ(blocked, 4);
    EXPECT_TRUE(files
                    ->Select(kDbObjectHistory,
                             "select 1 from KSObjectHistory where interfaceValue = 'Null0'")
                    .empty());
  }

  const plain::Settings settings_ = QuickSettings();
  LogCapture log_;
  TunedDomain domain_;
  std::vector<std::shared_ptr<Device>> device_;
};
TYPED_TEST_SUITE(FourWeeks, NumericTypes);

TYPED_TEST(FourWeeks, OfOneDevice) {
  using T = TypeParam;
  const auto equal = this->Watch("equal", Equal);
  const auto increase = this->Watch("increase", Increase);
  const auto constant = this->Watch("constant", Constant);
  const auto range = this->Watch("range", Range);
  const auto enumeration = this->Watch("enum", Enum);
  const auto most = this->WatchPrescribed("most", Range, this->RuleOf(kIntLEQ, 35));
  const auto least = this->WatchPrescribed("least", Range, this->RuleOf(kIntGEQ, 24));
  const auto never = this->WatchPrescribed(
      "never", Enum, this->RuleOf(kIntNoEqual, 0, {static_cast<T>(T(9) * this->kStep)}));
  const auto still = this->WatchPrescribed("still", Constant, this->RuleOf(kIntConstant, 40));
  const auto grows = this->WatchPrescribed("grows", Increase, this->RuleOf(kIntIncrease, 0));
  this->Live();
  if (::testing::Test::HasFatalFailure()) return;

  // Every kind was learned, and learned anew when its variable changed.
  EXPECT_GE(equal->learned[kIntEqual], 2);  // 100, then 200
  EXPECT_GE(increase->learned[kIntIncrease], 20);
  EXPECT_GE(constant->learned[kIntConstant], 10);
  EXPECT_GE(range->learned[kIntRange], 5);
  EXPECT_GE(enumeration->learned[kIntEnum], 1);
  for (const auto& learning : {equal, increase, constant, range, enumeration}) {
    EXPECT_GT(learning->told.goldenValues, 0);
    EXPECT_GT(learning->told.alerts, 0);
  }
  // 900 comes at 5 of 336 runs; of the 20 other values 36 to 39 are above 35 and 20 to 23
  // below 24. Each of the 20 values comes every 20 runs.
  const auto runs = [](auto condition) {
    int number = 0;
    for (int run = 0; run < kRuns; ++run) number += condition(run) ? 1 : 0;
    return number;
  };
  EXPECT_EQ(most->told.alerts, runs([](int run) { return Range(run) > 35; }));
  EXPECT_EQ(least->told.alerts, runs([](int run) { return Range(run) < 24; }));
  EXPECT_EQ(least->told.goldenValues, kRuns - least->told.alerts);
  EXPECT_EQ(never->told.alerts, 8);              // at the runs 40, 81, …, 327
  EXPECT_EQ(still->told.alerts, kRuns / 3 - 1);  // at every step
  EXPECT_EQ(still->told.goldenValues, still->told.alerts);
  EXPECT_EQ(grows->told.alerts, 2);  // the restart, and the stall after it
  EXPECT_EQ(grows->told.goldenValues, kRuns - 2);
  for (const auto& prescribed : {most, least, never, still, grows}) {
    EXPECT_EQ(prescribed->told.rules, 0);
  }
}

}  // namespace
}  // namespace keelstone::testing

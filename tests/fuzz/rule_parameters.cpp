// A parameter text for each kind of rule and value: what is taken comes back from its own
// text and judges values.
#include <memory>

#include "engine/typed_value.h"
#include "engine/variable_values.h"
#include "keelstone/algorithm_manager.h"
#include "tests/fuzz/fuzz_home.h"

namespace keelstone::fuzz {
namespace {

std::shared_ptr<IRuleBase> MakeRule(EnumRuleType ruleType, EnumKSDataType dataType,
                                    const std::string& param) {
  const auto rule =
      KSRuleAlgMgr::Instance()->GetRuleByType(AlgTypeOf(dataType), ruleType, dataType);
  if (!rule) return nullptr;
  auto definition = std::make_shared<RuleDefinitionData>(ruleType, kRulePrescribed, param);
  rule->Init(definition, "fuzz");
  return rule;
}

void JudgeValues(IRuleBase& rule, EnumKSDataType dataType, const std::string& text) {
  for (const std::string& value : {text, std::string("1"), std::string("-9e307")}) {
    VarInfo variable;
    variable.dataType = dataType;
    variable.valueText = value;
    const auto point = TypedValue(variable).MakePoint(1700000000);
    if (!point) continue;
    rule.CheckAlert(point);
    rule.CheckGoldenValue(point);
    rule.UpdateParam(point);
    rule.GetRuleKSValue();
  }
}

void ReadParameter(Input input) {
  static Home home;
  const auto dataType = static_cast<EnumKSDataType>(1 + input.Byte() % 5);
  const auto ruleType = static_cast<EnumRuleType>(input.Byte() % kRuleTypeCount);
  const std::string value = input.Line();
  const std::string text = input.Rest();

  const std::string converted = ConvertVariableRuleParam(dataType, text);
  JsonValue document;
  KS_PROMISE(JsonReader::Parse(converted, document));
  for (const std::string& param : {text, converted}) {
    const auto rule = MakeRule(ruleType, dataType, param);
    if (!rule) return;
    const std::string written = rule->GetRuleParam();
    KS_PROMISE(written.empty() || JsonReader::Parse(written, document));
    const auto again = MakeRule(ruleType, dataType, written);
    KS_PROMISE(again->GetRuleParam() == written);
    KS_PROMISE(again->IsEqual(rule.get()));
    if (ruleType != kStrRegex) JudgeValues(*rule, dataType, value);
  }
}

}  // namespace
}  // namespace keelstone::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  keelstone::fuzz::ReadParameter({data, size});
  return 0;
}

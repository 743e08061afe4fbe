#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "bindings/c/run_handle.h"
#include "keelstone/rule_global_setting.h"

namespace keelstone::c {

namespace {

// What the structures held first; they only grow.
constexpr std::size_t kLeastSummary =
    offsetof(ks_summary, engine_on) + sizeof(ks_summary::engine_on);
constexpr std::size_t kLeastRefusal = offsetof(ks_refusal, reason) + sizeof(ks_refusal::reason);
constexpr std::size_t kLeastRuleUpdate =
    offsetof(ks_rule_update, variable_type) + sizeof(ks_rule_update::variable_type);
constexpr std::size_t kLeastGoldenValue =
    offsetof(ks_golden_value, variable_type) + sizeof(ks_golden_value::variable_type);
constexpr std::size_t kLeastAlert = offsetof(ks_alert, reserved) + sizeof(ks_alert::reserved);

const char* NameOf(std::int32_t ruleType) {
  return RuleTypeName(static_cast<EnumRuleType>(ruleType));
}

/// What rule updates and golden values have in common.
template <class Given, class Item>
Given Common(const Item& item) {
  Given given{};
  given.device = item.strDeviceName.c_str();
  given.source = item.strVariableSource.c_str();
  given.param = item.strVariableParam.c_str();
  given.interface_value = item.strInterfaceName.c_str();
  given.variable = item.strVariableName.c_str();
  given.rule_name = NameOf(item.nRuleId);
  given.node_id = item.strNodeId.c_str();
  given.node_path_schema = item.strNodePathSchema.c_str();
  given.rule_type = item.nRuleId;
  given.variable_type = item.nVariableType;
  return given;
}

}  // namespace

}  // namespace keelstone::c

using namespace keelstone;
using namespace keelstone::c;

ks_status ks_run_summary(ks_run* run, ks_summary* summary, size_t size) {
  return Call([&] {
    const RunEntry inside(run);
    const Findings& found = inside->Found();
    ks_summary given{};
    given.variables = found.variables();
    given.rejected = found.refused().size();
    given.rules = found.results().GetKSRuleUpdateResults().size();
    given.golden_values = found.results().GetKSValueUpdateResults().size();
    given.alerts = found.results().GetKSAlertResults().size();
    given.blocked = found.isBlocked() ? 1 : 0;
    given.engine_on = found.isEngineOn() ? 1 : 0;
    given.repeated = found.repeated();
    GiveStructure(given, summary, size, kLeastSummary, "summary");
  });
}

ks_status ks_run_json(ks_run* run, const char** text, size_t* length) {
  return Call([&] {
    const RunEntry inside(run);
    const char*& given = Required(text, "text");
    const std::string& json = inside->ResultJson();
    given = json.c_str();
    if (length != nullptr) *length = json.size();
  });
}

ks_status ks_run_explanations(ks_run* run, const char** text, size_t* length) {
  return Call([&] {
    const RunEntry inside(run);
    const char*& given = Required(text, "text");
    const std::string& json = inside->ExplanationsJson();
    given = json.c_str();
    if (length != nullptr) *length = json.size();
  });
}

ks_status ks_run_rejected(ks_run* run, size_t index, const char** name) {
  return Call([&] {
    const RunEntry inside(run);
    const char*& given = Required(name, "name");
    given = At(inside->Found().refused(), index).name.c_str();
  });
}

ks_status ks_run_refusal(ks_run* run, size_t index, ks_refusal* refusal, size_t size) {
  return Call([&] {
    const RunEntry inside(run);
    GiveStructure(inside->Refusal(index), refusal, size, kLeastRefusal, "refusal");
  });
}

ks_status ks_run_rule_update(ks_run* run, size_t index, ks_rule_update* item, size_t size) {
  return Call([&] {
    const RunEntry inside(run);
    const auto& found = *At(inside->Found().results().GetKSRuleUpdateResults(), index);
    auto given = Common<ks_rule_update>(found);
    given.parameter = found.strRuleAlgParam.c_str();
    GiveStructure(given, item, size, kLeastRuleUpdate, "item");
  });
}

ks_status ks_run_golden_value(ks_run* run, size_t index, ks_golden_value* item, size_t size) {
  return Call([&] {
    const RunEntry inside(run);
    const auto& found = *At(inside->Found().results().GetKSValueUpdateResults(), index);
    auto given = Common<ks_golden_value>(found);
    given.value = found.strJsonValue.c_str();
    given.structure_id = found.strStructureId.c_str();
    given.time = found.nValueTime;
    GiveStructure(given, item, size, kLeastGoldenValue, "item");
  });
}

ks_status ks_run_alert(ks_run* run, size_t index, ks_alert* item, size_t size) {
  return Call([&] {
    const RunEntry inside(run);
    const KSAlertData& found = *At(inside->Found().results().GetKSAlertResults(), index);
    const RunHandle::AlertTexts& texts = inside->TextsOfAlert(index);
    ks_alert given{};
    given.device = found.GetDeviceName().c_str();
    given.source = found.GetSourcePath().c_str();
    given.param = texts.parserParam.c_str();
    given.interface_value = found.GetInterfaceValue().c_str();
    given.interface_path = found.GetInterfacePath().c_str();
    given.variable = found.GetVaraibleName().c_str();
    given.rule_name = NameOf(texts.ruleType);
    given.parameter = texts.parameter.c_str();
    given.value = texts.hasValue ? texts.value.c_str() : nullptr;
    given.expected = texts.expected.c_str();
    given.node_id = found.GetNodeId().c_str();
    given.node_path_schema = found.GetNodeSchema().c_str();
    given.time = found.GetLiveTime();
    given.rule_type = texts.ruleType;
    GiveStructure(given, item, size, kLeastAlert, "item");
  });
}

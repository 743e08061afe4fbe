// One value with a hostile definition, history and interface goes the whole way: judged,
// learned, written, loaded again and judged again.
//
// Bytes: data type, rule type, flags, hours since the epoch's recent past. Lines: parameter,
// history, value text, interface, key columns separated by commas, structured value.
#include <memory>

#include "keelstone/rule_instance.h"
#include "tests/fuzz/fuzz_home.h"

namespace keelstone::fuzz {
namespace {

enum Flag : unsigned {
  kPrescribed = 1,
  kOnDemand = 2,
  kFromVariableRules = 4,
  kSorted = 8,
  kStored = 16,
  kTwice = 32,
};

struct Case {
  unsigned flags = 0;
  std::int32_t time = 0;
  std::shared_ptr<RuleDefinitionData> definition = std::make_shared<RuleDefinitionData>();
  std::string history;
  VarInfo variable;
};

Case ReadCase(Input input) {
  Case it;
  it.variable.dataType = static_cast<std::int32_t>(input.Byte() % 7);
  RuleDefinitionData& definition = *it.definition;
  definition.ruleType = static_cast<std::int32_t>(input.Byte() % (kRuleTypeCount + 2)) - 1;
  it.flags = input.Byte();
  it.time = 1700000000 + static_cast<std::int32_t>(input.Byte()) * 3600;
  definition.ruleGenerateType = (it.flags & kPrescribed) != 0 ? kRulePrescribed : kRuleLearned;
  definition.variableType = 1;
  definition.enableFlag = true;
  definition.ruleParam = input.Line();
  it.history = input.Line();
  it.variable.variableName = "v";
  it.variable.variableType = 1;
  it.variable.valueText = input.Line();
  it.variable.interfaceValue = input.Line();
  definition.variableName = it.variable.variableName;
  std::string key;
  for (const char c : input.Line()) {
    if (c != ',') {
      key += c;
    } else {
      it.variable.tableKeys.insert(std::exchange(key, {}));
    }
  }
  if (!key.empty()) it.variable.tableKeys.insert(key);
  it.variable.tableFlag = (it.flags & kSorted) != 0 ? 1 : 0;
  if (!JsonReader::Parse(input.Rest(), it.variable.value)) it.variable.value = JsonValue();
  return it;
}

void ExpectDocument(const KSRuleUpdateResultData& results) {
  const std::string text = results.ToJsonString();
  JsonValue document;
  KS_PROMISE(IsStrictJson(text));
  KS_PROMISE(JsonReader::Parse(text, document));
  KSRuleUpdateResultData again;
  KS_PROMISE(again.LoadFromJson(document));
  KS_PROMISE(again.ToJsonString() == text);
  for (const auto& alert : results.GetKSAlertResults()) {
    KS_PROMISE(JsonReader::Parse(alert->GetAlertInfo(), document));
  }
}

KSRuleInstance MakeInstance(const Home& home, const Case& it, std::int32_t later) {
  return {"src", "node",          "r1", "schema",        "structure",
          "prm", home.domainId(), "",   it.time + later, (it.flags & kOnDemand) != 0};
}

void EvaluateStored(const Home& home, const Case& it) {
  auto instance = MakeInstance(home, it, 7200);
  KS_PROMISE(instance.InitCacheData());
  KS_PROMISE(instance.InitHistoryData());
  instance.ProcessVariable(it.variable);
  ExpectDocument(*instance.GetUpdateResultData());
  instance.SerializeLocalDB();
}

void Evaluate(const Case& it) {
  static Home home;
  static const bool kDefined = [] {
    home.files().AddVariableRule({.source = "src", .name = "v"});
    home.manager()->InvalidateKSVariableRuleCaches();
    return true;
  }();
  KS_PROMISE(kDefined);
  auto instance = MakeInstance(home, it, 0);
  DevParserRule rules;
  if ((it.flags & kFromVariableRules) == 0) {
    rules[it.variable.interfaceValue][it.variable.variableName] = it.definition;
  }
  instance.SetCacheData(std::move(rules));
  instance.SetHistoryData({{it.variable.interfaceValue, {{it.variable.variableName, it.history}}}});
  instance.ProcessVariable(it.variable);
  if ((it.flags & kTwice) != 0) instance.ProcessVariable(it.variable);
  ExpectDocument(*instance.GetUpdateResultData());
  if ((it.flags & kStored) == 0) return;
  instance.SerializeLocalDB();
  DBWriteWrapper::Instance()->WriteDomain(home.domainId());
  EvaluateStored(home, it);
  home.Forget();
}

}  // namespace
}  // namespace keelstone::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  keelstone::fuzz::Evaluate(keelstone::fuzz::ReadCase({data, size}));
  return 0;
}

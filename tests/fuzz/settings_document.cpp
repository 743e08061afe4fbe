// Rows of a global-settings table, one a line. What they say takes effect, and values are
// learned from under them.
#include <memory>

#include "keelstone/cppsqlite3.h"
#include "keelstone/rule_instance.h"
#include "settings/rule_settings.h"
#include "tests/fuzz/fuzz_home.h"

namespace keelstone::fuzz {
namespace {

constexpr const char* kHistories[] = {
    R"({"dataType":1,"dataList":[{"liveTime":1,"dataValue":5},{"liveTime":2,"dataValue":5},{"liveTime":3,"dataValue":7},{"liveTime":4,"dataValue":5}]})",
    R"({"dataType":2,"dataList":[{"liveTime":1,"dataValue":0.5},{"liveTime":2,"dataValue":-3e38},{"liveTime":3,"dataValue":3e38}]})",
    R"({"dataType":3,"dataList":[{"liveTime":1,"dataValue":1e308},{"liveTime":2,"dataValue":-1e308},{"liveTime":3,"dataValue":1e-300}]})",
    R"({"dataType":4,"dataList":[{"liveTime":1,"dataValue":"up"},{"liveTime":2,"dataValue":"up"},{"liveTime":3,"dataValue":"down"}]})",
    R"({"dataType":5,"dataList":[]})",
};

void StoreRows(Home& home, Input& input) {
  CppSQLite3DB db;
  db.open(home.files().Path(kDbGlobalSetting));
  db.execDML("PRAGMA synchronous=OFF");
  db.execDML("begin");
  db.execDML("delete from KSGlobalSetting");
  auto insert = db.compileStatement("insert into KSGlobalSetting (data) values(?)");
  while (!input.AtEnd()) {
    insert.bind(1, input.Line());
    insert.execDML();
  }
  db.execDML("commit");
}

void Evaluate(Home& home) {
  KSRuleInstance instance("src", "node", "r1", "schema", "structure", "prm", home.domainId(), "",
                          1700000000, false);
  DevParserRule rules;
  DevParserHistory histories;
  for (int type = KSDataInt64; type <= KSDataTable; ++type) {
    const std::string name = "v" + std::to_string(type);
    auto definition = std::make_shared<RuleDefinitionData>();
    definition->variableType = 1;
    definition->variableName = name;
    definition->enableFlag = true;
    rules["eth0"][name] = definition;
    histories["eth0"][name] = kHistories[type - 1];
  }
  instance.SetCacheData(std::move(rules));
  instance.SetHistoryData(std::move(histories));
  for (int type = KSDataInt64; type <= KSDataTable; ++type) {
    VarInfo variable;
    variable.variableName = "v" + std::to_string(type);
    variable.interfaceValue = "eth0";
    variable.dataType = type;
    variable.variableType = 1;
    variable.valueText = "6";
    instance.ProcessVariable(variable);
  }
  KS_PROMISE(IsStrictJson(instance.GetUpdateResultData()->ToJsonString()));
}

void ReadSettings(Input input) {
  static Home home;
  KSRuleGlobalSetting document{input.Line()};
  const RuleSettings settings(document);
  for (int type = kRuleTypeNone - 1; type <= kRuleTypeCount; ++type) {
    settings.HistoryDataCount(static_cast<EnumRuleType>(type));
    settings.LiveInterval(static_cast<EnumRuleType>(type));
  }
  StoreRows(home, input);
  const auto manager = home.manager();
  manager->InitKSGlobalSetting();
  const std::string general = manager->GetGeneralSettingJson();
  KS_PROMISE(general.empty() || JsonReader::Parse(general, document));
  Evaluate(home);
}

}  // namespace
}  // namespace keelstone::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  keelstone::fuzz::ReadSettings({data, size});
  return 0;
}

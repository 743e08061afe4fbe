#include "keelstone/domain_snapshot.h"

#include <string_view>
#include <unordered_set>

#include "keelstone/domain_data_manager.h"

namespace keelstone {

DomainSnapshot DomainSnapshot::Of(const std::string& id) {
  DomainSnapshot domain;
  domain.id = id;
  domain.data = KSDomainDataManager::Instance()->GetKSDataManager(id);
  domain.engineOn = domain.data->IsEnableKSFunction();
  domain.definesNothing = !domain.data->HasVariableRules();
  domain.tableRowLimit = domain.data->GetTableLimitcount();
  domain.stringLineLimit = domain.data->GetStrRowLimitcount();
  return domain;
}

RuleDefinitionData NewDefinition(const std::string& source, const VarInfo& variable) {
  RuleDefinitionData definition(kRuleTypeNone, kVariableSourceParser, "", source,
                                variable.variableName, variable.variableType, "");
  definition.enableFlag = true;
  return definition;
}

std::vector<RuleDefinitionData> MissingDefinitions(const ParsedRun& run,
                                                   const KSDataManagerSql& data) {
  std::vector<RuleDefinitionData> missing;
  std::unordered_set<std::string_view> seen;
  RuleDefinitionData ignored;
  for (const VarInfo& variable : run.variables) {
    if (!seen.insert(variable.variableName).second) continue;
    const bool isDefined = data.GetRuleDefinitionData(ignored, variable.variableName, run.source,
                                                      "", kVariableSourceParser) < 0;
    if (!isDefined) missing.push_back(NewDefinition(run.source, variable));
  }
  return missing;
}

}  // namespace keelstone

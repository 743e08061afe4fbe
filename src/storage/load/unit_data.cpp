#include "keelstone/unit_data.h"

#include <map>
#include <string>
#include <utility>

namespace keelstone {

namespace {

/// Key texts are joined by "$$$": a name with a dollar sign may shift the joints.
bool IsUnmistakable(const UnitKey& key) {
  for (const std::string* name : {&key.deviceName, &key.variableSource, &key.variableParam}) {
    if (name->find('$') != std::string::npos) return false;
  }
  return true;
}

/// The unit's part of a bulk answer; empty for a unit without rows.
template <class Part>
Part Take(std::map<std::string, std::shared_ptr<Part>>& parts, const std::string& key) {
  const auto found = parts.find(key);
  return found == parts.end() || !found->second ? Part() : std::move(*found->second);
}

}  // namespace

std::vector<std::unique_ptr<UnitData>> LoadUnits(KSObjectRuleSql& table,
                                                 const std::vector<UnitKey>& keys) {
  std::vector<std::unique_ptr<UnitData>> loaded(keys.size());
  std::vector<std::shared_ptr<UnitKey>> asked;
  for (const UnitKey& key : keys) {
    if (IsUnmistakable(key)) asked.push_back(std::make_shared<UnitKey>(key));
  }
  if (asked.empty()) return loaded;

  const std::uint64_t failedBefore = FailedOperationsHere();
  std::map<std::string, std::shared_ptr<DevParserRule>> rules;
  std::map<std::string, std::shared_ptr<DevParserHistory>> histories;
  const int status =
      table.GetMultiRuleDefinitionDataByDevParsers(rules, asked, kVariableSourceParser);
  table.GetMultiRuleHistoryDataBeDevParsers(histories, asked, kVariableSourceParser);
  // Each run then reads for itself, and says what it cannot read.
  if (status >= 0 || FailedOperationsHere() != failedBefore) return loaded;

  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (!IsUnmistakable(keys[i])) continue;
    const std::string key = keys[i].GetKeyString();
    loaded[i] = std::make_unique<UnitData>();
    loaded[i]->rules = Take(rules, key);
    loaded[i]->histories = Take(histories, key);
  }
  return loaded;
}

}  // namespace keelstone

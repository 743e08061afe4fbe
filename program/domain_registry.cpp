#include "program/domain_registry.h"

#include <utility>

#include "keelstone/domain_files.h"
#include "keelstone/rule_global_setting.h"
#include "keelstone/text_escape.h"
#include "program/command_output.h"

namespace keelstone::host {

namespace {

constexpr std::size_t kShownDomainBytes = 80;

std::string Named(const std::string& domainId) {
  return "domain \"" + Printable(domainId, kShownDomainBytes) + "\"";
}

}  // namespace

DomainRegistry::DomainRegistry(Console& console, bool enroll, bool writes)
    : console_(console), enroll_(enroll), writes_(writes) {}

bool DomainRegistry::NoteFault(const std::string& id, const std::string& why) {
  faults_.push_back(Named(id) + " cannot be used: " + Printable(why) +
                    "; the values of its runs are rejected");
  return false;
}

void DomainRegistry::Refuse(Entry& entry) {
  auto refused = std::make_unique<DomainSnapshot>();
  refused->id = entry.domain.id;
  refused->usable = false;
  entry.refused = std::move(refused);
}

std::vector<std::string> DomainRegistry::Ids() const {
  std::vector<std::string> ids;
  for (const auto& entry : entries_) ids.push_back(entry.first);
  return ids;
}

bool DomainRegistry::PrepareFiles(const std::string& id, bool& isComplete) {
  using Condition = DomainCheck::Condition;
  const DomainCheck check = CheckDomain(id, writes_);
  if (check.condition == Condition::kUnusable) return NoteFault(id, check.detail);
  isComplete = check.condition == Condition::kComplete;
  if (isComplete) return true;
  if (enroll_) {
    const std::string failure = MakeDomain(id, DefaultGeneralSettings());
    return failure.empty() || NoteFault(id, failure);
  }
  const std::string remedy =
      "; `keelstone init` with this domain makes what is missing, and "
      "`evaluate --enroll` does so too";
  console_.Say(check.condition == Condition::kAbsent
                   ? Named(id) + " has no databases, its values are rejected: " +
                         Printable(check.detail) + remedy
                   : Named(id) + " is not complete: " + Printable(check.detail) + remedy);
  return true;
}

const DomainSnapshot* DomainRegistry::Find(const std::string& id) {
  if (const auto known = entries_.find(id); known != entries_.end()) {
    const Entry& entry = *known->second;
    return entry.refused ? entry.refused.get() : &entry.domain;
  }
  auto entry = std::make_unique<Entry>();
  DomainSnapshot& domain = entry->domain;
  bool isComplete = false;
  if (!PrepareFiles(id, isComplete)) {
    domain.id = id;
    Refuse(*entry);
    return entries_.emplace(id, std::move(entry)).first->second->refused.get();
  }
  domain = DomainSnapshot::Of(id);
  if (!domain.engineOn) {
    console_.Say(Named(id) +
                 " has its engine switched off (EnableKSFunction): nothing of it is "
                 "evaluated");
  } else if (domain.definesNothing && isComplete && !enroll_) {
    console_.Say(Named(id) +
                 " defines no variables: values without a rule of their own are rejected; "
                 "`--enroll` defines variables as they come");
  }
  return &entries_.emplace(id, std::move(entry)).first->second->domain;
}

void DomainRegistry::NoteVariables(const ParsedRun& run) {
  if (!enroll_) return;
  Entry& entry = *entries_.find(run.domain)->second;
  if (entry.refused) return;
  NameSet& defined = entry.defined[run.source];
  RuleDefinitionData ignored;
  for (const VarInfo& variable : run.variables) {
    if (defined.contains(variable.variableName)) continue;
    defined.insert(variable.variableName);
    const bool isDefined =
        entry.domain.data->GetRuleDefinitionData(ignored, variable.variableName, run.source, "",
                                                 kVariableSourceParser) < 0;
    if (isDefined) continue;
    if (entry.noted.empty()) withNoted_.push_back(&entry);
    entry.noted.push_back(NewDefinition(run.source, variable));
  }
}

bool DomainRegistry::DefineNoted() {
  bool defined = true;
  for (Entry* entry : std::exchange(withNoted_, {})) {
    const auto noted = std::exchange(entry->noted, {});
    if (entry->domain.data->AddRuleDefinitions(noted)) continue;
    defined =
        NoteFault(entry->domain.id, "its variable rules cannot be written: " + FirstFailureText());
    Refuse(*entry);
  }
  return defined;
}

}  // namespace keelstone::host

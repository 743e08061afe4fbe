#include "host/defined_variables.h"

#include <algorithm>

namespace keelstone {

bool DefinedVariables::KnowsAll(const ParsedRun& run) const {
  const ReaderLock lock(mutex_);
  const auto names = names_.find(run.source);
  return names != names_.end() &&
         std::all_of(run.variables.begin(), run.variables.end(), [&](const VarInfo& variable) {
           return names->second.contains(variable.variableName);
         });
}

void DefinedVariables::Note(const ParsedRun& run) {
  const WriterLock lock(mutex_);
  auto& names = names_[run.source];
  for (const VarInfo& variable : run.variables) names.insert(variable.variableName);
}

void DefinedVariables::Clear() {
  const WriterLock lock(mutex_);
  names_.clear();
}

}  // namespace keelstone

#ifndef KEELSTONE_HOST_DEFINED_VARIABLES_H
#define KEELSTONE_HOST_DEFINED_VARIABLES_H

#include <map>
#include <string>
#include <unordered_set>

#include "keelstone/mutex.h"
#include "keelstone/run_line.h"

namespace keelstone {

/// Remembers which variables of which sources have a definition, so that a run of known ones need
/// not ask the table for each. What was removed since is not noticed. Any thread.
class DefinedVariables {
 public:
  bool KnowsAll(const ParsedRun& run) const;
  /// All variables of the run have one.
  void Note(const ParsedRun& run);
  void Clear();

 private:
  mutable SharedMutex mutex_;  // guards the names, by source; innermost
  std::map<std::string, std::unordered_set<std::string>> names_ KS_GUARDED_BY(mutex_);
};

}  // namespace keelstone

#endif  // KEELSTONE_HOST_DEFINED_VARIABLES_H

#ifndef KEELSTONE_PROGRAM_COMMANDS_RULE_LISTING_H
#define KEELSTONE_PROGRAM_COMMANDS_RULE_LISTING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "keelstone/cppsqlite3.h"

namespace keelstone::host {

/// What a rule is found by: device, interface, source, param, variable.
using RuleKey = std::array<std::string, 5>;

/// One stored rule and how its history stands.
struct ListedRule {
  RuleKey key;
  int type = -1;  // EnumRuleType
  std::string parameter;
  bool learned = false;
  std::size_t points = 0;
  std::optional<std::int64_t> newest;  // seconds since the epoch
};

/// The rules of a domain in order of their keys, a page at a time: between two pages no
/// lock is held, so that a slow reader of the list keeps no evaluation from writing. A
/// rule that another process adds or removes meanwhile may or may not be seen. Database
/// errors throw CppSQLite3Exception. One thread.
class RuleListing {
 public:
  /// Lists the rules whose keys hold what `filter` gives.
  RuleListing(const std::string& domainId, std::array<std::optional<std::string>, 5> filter);

  /// The next rules; none at the end.
  std::vector<ListedRule> NextPage();

 private:
  CppSQLite3Statement Select();

  CppSQLite3DB db_;
  std::array<std::optional<std::string>, 5> filter_;
  std::optional<RuleKey> last_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_RULE_LISTING_H

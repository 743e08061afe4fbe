#ifndef KEELSTONE_PROGRAM_COMMANDS_OBJECT_LISTING_H
#define KEELSTONE_PROGRAM_COMMANDS_OBJECT_LISTING_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "keelstone/cppsqlite3.h"
#include "program/commands/rule_listing.h"

namespace keelstone::host {

/// What the databases hold of one variable of one object. A variable that has no rule yet
/// has a history only.
struct StoredObject {
  RuleKey key;
  bool hasRule = false;
  int ruleType = -1;      // EnumRuleType
  int generateType = 0;   // Enum_RuleGenerateType
  int variableType = -1;  // the parser's type code
  std::string parameter;
  std::string history;  // its text; "" without one
};

/// The objects of a domain that have a rule or a history, in order of their keys, a page at
/// a time: between two pages no lock is held. Database errors throw CppSQLite3Exception.
/// One thread.
class ObjectListing {
 public:
  /// Lists what has just the parts of the key that `filter` gives.
  ObjectListing(const std::string& domainId, std::array<std::optional<std::string>, 5> filter);

  /// The next objects; none at the end.
  std::vector<StoredObject> NextPage();

 private:
  CppSQLite3DB db_;
  std::array<std::optional<std::string>, 5> filter_;
  std::optional<RuleKey> last_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_OBJECT_LISTING_H

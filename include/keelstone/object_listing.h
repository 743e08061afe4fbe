#ifndef KEELSTONE_OBJECT_LISTING_H
#define KEELSTONE_OBJECT_LISTING_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// What a variable of an object is found by: device, interface, source, param, variable.
using StoredKey = std::array<std::string, 5>;

/// What the databases of a domain hold of one variable of one object. A variable that has no
/// rule yet has a history only.
struct KEELSTONE_EXPORT StoredObject {
  StoredKey key;
  bool hasRule = false;
  int ruleType = -1;                // EnumRuleType
  int generateType = kRuleLearned;  // Enum_RuleGenerateType
  int variableType = -1;            // the parser's type code
  std::string parameter;            // JSON text
  bool hasHistory = false;          // as far as it was read
  std::string history;              // its text; "" without one

  bool isLearned() const noexcept { return hasRule && generateType == kRuleLearned; }
};

/// What of a domain is listed.
struct KEELSTONE_EXPORT ListingScope {
  /// Only what has just the parts of the key that are given.
  std::array<std::optional<std::string>, 5> filter;
  bool onlyRules = false;      // leaves out what has a history only
  bool withHistories = false;  // else ReadHistories reads those that are wanted
  int pageSize = 200;          // objects
};

/// The objects of a domain that have a rule or a history, in order of their keys, a page at
/// a time: between two pages nothing is locked or open, so that a slow reader of the list
/// keeps no evaluation from writing. A page is read as it stands at one moment; what is
/// added or removed meanwhile may or may not be seen by a later one. Memory is needed for a
/// page. Rows that wait to be written are not looked at: flush the domain before.
///
/// Calls answer why they failed ("FILE: what was done: why it failed"), or the empty text;
/// failures are logged and counted (GetFailedReadCount). A missing file or table is one.
/// One thread.
class KEELSTONE_EXPORT ObjectListing {
 public:
  explicit ObjectListing(std::string domainId, ListingScope scope = {});

  /// Puts the next objects into `page`, none at the end.
  [[nodiscard]] std::string NextPage(std::vector<StoredObject>& page);
  /// Reads the histories of these, which take the memory that all of them need.
  [[nodiscard]] std::string ReadHistories(const std::vector<StoredObject*>& objects) const;

 private:
  std::string domainId_;
  ListingScope scope_;
  std::optional<StoredKey> last_;
};

/// What a domain has stored of one variable of one object, with its history. The text says
/// why it cannot be read.
[[nodiscard]] KEELSTONE_EXPORT std::string ReadStoredObject(const std::string& domainId,
                                                            const StoredKey& key,
                                                            StoredObject& object);

}  // namespace keelstone

#endif  // KEELSTONE_OBJECT_LISTING_H

#ifndef KEELSTONE_DOMAIN_EDITS_H
#define KEELSTONE_DOMAIN_EDITS_H

#include <string>

#include "keelstone/export.h"
#include "keelstone/json_value.h"
#include "keelstone/object_listing.h"
#include "keelstone/rule_enums.h"
#include "keelstone/setting_paths.h"

namespace keelstone {

/// How an edit of a domain's databases ended.
struct KEELSTONE_EXPORT EditOutcome {
  /// Whether the edit took place.
  enum class Kind {
    kDone,     // it is on disk
    kRefused,  // what is stored does not take it; nothing has changed
    kFailed,   // the database could not be read or written; nothing has changed
  };
  Kind kind = Kind::kDone;
  std::string why;  // it was not done; of a failure "FILE: what was done: why it failed"
};

/// A rule that a person gives one variable of one object.
struct KEELSTONE_EXPORT PrescribedRule {
  StoredKey key;
  EnumRuleType type = kRuleTypeNone;
  std::string parameter;  // JSON text
  std::string history;    // takes the place of the stored one; "" leaves that as it is
};

// Edits of what is stored. A database that another process holds is waited for as long as any
// statement waits. What fails is logged and counted (GetFailedWriteCount), too. Instances
// that are loaded see an edit when their domain is read anew. Any thread.

/// Stores the rule as a fixed one, in the place of the variable's rule if it has one. The
/// text says why it is not stored; empty: it is.
[[nodiscard]] KEELSTONE_EXPORT std::string PrescribeRule(const std::string& domainId,
                                                         const PrescribedRule& rule);

/// Removes a variable's rule, learned or fixed, and its history. The text says why not all of
/// that is removed; empty: it is.
[[nodiscard]] KEELSTONE_EXPORT std::string RemoveRule(const std::string& domainId,
                                                      const StoredKey& key);

/// Stores one setting (SettingPaths) in its row of the global settings; a row that is not
/// there is added, the general settings with the other members as DefaultGeneralSettings has
/// them. Refused where the stored row has no object on the way to the member.
[[nodiscard]] KEELSTONE_EXPORT EditOutcome StoreSetting(const std::string& domainId,
                                                        const SettingPath& setting,
                                                        const JsonValue& value);

}  // namespace keelstone

#endif  // KEELSTONE_DOMAIN_EDITS_H

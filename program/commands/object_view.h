#ifndef KEELSTONE_PROGRAM_COMMANDS_OBJECT_VIEW_H
#define KEELSTONE_PROGRAM_COMMANDS_OBJECT_VIEW_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "keelstone/data_manager.h"
#include "keelstone/expectation.h"
#include "keelstone/json_value.h"
#include "keelstone/object_listing.h"
#include "keelstone/rule_enums.h"
#include "keelstone/rule_global_setting.h"

namespace keelstone::host {

/// A setting in force.
struct ShownSetting {
  std::string path;
  JsonValue value;
  std::string from;  // "default", "domain", "absent" (reads as 0) or the name of a file
};

/// What of a domain bears on how its objects stand.
struct DomainView {
  std::string id;
  std::shared_ptr<KSDataManagerSql> data;
  KSRuleGlobalSetting generalSettings;  // as stored; Null: none
  bool learns = true;                   // the domain's switch
  bool isOn = true;                     // the engine's switch
  ShownSetting interval;                // s, between two values of a variable without a rule
  ShownSetting tableLimit;              // rows
  ShownSetting lineLimit;               // lines of a text
};

/// The domain's settings as the engine reads them now. The text says why they cannot be
/// read.
[[nodiscard]] std::string ViewDomain(const std::string& domainId, DomainView& view);

/// One value of a history.
struct ShownPoint {
  std::int64_t time = 0;  // seconds since the epoch
  JsonValue value;        // of a table its digest
  bool fits = true;       // the rule as it stands now
};

/// All that is known of one object, made from what is stored.
struct ObjectView {
  StoredKey key;
  bool hasRule = false;
  EnumRuleType ruleType = kRuleTypeNone;
  bool isLearned = true;
  std::string parameter;
  KSExpectation expected;
  EnumKSDataType dataType = KSDataUnknown;
  bool isHistoryRead = true;  // false: what is stored cannot be read
  std::vector<ShownPoint> points;
  /// The newest value that fits: of a rule that looks at one value, that very one. The
  /// databases do not hold the golden value itself.
  std::optional<std::size_t> reference;      // its place among the points
  std::optional<std::int64_t> learnsAfter;   // the first value later than this teaches
  std::string learning;                      // in words
  std::optional<std::int64_t> blockedUntil;  // while its device is in a block period now
  std::vector<ShownSetting> settings;
};

ObjectView ViewObject(const DomainView& domain, const StoredObject& stored);

JsonValue JsonOf(const DomainView& domain, const ObjectView& object);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_OBJECT_VIEW_H

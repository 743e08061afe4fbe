#ifndef KEELSTONE_RULE_GLOBAL_SETTING_H
#define KEELSTONE_RULE_GLOBAL_SETTING_H

#include <cstdint>
#include <memory>
#include <string>

#include "keelstone/export.h"
#include "keelstone/json_value.h"
#include "keelstone/rule_enums.h"

namespace keelstone {

/// The tuning of one rule type, filled from its sub-object of the general settings.
/// Ratios whose defaults are single-precision literals keep the widened value.
class KEELSTONE_EXPORT KSRuleSettingBase {
 public:
  /// Fills every field from the document. A member that is absent reads as 0. False when
  /// a member is of a kind that does not convert; the fields are then part old, part new.
  virtual bool LoadSetting(const JsonValue& document) = 0;
  /// How long (seconds) a rule of this type stays live before it is learned again.
  virtual std::int32_t GetTimeIntervalLimit() const = 0;
  /// How many values of a variable with such a rule are kept.
  virtual std::int32_t GetDataCountHistory() const = 0;

 protected:
  ~KSRuleSettingBase() = default;
};

/// What the typed settings have in common.
class KEELSTONE_EXPORT KSTypedRuleSetting : public KSRuleSettingBase {
 public:
  std::int32_t GetTimeIntervalLimit() const override { return timeIntervalLimit; }
  std::int32_t GetDataCountHistory() const override { return dataCountHistory; }

  std::int32_t timeIntervalLimit = 216000;  // s
  std::int32_t dataCountHistory = 30;       // values

 protected:
  ~KSTypedRuleSetting() = default;
};

/// What the rules that expect one lasting text share.
class KEELSTONE_EXPORT KSLastingTextSetting : public KSTypedRuleSetting {
 public:
  std::int32_t dataCountMinLimit = 3;
  std::int32_t valueStatusCount = 6;
  double changeFrequency = 0.33F;
  std::int32_t countEqualValueLimit = 3;

 protected:
  ~KSLastingTextSetting() = default;
};

/// When a text is taken as lasting.
class KEELSTONE_EXPORT KSStrEqualRuleSetting final : public KSLastingTextSetting {
 public:
  bool LoadSetting(const JsonValue& document) override;
};

/// When a table is taken as lasting.
class KEELSTONE_EXPORT KSMd5TableRuleSetting final : public KSLastingTextSetting {
 public:
  bool LoadSetting(const JsonValue& document) override;
};

/// When texts are taken as an enumeration.
class KEELSTONE_EXPORT KSStrEnumRuleSetting final : public KSTypedRuleSetting {
 public:
  bool LoadSetting(const JsonValue& document) override;

  std::int32_t dataCountMinLimit = 10;
  std::int32_t valueStatusCount = 6;
  double changeFrequency = 0.33F;
  double alertThreshold = 0.1F;
};

/// When numbers are taken as an enumeration.
class KEELSTONE_EXPORT KSIntEnumRuleSetting final : public KSTypedRuleSetting {
 public:
  bool LoadSetting(const JsonValue& document) override;

  std::int32_t dataCountMinLimit = 10;
  double deltaEZero = 0.66F;
  double alertThreshold = 0.1F;
  std::int32_t valueStatusCount = 3;
};

/// When a number is taken as lasting; the conditions are tried on a full history (0), on
/// one that is not full (1), and on a full one after all other candidates (2).
class KEELSTONE_EXPORT KSIntEqualRuleSetting final : public KSTypedRuleSetting {
 public:
  bool LoadSetting(const JsonValue& document) override;

  std::int32_t dataCountThreshold = 10;
  std::int32_t dataCountMinLimit = 3;
  double condition0DeltaEZero = 0.0;  // has no default of its own; every load sets it
  double condition1DeltaEZero = 0.8F;
  double condition2DeltaEZero = 0.66F;
  std::int32_t countEqualValueLimit = 3;
  std::int32_t valueStatusCount = 3;
};

/// When numbers are taken as a range, and how its bounds are drawn.
class KEELSTONE_EXPORT KSIntRangeRuleSetting final : public KSTypedRuleSetting {
 public:
  bool LoadSetting(const JsonValue& document) override;

  std::int32_t dataCountMinLimit = 10;
  std::int32_t valueStatusCount = 6;
  std::int32_t lowerBoundMinValue = 0;
  std::int32_t upperBoundMaxValue = 100;
  std::int32_t percentageMaxValue = 95;
  std::int32_t stdCoefficient = 3;
};

/// What the rules of values that hardly ever fall share.
class KEELSTONE_EXPORT KSTrendRuleSetting : public KSTypedRuleSetting {
 public:
  std::int32_t dataCountMinLimit = 10;
  double deltaEZero = 0.2F;
  std::int32_t deltaLZeroCount = 1;
  std::int32_t deltaLZeroValue = 10;

 protected:
  ~KSTrendRuleSetting() = default;
};

/// When a number that hardly ever falls is taken as one that stands still.
class KEELSTONE_EXPORT KSIntConstantRuleSetting final : public KSTrendRuleSetting {
 public:
  bool LoadSetting(const JsonValue& document) override;
};

/// When a number that hardly ever falls is taken as a rising one.
class KEELSTONE_EXPORT KSIntIncreaseRuleSetting final : public KSTrendRuleSetting {
 public:
  KSIntIncreaseRuleSetting() { timeIntervalLimit = 21600; }
  bool LoadSetting(const JsonValue& document) override;
};

/// The rule types without a class of their own, and every other value: the sub-object is
/// that of the type's name for 1, 3, 5, 10 and 11, else the member whose name is empty.
class KEELSTONE_EXPORT KSOtherRuleSetting final : public KSTypedRuleSetting {
 public:
  explicit KSOtherRuleSetting(EnumRuleType type) : ruleType(type) { timeIntervalLimit = 21600; }
  /// False at once for the rule type -1.
  bool LoadSetting(const JsonValue& document) override;

  EnumRuleType ruleType;
};

/// A domain's general settings: the JSON document itself, with one sub-object per rule
/// type, and typed views of it. A value type; one thread at a time.
class KEELSTONE_EXPORT KSRuleGlobalSetting : public JsonValue {
 public:
  KSRuleGlobalSetting() = default;
  explicit KSRuleGlobalSetting(const JsonValue& document) : JsonValue(document) {}
  /// Reads a JSON text; one that does not parse is logged and gives the empty document.
  explicit KSRuleGlobalSetting(const std::string& text);
  explicit KSRuleGlobalSetting(const char* text) : KSRuleGlobalSetting(std::string(text)) {}

  // Each answers a new settings object, empty when a member refused its conversion.
  std::shared_ptr<KSStrEqualRuleSetting> GetStrEqualSetting() const;
  std::shared_ptr<KSStrEnumRuleSetting> GetStrEnumSetting() const;
  std::shared_ptr<KSIntEnumRuleSetting> GetIntEnumSetting() const;
  std::shared_ptr<KSIntEqualRuleSetting> GetIntEqualSetting() const;
  std::shared_ptr<KSIntRangeRuleSetting> GetIntRangeSetting() const;
  std::shared_ptr<KSIntConstantRuleSetting> GetIntConstSetting() const;
  std::shared_ptr<KSIntIncreaseRuleSetting> GetIntIncreaseSetting() const;
  std::shared_ptr<KSOtherRuleSetting> GetOtherSetting(EnumRuleType type) const;
  std::shared_ptr<KSMd5TableRuleSetting> GetMD5TableSetting() const;

  /// How many history values to keep for a rule of this type; 30 when its settings do
  /// not load.
  std::int32_t GetHistoryDataCount(EnumRuleType type) const;
  /// How long (seconds) a rule of this type stays live; 21600 when its settings do not
  /// load. The table type reads the member whose name is empty, normally absent: 0.
  std::int32_t GetLiveTMInterval(EnumRuleType type) const;
};

/// The documented defaults of every settings class as a document, with 0.9 for the
/// condition 0 ratio, which has none.
KEELSTONE_EXPORT JsonValue DefaultGeneralSettings();
/// Lays `top` over `base`: objects member by member, everything else in its place.
KEELSTONE_EXPORT void LayOver(JsonValue& base, const JsonValue& top);

/// The name of a rule type in documents ("intRange"); "" for what is no rule type.
KEELSTONE_EXPORT const char* RuleTypeName(EnumRuleType type);

}  // namespace keelstone

#endif  // KEELSTONE_RULE_GLOBAL_SETTING_H

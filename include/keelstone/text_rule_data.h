#ifndef KEELSTONE_TEXT_RULE_DATA_H
#define KEELSTONE_TEXT_RULE_DATA_H

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "keelstone/export.h"
#include "keelstone/rule_data.h"
#include "keelstone/table_data_point.h"

/// Rule data of strings and tables. ParseParam answers false, and changes nothing, for a
/// text that is not JSON or whose members are of kinds that do not convert.
namespace keelstone {

/// Rule data with a text for golden value; the golden value's text is the text itself.
class KEELSTONE_EXPORT TextRuleData : public KSRuleDataBase {
 public:
  std::string GetGlodenValue() const override { return golden.value; }
  std::int64_t GetGlodenValueTime() const override { return golden.time; }

  KSDataPoint<std::string> golden;
};

/// One text: {"ruleParam":"Established"}; for the regular-expression rule its pattern.
class KEELSTONE_EXPORT StrEqualData final : public TextRuleData {
 public:
  void Clear() override;
  bool ParseParam(const std::string& text) override;
  /// Takes the parameter from a text that is just what ParamToString writes, and holds no
  /// escapes; false, and no change, for any other.
  bool TakeOwnText(std::string_view text);
  std::string ParamToString() const override;
  bool IsEqual(const KSRuleDataBase* other) const override;

  std::string ruleParam;
};

/// A set of texts: {"ruleParam":["down","up"]}, in byte order.
class KEELSTONE_EXPORT StrEnumData final : public TextRuleData {
 public:
  void Clear() override;
  bool ParseParam(const std::string& text) override;
  /// Takes the parameter from a text that is just what ParamToString writes, and holds no
  /// escapes; false, and no change, for any other.
  bool TakeOwnText(std::string_view text);
  std::string ParamToString() const override;
  bool IsEqual(const KSRuleDataBase* other) const override;

  std::set<std::string> values;
};

/// A table's digest: {"hashCmp":"0cc1…","hashSort":true,"hashColumns":["prefix"]}. (The
/// name is part of the interface as it is spelled.)
class KEELSTONE_EXPORT TablMd5EqualData final : public KSRuleDataBase {
 public:
  void Clear() override;
  bool ParseParam(const std::string& text) override;
  std::string ParamToString() const override;
  /// The golden table as a JSON object, with "hashCmp", "hashSort" and "hashColumns"
  /// added; "" (and an error line) when its stored content cannot be read.
  std::string GetGlodenValue() const override;
  std::int64_t GetGlodenValueTime() const override { return golden.time; }
  /// Only the digest counts.
  bool IsEqual(const KSRuleDataBase* other) const override;

  std::string hashCmp;
  std::set<std::string> hashColumns;
  bool hashSort = false;
  KSTableDataPoint golden;
};

}  // namespace keelstone

#endif  // KEELSTONE_TEXT_RULE_DATA_H

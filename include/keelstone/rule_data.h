#ifndef KEELSTONE_RULE_DATA_H
#define KEELSTONE_RULE_DATA_H

#include <boost/container/flat_set.hpp>
#include <cstdint>
#include <string>
#include <string_view>

#include "keelstone/data_point.h"
#include "keelstone/export.h"

namespace keelstone {

/// A rule's parameter and its golden value. The base itself holds nothing. One thread at
/// a time.
class KEELSTONE_EXPORT KSRuleDataBase {
 public:
  virtual ~KSRuleDataBase();

  virtual void Clear();
  /// Takes the parameter from its text; false when it cannot. The numeric rules read
  /// their parameters themselves.
  virtual bool ParseParam(const std::string& text);
  /// The parameter text, a JSON object.
  virtual std::string ParamToString() const;
  /// The golden value as JSON text (the name is part of the interface as it is spelled).
  virtual std::string GetGlodenValue() const;
  /// Seconds since the epoch.
  virtual std::int64_t GetGlodenValueTime() const;
  /// Same class and same parameter; the golden value does not count.
  virtual bool IsEqual(const KSRuleDataBase* other) const;
};

/// Rule data with a number for golden value.
template <class T>
class KEELSTONE_EXPORT NumericRuleData : public KSRuleDataBase {
 public:
  std::string GetGlodenValue() const override;
  std::int64_t GetGlodenValueTime() const override { return golden.time; }

  KSDataPoint<T> golden;
};

/// One number: {"ruleParam":5}.
template <class T>
class KEELSTONE_EXPORT IntEqualData final : public NumericRuleData<T> {
 public:
  void Clear() override;
  std::string ParamToString() const override;
  /// Takes the parameter from a text that is just what ParamToString writes; false, and
  /// no change, for any other.
  bool TakeOwnText(std::string_view text);
  bool IsEqual(const KSRuleDataBase* other) const override;

  T value = T(-1);
};

/// A set of numbers: {"ruleParam":[1,2]}, ascending.
template <class T>
class KEELSTONE_EXPORT IntEnumData final : public NumericRuleData<T> {
 public:
  void Clear() override;
  std::string ParamToString() const override;
  /// Takes the parameter from a text that is just what ParamToString writes; false, and
  /// no change, for any other.
  bool TakeOwnText(std::string_view text);
  bool IsEqual(const KSRuleDataBase* other) const override;

  boost::container::flat_set<T> values;
};

/// A closed range: {"maxValue":9,"minValue":0}.
template <class T>
class KEELSTONE_EXPORT IntRangeData final : public NumericRuleData<T> {
 public:
  void Clear() override;
  std::string ParamToString() const override;
  /// Takes the parameter from a text that is just what ParamToString writes; false, and
  /// no change, for any other.
  bool TakeOwnText(std::string_view text);
  bool IsEqual(const KSRuleDataBase* other) const override;

  T maxValue = T(-1);
  T minValue = T(-1);
};

}  // namespace keelstone

#endif  // KEELSTONE_RULE_DATA_H

#include "keelstone/rule_data.h"

#include <utility>

#include "model/history/cast_to.h"
#include "model/history/numeric_traits.h"
#include "model/history/own_text.h"

namespace keelstone {

namespace {

template <class T>
void ClearGolden(KSDataPoint<T>& golden) {
  golden = KSDataPoint<T>(0, T{});
}

/// `other` as the class of `self`, or nullptr.
template <class Data>
const Data* Same(const Data*, const KSRuleDataBase* other) {
  return CastTo<const Data>(other);
}

}  // namespace

KSRuleDataBase::~KSRuleDataBase() = default;
void KSRuleDataBase::Clear() {}
bool KSRuleDataBase::ParseParam(const std::string&) { return false; }
std::string KSRuleDataBase::ParamToString() const { return {}; }
std::string KSRuleDataBase::GetGlodenValue() const { return {}; }
std::int64_t KSRuleDataBase::GetGlodenValueTime() const { return 0; }
bool KSRuleDataBase::IsEqual(const KSRuleDataBase*) const { return false; }

template <class T>
std::string NumericRuleData<T>::GetGlodenValue() const {
  std::string text;
  NumericTraits<T>::Append(text, golden.value);
  return text;
}

template <class T>
void IntEqualData<T>::Clear() {
  value = T(-1);
  ClearGolden(this->golden);
}

template <class T>
std::string IntEqualData<T>::ParamToString() const {
  std::string text = "{\"ruleParam\":";
  NumericTraits<T>::Append(text, value);
  return text += '}';
}

template <class T>
bool IntEqualData<T>::TakeOwnText(std::string_view text) {
  OwnTextReader reader(text);
  T number = T();
  if (!reader.Skip("{\"ruleParam\":") || !reader.Read(number)) return false;
  if (!reader.Skip('}') || !reader.AtEnd()) return false;
  value = number;
  return true;
}

template <class T>
bool IntEqualData<T>::IsEqual(const KSRuleDataBase* other) const {
  const auto* const same = Same(this, other);
  return same != nullptr && value == same->value;
}

template <class T>
void IntEnumData<T>::Clear() {
  values.clear();
  ClearGolden(this->golden);
}

template <class T>
std::string IntEnumData<T>::ParamToString() const {
  std::string text = "{\"ruleParam\":[";
  for (auto value = values.begin(); value != values.end(); ++value) {
    if (value != values.begin()) text += ',';
    NumericTraits<T>::Append(text, *value);
  }
  return text += "]}";
}

template <class T>
bool IntEnumData<T>::TakeOwnText(std::string_view text) {
  OwnTextReader reader(text);
  boost::container::flat_set<T> numbers;
  T number = T();
  if (!reader.Skip("{\"ruleParam\":[")) return false;
  numbers.reserve(8);
  do {
    if (!reader.Read(number)) return false;
    // In another order somebody else has written them.
    if (!numbers.empty() && !(*numbers.rbegin() < number)) return false;
    numbers.insert(numbers.end(), number);
  } while (reader.Skip(','));
  if (!reader.Skip("]}") || !reader.AtEnd()) return false;
  values = std::move(numbers);
  return true;
}

template <class T>
bool IntEnumData<T>::IsEqual(const KSRuleDataBase* other) const {
  const auto* const same = Same(this, other);
  return same != nullptr && values == same->values;
}

template <class T>
void IntRangeData<T>::Clear() {
  maxValue = T(-1);
  minValue = T(-1);
  ClearGolden(this->golden);
}

template <class T>
std::string IntRangeData<T>::ParamToString() const {
  std::string text = "{\"maxValue\":";
  NumericTraits<T>::Append(text, maxValue);
  text += ",\"minValue\":";
  NumericTraits<T>::Append(text, minValue);
  return text += '}';
}

template <class T>
bool IntRangeData<T>::TakeOwnText(std::string_view text) {
  OwnTextReader reader(text);
  T most = T();
  T least = T();
  if (!reader.Skip("{\"maxValue\":") || !reader.Read(most)) return false;
  if (!reader.Skip(",\"minValue\":") || !reader.Read(least)) return false;
  if (!reader.Skip('}') || !reader.AtEnd()) return false;
  maxValue = most;
  minValue = least;
  return true;
}

template <class T>
bool IntRangeData<T>::IsEqual(const KSRuleDataBase* other) const {
  const auto* const same = Same(this, other);
  return same != nullptr && maxValue == same->maxValue && minValue == same->minValue;
}

#define KS_INSTANTIATE_RULE_DATA(T)  \
  template class NumericRuleData<T>; \
  template class IntEqualData<T>;    \
  template class IntEnumData<T>;     \
  template class IntRangeData<T>;
KS_INSTANTIATE_RULE_DATA(std::int64_t)
KS_INSTANTIATE_RULE_DATA(float)
KS_INSTANTIATE_RULE_DATA(double)
#undef KS_INSTANTIATE_RULE_DATA

}  // namespace keelstone
